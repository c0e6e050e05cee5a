#include "quomi/data/data_updater.h"

#include "quomi/data/parser.h"
#include "quomi/util/uuid.h"
#include "tests/data/store_support.h"

namespace quomi::test {
namespace {

constexpr const char* kBeacons = R"({"u_beacons": [{"id": "b", "name": "shelf"}], "query_params": {},
    "valid_until": "2030-01-01T00:00:00Z", "remove_ids": []})";
constexpr const char* kGeofences = R"({"u_geofences": [{"id": "g"}], "query_params": {"lat": 1, "lng": 2, "radius": 3},
    "valid_until": "2030-01-01T00:00:00Z", "remove_ids": []})";

/// A server that answers when the test says so, and takes one download of geofences at a time.
class Server final : public RulesSource {
public:
    struct Asked {
        std::string appNamespace;
        std::optional<WallTime> since;
        RulesDownload download;
    };

    void getBeaconsRulesWithNamespace(const BeaconsQuestion& question, RulesDownload download) override {
        asked.push_back({question.appNamespace, question.lastUpdateDate, std::move(download)});
    }
    bool getGeofencesRulesWithNamespace(const GeofencesQuestion& question, RulesDownload download,
                                        std::optional<Error>*) override {
        if (std::exchange(isBusy, true)) return false;
        area = {question.latitude, question.longitude, question.radius};
        asked.push_back({question.appNamespace, question.lastUpdateDate, std::move(download)});
        return true;
    }
    /// Why the answer is of no use, if it is not.
    std::optional<Error> answer(const char* json) {
        isBusy = false;
        std::optional<Error> error;
        asked.back().download.take(boost::json::parse(json), &error);
        if (asked.back().download.success) asked.back().download.success();
        return error;
    }

    std::vector<Asked> asked;
    std::vector<double> area;
    bool isBusy = false;
};

class Updater : public testing::Test {
protected:
    Updater() {
        settings.namespace_ = "shop";
        host.phone.jumpClock(Seconds(1'000'000));
    }

    void updateBeacons() {
        updater.performBeaconsDataUpdateIfNeeded(
            {uuid}, [this](bool isDownloaded) { outcomes.push_back(isDownloaded ? "downloaded" : "not due"); },
            [this](const Error& error) { outcomes.push_back("failed " + std::to_string(error.code)); });
    }

    StoreHost host;
    QuomiSettings settings{Deployment(), host.platform.location};
    std::unique_ptr<QuomiData> data = host.open();
    QuomiDataApiResponseParser parser{*data, host.errors, host.platform, settings};
    Server server;
    QuomiDataUpdater updater{*data, server, parser, host.platform, settings, host.debugLog};
    const Uuid uuid = Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A1").value();
    std::vector<std::string> outcomes;
};

TEST_F(Updater, DownloadsWhatChangedOnceTheIntervalHasPassed) {
    updateBeacons();
    ASSERT_EQ(server.asked.size(), 1U) << "the first time is always due";
    EXPECT_EQ(server.asked[0].appNamespace, "shop");
    EXPECT_EQ(server.asked[0].since, WallTime());
    EXPECT_FALSE(server.answer(kBeacons));
    EXPECT_THAT(outcomes, ElementsAre("downloaded"));
    EXPECT_EQ(data->getBeaconById("b")->name, "shelf");
    const auto stored = host.platform.clock.now();
    EXPECT_EQ(updater.lastBeaconUpdate(), stored);
    EXPECT_TRUE(updater.geofencesDataNeedUpdating()) << "one date for beacons, one for geofences";

    host.phone.jumpClock(Seconds(7200));
    updateBeacons();
    host.phone.jumpClock(Seconds(0.000001));
    updateBeacons();
    EXPECT_THAT(outcomes, ElementsAre("downloaded", "not due"));
    ASSERT_EQ(server.asked.size(), 2U);
    EXPECT_EQ(server.asked[1].since, stored);
    server.asked[1].download.failed(Error{kHTTPErrorDomain, 503, {}});
    server.asked[1].download.failure(Error{kHTTPErrorDomain, 503, {}});
    EXPECT_EQ(outcomes.back(), "failed 503");
    EXPECT_EQ(updater.lastBeaconUpdate(), stored);
}

TEST_F(Updater, AnAnswerThatCannotBeStoredStaysDueAndCountsAsSuccess) {
    for (const char* answer : {"{}", R"({"u_beacons": [{"id": "b", "rules_actions": [{}]}], "query_params": {},
                                         "valid_until": "2030-01-01T00:00:00Z", "remove_ids": []})"}) {
        updateBeacons();
        EXPECT_TRUE(server.answer(answer)) << "the source is told";
        EXPECT_EQ(outcomes.back(), "downloaded");
        EXPECT_TRUE(updater.beaconsDataNeedUpdating());
        EXPECT_TRUE(data->getAllBeacons().empty()) << answer;
        EXPECT_THAT(host.debugLog.file().getFileLogContent().value(),
                    testing::HasSubstr(" - A download could not be stored: Error Domain=QuomiErrorDomain "));
        host.debugLog.file().clearLogFile();
    }
}

TEST_F(Updater, OneDownloadOfGeofencesAtATime) {
    const auto note = [this](bool) { outcomes.emplace_back("downloaded"); };
    const auto noteFailure = [this](const Error&) { outcomes.emplace_back("failed"); };
    EXPECT_TRUE(updater.performFullGeofencesDataUpdate({53.5, -2.5, 100}, note, noteFailure));
    EXPECT_FALSE(updater.performFullGeofencesDataUpdate({53.5, -2.5, 100}, note, noteFailure));
    updater.performGeofencesDataUpdateIfNeeded({}, note, noteFailure);
    ASSERT_EQ(server.asked.size(), 1U);
    EXPECT_EQ(server.asked[0].since, std::nullopt) << "everything";
    EXPECT_THAT(server.area, ElementsAre(53.5, -2.5, 100));
    server.answer(kGeofences);
    EXPECT_THAT(outcomes, ElementsAre("downloaded")) << "a refused request calls nobody";
    EXPECT_NE(data->getGeofenceById("g"), nullptr);
    updater.performGeofencesDataUpdateIfNeeded({}, note, noteFailure);
    EXPECT_EQ(server.asked.size(), 1U) << "not due";
    EXPECT_THAT(outcomes, ElementsAre("downloaded", "downloaded"));
}

TEST_F(Updater, AnswersAfterItsEndReachNobody) {
    {
        QuomiDataUpdater brief(*data, server, parser, host.platform, settings, host.debugLog);
        brief.performFullBeaconsDataUpdate({uuid}, [this](bool) { outcomes.emplace_back("downloaded"); });
    }
    server.answer(kBeacons);
    EXPECT_TRUE(outcomes.empty());
    EXPECT_TRUE(data->getAllBeacons().empty());
}

}  // namespace
}  // namespace quomi::test
