#include "tests/support/sdk_fixture.h"

#include "quomi/data/data.h"

namespace quomi::test {

boost::json::object applicationAnswer() {
    return boost::json::parse(R"({"success": true, "namespace_uid": "shop",
        "normal_proximity_uuid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000B1",
        "secure_proximity_uuid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000B2",
        "service_proximity_uuid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000B3",
        "anti_hacking_protocol": "none", "max_distance_medium_far": 12.0})")
        .as_object();
}

ScriptedAnswer rulesAnswer(std::string_view key, const boost::json::array& places, const boost::json::array& removed,
                           const boost::json::object& area, const char* validUntil) {
    return ScriptedAnswer::json(
        {{key, places}, {"query_params", area}, {"valid_until", validUntil}, {"remove_ids", removed}});
}

SdkFixture::SdkFixture(simulated::PhoneConfig config, Deployment deployment)
    : phone(inOwnContainer(std::move(config)), observer()),
      settings(std::move(deployment), phone.platform().location),
      delegate(std::make_shared<QuomiSDKDelegate>()),
      sdk(std::make_unique<QuomiSDK>(phone.platform(), settings)) {
    auto& transport = phone.transport();
    transport.setBaseURLs([this] { return std::vector{settings.baseAPIUrl}; });
    transport.answer(kApplicationRequest, ScriptedAnswer::json(applicationAnswer()));
    transport.answer(kLimitsRequest, ScriptedAnswer::json({{"success", true}}));
    transport.answer(kUserRequest, ScriptedAnswer::json({{"success", true}}));
    transport.answer(kBeaconsRequest, rulesAnswer("u_beacons", {}));
    makeDelegate();
    sdk->setDelegate(delegate);
    sdk->setAppNamespace("shop");
}

SdkFixture::~SdkFixture() = default;

simulated::PhoneConfig SdkFixture::inOwnContainer(simulated::PhoneConfig config) const {
    if (config.container.empty()) config.container = directory.path();
    return config;
}

simulated::PhoneObserver SdkFixture::observer() {
    const auto note = [this](std::string line) { journal.push_back(std::move(line)); };
    simulated::PhoneObserver observer;
    observer.console = [note](std::string_view text) { note(fmt::format("console {}", text)); };
    observer.monitor = [note](const Region& region) { note("monitor " + regionIdentifier(region)); };
    observer.unmonitor = [note](const Region& region) { note("unmonitor " + regionIdentifier(region)); };
    observer.range = [note](const BeaconRegion& region) { note("range " + region.identifier); };
    observer.unrange = [note](const BeaconRegion& region) { note("unrange " + region.identifier); };
    observer.updates = [note](std::string_view kind, bool on) {
        note(fmt::format("updates {} {}", kind, on ? "on" : "off"));
    };
    observer.request = [note](const HttpRequest& request) {
        note(fmt::format("request {} {}", request.method, request.url.substr(0, request.url.find('?'))));
    };
    observer.response = [note](const std::string&, const simulated::ResponseOutcome& outcome) {
        std::visit([&note](const auto& how) { note(fmt::format("response {}", how)); }, outcome);
    };
    observer.backgroundTask = [this, note](std::string_view what, BackgroundTaskIdentifier) {
        note(fmt::format("task {}", what));
        if (inBackgroundTask) inBackgroundTask(what);
    };
    return observer;
}

void SdkFixture::tellTest(std::string line) {
    journal.push_back(line);
    if (inCallback) inCallback(line);
}

void SdkFixture::makeDelegate() {
    const auto noting = [this](const char* what) {
        return [this, what](QuomiSDK&, const std::string& name, const boost::json::object&) {
            tellTest(fmt::format("{} {}", what, name));
        };
    };
    delegate->didEnterBeaconRegion = noting("entered");
    delegate->didExitBeaconRegion = noting("exited");
    delegate->didFindNewBeacon = noting("found");
    delegate->didLoseBeaconSignal = noting("lost");
    delegate->didUpdateBeacon = noting("updated");
    delegate->didReceivePingFromBeacon = noting("ping");
    delegate->didLogEvent = [this](QuomiSDK&, const boost::json::object& event, WallTime) {
        tellTest("event " + boost::json::serialize(event));
    };
    delegate->didReceiveErrorNotification = [this](QuomiSDK& from, const Error& error) {
        lastError = error;
        tellTest(fmt::format("error {}{}", error.code, from.isRunning() ? ", running" : ""));
    };
}

bool SdkFixture::start() {
    sdk->start();
    settle();
    return sdk->isRunning();
}

void SdkFixture::hear(std::uint16_t minor, std::int64_t rssi) {
    phone.range({{*Uuid::parse(kShopUUID), 1, minor, PlatformProximity::near, 2.0, rssi}});
    phone.runTurns();
}

std::string SdkFixture::beacon(std::uint16_t minor) {
    return fmt::format("{}/1-{}", kShopUUID, minor);
}

std::vector<std::string> SdkFixture::lines(std::string_view beginning) const {
    std::vector<std::string> found;
    std::copy_if(journal.begin(), journal.end(), std::back_inserter(found),
                 [beginning](const std::string& line) { return line.starts_with(beginning); });
    return found;
}

std::vector<std::string> SdkFixture::debugLines() const {
    std::istringstream content(sdk->getDebugFileContent());
    std::vector<std::string> texts;
    for (std::string line; std::getline(content, line);) texts.push_back(line.substr(line.find(" - ") + 3));
    return texts;
}

std::filesystem::path SdkFixture::storeFile() {
    return QuomiData::dataStorageDirectory(phone.platform()) / kQuomiSQLiteStoreFile;
}

}  // namespace quomi::test
