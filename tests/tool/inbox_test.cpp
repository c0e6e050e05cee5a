#include "tools/quomi/backoffice/inbox.h"

#include "quomi/util/error.h"
#include "tests/support/prelude.h"
#include "tools/quomi/backoffice/backoffice.h"

#include <sys/stat.h>
#include <unistd.h>

#include <SQLiteCpp/Database.h>
#include <httplib.h>

namespace quomi::tool {
namespace {

namespace fs = std::filesystem;

constexpr auto kPrivate = fs::perms::owner_read | fs::perms::owner_write;

Received event(const std::string& udid, std::size_t size = 1) {
    return {ReceivedKind::event, {}, udid, "d", std::string(size, 'x')};
}

std::string udidsOf(const Inbox& inbox) {
    std::string udids;
    for (const Received& entry : inbox.all()) udids += entry.udid;
    return udids;
}

class InboxTest : public testing::Test {
protected:
    InboxTest() { fs::create_directories(folder_); }
    ~InboxTest() override { fs::remove_all(folder_); }

    const fs::path folder_ = fs::temp_directory_path() / ("quomi #inbox?%41_" + std::to_string(::getpid()));
    const fs::path file_ = folder_ / "inbox.sqlite";
};

TEST_F(InboxTest, DropsTheOldestBeyondItsBounds) {
    Inbox inbox({.entries = 3, .bytes = 3000});
    ASSERT_TRUE(inbox.add({event("a"), event("b"), event("c"), event("d")}));
    EXPECT_EQ(udidsOf(inbox), "bcd");
    ASSERT_TRUE(inbox.add({event("e", 2700)}));
    EXPECT_LT(inbox.all().size(), 3U);
    EXPECT_EQ(inbox.newest(1).front().udid, "e");
    ASSERT_TRUE(inbox.add({event("f", 5000)}));
    EXPECT_EQ(udidsOf(inbox), "");
    EXPECT_EQ(inbox.counts(), (Inbox::Counts{0, 6, 0, 0, 6}));
    EXPECT_TRUE(inbox.newest(5).empty());
}

TEST_F(InboxTest, FilesKeepEverythingAcrossRestarts) {
    const WallTime at = WallTime(std::chrono::milliseconds(1'935'000'000'123));
    const std::string hostile("'; DROP TABLE received; --\0\xff", 29);
    const std::vector<Received> sent = {{ReceivedKind::user, at, "U", "", "{}"},
                                        {ReceivedKind::event, at, hostile, hostile, R"({"a":1})"},
                                        {ReceivedKind::pushToken, at, "U", "", R"({"push_token":"0a"})"},
                                        {ReceivedKind::batteryAlert, at, "", "", R"({"uuid":"X"})"}};
    ASSERT_TRUE(Inbox::open(file_.string())->add(sent));
    EXPECT_EQ(fs::status(file_).permissions(), kPrivate);
    fs::permissions(file_, fs::perms::all);
    const auto inbox = Inbox::open(file_.string());
    ASSERT_TRUE(inbox);
    ASSERT_TRUE(inbox->add({event("later")}));
    for (const auto& entry : fs::directory_iterator(folder_)) {
        EXPECT_EQ(entry.status().permissions(), kPrivate) << entry.path();
    }
    const std::vector<Received> all = inbox->all();
    ASSERT_EQ(all.size(), 5U);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(all[i].kind, sent[i].kind);
        EXPECT_EQ(all[i].at, at);
        EXPECT_EQ(all[i].udid, sent[i].udid);
        EXPECT_EQ(all[i].date, sent[i].date);
        EXPECT_EQ(all[i].content, sent[i].content);
    }
    EXPECT_EQ(inbox->counts(), (Inbox::Counts{1, 2, 1, 1, 0}));
    SQLite::Database reader(file_.string());
    EXPECT_EQ(reader.execAndGet("SELECT push_token FROM push_tokens").getString(), "0a");
    EXPECT_EQ(reader.execAndGet("SELECT uuid FROM battery_alerts").getString(), "X");
    EXPECT_EQ(reader.execAndGet("SELECT received_at FROM users").getString(), "2031-04-26T20:00:00.123Z");
    EXPECT_EQ(reader.execAndGet("SELECT count(*) FROM events").getInt(), 2);
}

TEST_F(InboxTest, BoundsHoldAcrossRestarts) {
    for (const char* udid : {"a", "b", "c"}) {
        ASSERT_TRUE(Inbox::open(file_.string(), Inbox::Bounds{.entries = 2})->add({event(udid)}));
    }
    const auto inbox = Inbox::open(file_.string(), Inbox::Bounds{.entries = 2});
    EXPECT_EQ(udidsOf(*inbox), "bc");
    EXPECT_EQ(inbox->counts().dropped, 1U);
}

TEST_F(InboxTest, RefusesWhatIsNoInboxAndLeavesItAlone) {
    std::ofstream(folder_ / "text.txt") << std::string(5000, 't');
    SQLite::Database((folder_ / "other.sqlite").string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
        .exec("PRAGMA journal_mode = WAL; CREATE TABLE received (a)");
    for (const auto mode : {kPrivate | fs::perms::group_read, kPrivate}) {
        for (const std::string name : {"text.txt", "other.sqlite"}) {
            fs::permissions(folder_ / name, mode);
            const std::string before = contentOf(folder_ / name);
            std::optional<Error> error;
            EXPECT_FALSE(Inbox::open((folder_ / name).string(), &error));
            EXPECT_THAT(error->localizedDescription().value_or(""), HasSubstr(name + ": expected the inbox"));
            EXPECT_EQ(contentOf(folder_ / name), before);
            EXPECT_EQ(fs::status(folder_ / name).permissions(), mode);
        }
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 2) << "no side files";
    for (const std::string& path : {std::string(), folder_.string(), (folder_ / "none" / "x.sqlite").string()}) {
        std::optional<Error> error;
        EXPECT_FALSE(Inbox::open(path, &error)) << path;
        EXPECT_TRUE(error);
    }
}

/// One that has all marks of an inbox and something else besides.
TEST_F(InboxTest, RefusesADoctoredOneAndWaitsForNothing) {
    for (const char* sql :
         {"CREATE TRIGGER t AFTER INSERT ON received BEGIN DELETE FROM totals; END", "CREATE VIEW more AS SELECT 1",
          "CREATE VIRTUAL TABLE more USING fts5(x)", "ALTER TABLE received ADD COLUMN more AS (length(content))",
          "CREATE INDEX \"a\"\"; DROP TABLE totals; --\" ON received (udid)"}) {
        SCOPED_TRACE(sql);
        fs::remove(file_);
        ASSERT_TRUE(Inbox::open(file_.string()));
        SQLite::Database(file_.string(), SQLite::OPEN_READWRITE).exec(sql);
        const std::string before = contentOf(file_);
        std::optional<Error> error;
        EXPECT_FALSE(Inbox::open(file_.string(), &error));
        EXPECT_THAT(error.value_or(Error()).localizedDescription().value_or(""), HasSubstr("expected the inbox"));
        EXPECT_EQ(contentOf(file_), before);
    }
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
        const std::string fifo = (folder_ / "fifo.sqlite").string() + suffix;
        ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
        EXPECT_FALSE(Inbox::open((folder_ / "fifo.sqlite").string())) << suffix;
        fs::remove(fifo);
    }
}

TEST_F(InboxTest, TwoInboxesOfOneFileShareIt) {
    const Inbox::Bounds bounds{.entries = 150};
    std::vector<std::thread> threads;
    for (const char* udid : {"a", "b"}) {
        threads.emplace_back([&, udid] {
            const auto inbox = Inbox::open(file_.string(), bounds);
            ASSERT_TRUE(inbox);
            for (int i = 0; i < 50; ++i) ASSERT_TRUE(inbox->add({event(udid), event(udid)}));
        });
    }
    for (std::thread& thread : threads) thread.join();
    const auto inbox = Inbox::open(file_.string(), bounds);
    EXPECT_EQ(inbox->counts(), (Inbox::Counts{0, 200, 0, 0, 50}));
    EXPECT_EQ(inbox->all().size(), 150U);
}

TEST_F(InboxTest, WhatCannotBeKeptIsRefused) {
    auto inbox = Inbox::open(file_.string());
    ASSERT_TRUE(inbox->add({event("a")}));
    SQLite::Database saboteur(file_.string(), SQLite::OPEN_READWRITE);
    saboteur.exec("CREATE UNIQUE INDEX full ON received (iif(udid = 'c', 'a', udid))");  // no "c" beside the "a"
    EXPECT_FALSE(inbox->add({event("b"), event("c")}));
    EXPECT_EQ(udidsOf(*inbox), "a") << "all of a request or nothing";
    ASSERT_TRUE(inbox->add({event("d")}));
    EXPECT_EQ(inbox->counts().events, 2U);

    Backoffice backoffice(*simulated::Campaign::parse(R"({"application": {"namespace_uid": "shop"}})", "test"), nullptr,
                          std::move(inbox));
    ASSERT_TRUE(backoffice.start());
    httplib::Client client("127.0.0.1", backoffice.port());
    const auto post = [&](const std::string& udid) {
        const std::string body = R"({"udid": ")" + udid + R"(", "date": "d"})";
        return client.Post("/u_applications/shop/log.json", body, "application/json")->status;
    };
    EXPECT_EQ(post("c"), 500);
    EXPECT_EQ(post("e"), 200);
    EXPECT_EQ(udidsOf(backoffice.inbox()), "ade");
}

}  // namespace
}  // namespace quomi::tool
