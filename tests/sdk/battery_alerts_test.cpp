#include "quomi/sdk/battery_alerts.h"

#include "quomi/platform/clock.h"
#include "tests/data/store_support.h"
#include "tests/diagnostics/log_support.h"
#include "tests/sdk/scripted_uploader.h"

namespace quomi::test {
namespace {

class BatteryAlerts : public testing::Test {
protected:
    BatteryAlerts() { queue->setUploader(&uploader); }

    void send(const char* service, double date) {
        auto alert = std::make_shared<QuomiBatteryAlert>();
        alert->setValues({at(date), "shop", "U", service});
        queue->sendBatteryAlert(alert);
    }
    /// What would be there after a kill.
    std::string stored() {
        return host.connect()
            .execAndGet("SELECT group_concat(serviceID, ' ') FROM (SELECT * FROM QuomiBatteryAlert ORDER BY _id)")
            .getString();
    }

    StoreHost host;
    ScriptedUploader uploader;
    KeptConsole console;
    std::unique_ptr<QuomiData> data = host.open();
    std::unique_ptr<BatteryAlertQueue> queue = std::make_unique<BatteryAlertQueue>(*data, console);
};

TEST_F(BatteryAlerts, WaitInTheStoreUntilTheyArrive) {
    send("1", 10);
    EXPECT_THAT(uploader.alerts, ElementsAre("1"));
    uploader.fail();
    EXPECT_EQ(stored(), "1");
    queue->setUploader(nullptr);
    send("2", 20);
    EXPECT_EQ(stored(), "1 2") << "nobody sends";
    queue.reset();
    data = host.open();
    queue = std::make_unique<BatteryAlertQueue>(*data, console);
    queue->setUploader(&uploader);
    queue->flushBatteryAlertsQueue();
    EXPECT_THAT(uploader.alerts, ElementsAre("1", "2", "1")) << "the newest first";
    EXPECT_EQ(data->getAllBatteryAlerts().size(), 0U) << "on their way";
    uploader.succeed();
    uploader.fail();
    EXPECT_EQ(stored(), "1");
    EXPECT_EQ(data->getAllBatteryAlerts().front()->values(), (BatteryAlert{at(10), "shop", "U", "1"}));
    EXPECT_TRUE(data->removeAllBatteryAlerts());
    EXPECT_EQ(stored(), "");
}

TEST_F(BatteryAlerts, ThoseOnTheirWayWaitAgainWhenTheSenderGoes) {
    send("1", 10);
    send("2", 20);
    uploader.succeed();
    queue->setUploader(nullptr);
    EXPECT_EQ(stored(), "2");
    uploader.fail();
    EXPECT_EQ(stored(), "2") << "an answer that comes too late";
}

TEST_F(BatteryAlerts, AreSentWhileAnotherProcessHoldsTheStoreAndStoredAfterwards) {
    for (const bool isInBackground : {false, true}) {
        if (isInBackground) host.phone.background();
        data->startBackgroundObjectContext();
        auto other = host.connect();
        other.exec("BEGIN IMMEDIATE");
        send("1", 10);
        EXPECT_EQ(uploader.alerts.back(), "1");
        uploader.succeed();
        send("2", 20);
        uploader.fail();
        data->finishBackgroundObjectContext();
        other.exec("ROLLBACK");
        EXPECT_TRUE(data->saveContext());
        EXPECT_EQ(stored(), "2") << isInBackground;
        EXPECT_THAT(console.messages, testing::Each(HasSubstr("a battery alert waits in memory: ")));
        EXPECT_EQ(std::exchange(console.messages, {}).size(), 3U);
        EXPECT_TRUE(data->removeAllBatteryAlerts());
    }
}

TEST_F(BatteryAlerts, WhatTheStoreRefusesIsSentAgainWithTheNextOne) {
    const Table<const char*, const char*> refusals = {
        {"ALTER TABLE QuomiBatteryAlert RENAME TO Away", "ALTER TABLE Away RENAME TO QuomiBatteryAlert"},
        {"CREATE UNIQUE INDEX one ON QuomiBatteryAlert (1)", "DROP INDEX one"}};
    for (const auto& [begin, end] : refusals) {
        send("0", 5);
        uploader.fail();
        host.connect().exec(begin);
        send("1", 10);
        while (!uploader.waiting.empty()) uploader.fail();
        host.connect().exec(end);
        uploader.alerts.clear();
        send("2", 20);
        EXPECT_THAT(uploader.alerts, UnorderedElementsAre("2", "1", "0")) << begin;
        while (!uploader.waiting.empty()) uploader.succeed();
    }
}

TEST_F(BatteryAlerts, InTheBackground) {
    data->startBackgroundObjectContext();
    host.phone.background();
    send("1", 10);
    EXPECT_THAT(uploader.alerts, ElementsAre("1"));
    EXPECT_EQ(stored(), "");
    data->finishBackgroundObjectContext();
    uploader.fail();
    EXPECT_EQ(stored(), "1");
}

}  // namespace
}  // namespace quomi::test
