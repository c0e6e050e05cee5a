#include "hosts/simulated/visit/visit_readers.h"

namespace quomi::simulated {
namespace {

using Folder = std::filesystem::path;

constexpr double kShortestEvery = 1e-6;  // seconds; times are kept in microseconds
constexpr double kSlowest = 1e-6;
constexpr double kFastest = 1e6;

constexpr Named<PlatformProximity> kProximities[] = {
    {"immediate", PlatformProximity::immediate},
    {"near", PlatformProximity::near},
    {"far", PlatformProximity::far},
    {"unknown", PlatformProximity::unknown},
};

constexpr Named<RegionState> kRegionStates[] = {
    {"inside", RegionState::inside},
    {"outside", RegionState::outside},
    {"unknown", RegionState::unknown},
};

constexpr Named<AppChange> kAppChanges[] = {
    {"background", AppChange::background}, {"foreground", AppChange::foreground}, {"active", AppChange::active},
    {"inactive", AppChange::inactive},     {"terminate", AppChange::terminate},   {"suspend", AppChange::suspend},
    {"resume", AppChange::resume},
};

constexpr Named<bool> kNetwork[] = {{"unreachable", false}, {"reachable", true}};

constexpr Field<RangedBeacon> kRangedBeaconFields[] = {
    {"uuid", [](const JsonNode& n, RangedBeacon& b) { b.proximityUUID = n.uuid(); }, true},
    {"major", [](const JsonNode& n, RangedBeacon& b) { b.major = readBeaconNumber(n); }, true},
    {"minor", [](const JsonNode& n, RangedBeacon& b) { b.minor = readBeaconNumber(n); }, true},
    {"proximity", [](const JsonNode& n, RangedBeacon& b) { b.proximity = n.oneOf<PlatformProximity>(kProximities); },
     true},
    {"accuracy", [](const JsonNode& n, RangedBeacon& b) { b.accuracy = n.number(); }, true},
    {"rssi", [](const JsonNode& n, RangedBeacon& b) { b.rssi = n.integer(); }, true},
};

StepAction readRange(const JsonNode& node, const Folder&) {
    RangeStep step;
    node.eachItem("an array of beacons", [&](const JsonNode& item) {
        readObject<RangedBeacon>(item, kRangedBeaconFields, step.beacons.emplace_back());
    });
    return step;
}

constexpr Field<BeaconRegionStateStep> kRegionStateFields[] = {
    {"uuid", [](const JsonNode& n, BeaconRegionStateStep& s) { s.uuid = n.uuid(); }, true},
    {"state", [](const JsonNode& n, BeaconRegionStateStep& s) { s.state = n.oneOf<RegionState>(kRegionStates); }, true},
};

constexpr Field<LocationStep> kLocationFields[] = {
    {"lat", [](const JsonNode& n, LocationStep& s) { s.coordinate.latitude = readLatitude(n); }, true},
    {"lng", [](const JsonNode& n, LocationStep& s) { s.coordinate.longitude = readLongitude(n); }, true},
    {"accuracy", [](const JsonNode& n, LocationStep& s) { s.accuracy = n.number(); }, true},
};

template <class S>
constexpr Field<S> kRegionFailureFields[] = {
    {"region", [](const JsonNode& n, S& s) { s.region = n.text(); }, true},
    {"code", [](const JsonNode& n, S& s) { s.code = n.integer(); }, true},
};

constexpr Field<LocationFailsStep> kLocationFailsFields[] = {
    {"code", [](const JsonNode& n, LocationFailsStep& s) { s.code = n.integer(); }, true},
};

template <class S>
StepAction readStruct(const JsonNode& node, std::span<const Field<S>> fields) {
    S step;
    readObject<S>(node, fields, step);
    return step;
}

StepAction readNotificationRightsStep(const JsonNode& node, const Folder&) {
    NotificationRightsStep step;
    readNotificationRights(node, step.settings);
    return step;
}

/// A step that plays a file: the file's key and `speed`.
template <class S, std::filesystem::path S::*file>
StepAction readPlayed(const JsonNode& node, const Folder& folder, std::string_view fileKey) {
    const Field<S> fields[] = {
        {fileKey, [](const JsonNode&, S&) {}},
        {"speed", [](const JsonNode& n, S& s) { s.speed = n.number(kSlowest, kFastest); }},
    };
    S step;
    readObject<S>(node, fields, step);
    if (!node.failed()) step.*file = readFileName(node[fileKey], folder);
    return step;
}

struct StepKey {
    std::string_view key;
    StepAction (*read)(const JsonNode& node, const Folder& folder);
};

constexpr StepKey kStepKeys[] = {
    {"range", readRange},
    {"enterBeaconRegion",
     [](const JsonNode& n, const Folder&) -> StepAction {
         return BeaconRegionStep{n.uuid(), true};
     }},
    {"exitBeaconRegion",
     [](const JsonNode& n, const Folder&) -> StepAction {
         return BeaconRegionStep{n.uuid(), false};
     }},
    {"beaconRegionState",
     [](const JsonNode& n, const Folder&) { return readStruct<BeaconRegionStateStep>(n, kRegionStateFields); }},
    {"location", [](const JsonNode& n, const Folder&) { return readStruct<LocationStep>(n, kLocationFields); }},
    {"enterRegion",
     [](const JsonNode& n, const Folder&) -> StepAction {
         return RegionStep{n.text(), true};
     }},
    {"exitRegion",
     [](const JsonNode& n, const Folder&) -> StepAction {
         return RegionStep{n.text(), false};
     }},
    {"monitoringFails",
     [](const JsonNode& n, const Folder&) {
         return readStruct<MonitoringFailsStep>(n, kRegionFailureFields<MonitoringFailsStep>);
     }},
    {"rangingFails",
     [](const JsonNode& n, const Folder&) {
         return readStruct<RangingFailsStep>(n, kRegionFailureFields<RangingFailsStep>);
     }},
    {"locationFails",
     [](const JsonNode& n, const Folder&) { return readStruct<LocationFailsStep>(n, kLocationFailsFields); }},
    {"authorization",
     [](const JsonNode& n, const Folder&) -> StepAction { return AuthorizationStep{readAuthorization(n)}; }},
    {"bluetooth", [](const JsonNode& n, const Folder&) -> StepAction { return BluetoothStep{readBluetooth(n)}; }},
    {"backgroundRefresh",
     [](const JsonNode& n, const Folder&) -> StepAction { return BackgroundRefreshStep{readBackgroundRefresh(n)}; }},
    {"notificationRights", readNotificationRightsStep},
    {"locationServices",
     [](const JsonNode& n, const Folder&) -> StepAction { return LocationServicesStep{n.boolean()}; }},
    {"app", [](const JsonNode& n, const Folder&) -> StepAction { return AppStep{n.oneOf<AppChange>(kAppChanges)}; }},
    {"network", [](const JsonNode& n, const Folder&) -> StepAction { return NetworkStep{n.oneOf<bool>(kNetwork)}; }},
    {"expireBackgroundTasks",
     [](const JsonNode& n, const Folder&) -> StepAction {
         n.onlyTrue();
         return ExpireBackgroundTasksStep{};
     }},
    {"presentScreen", [](const JsonNode& n, const Folder&) -> StepAction { return PresentScreenStep{n.boolean()}; }},
    {"closeWebPage",
     [](const JsonNode& n, const Folder&) -> StepAction {
         n.onlyTrue();
         return CloseWebPageStep{};
     }},
    {"dismissWebPage",
     [](const JsonNode& n, const Folder&) -> StepAction {
         n.onlyTrue();
         return DismissWebPageStep{};
     }},
    {"clock", [](const JsonNode& n, const Folder&) -> StepAction { return ClockStep{n.seconds(-kLongestTime)}; }},
    {"timeZone", [](const JsonNode& n, const Folder&) -> StepAction { return TimeZoneStep{readTimeZone(n)}; }},
    {"packets",
     [](const JsonNode& n, const Folder& f) { return readPlayed<PacketsStep, &PacketsStep::csv>(n, f, "csv"); }},
    {"walk", [](const JsonNode& n, const Folder& f) { return readPlayed<WalkStep, &WalkStep::gpx>(n, f, "gpx"); }},
};

constexpr std::string_view kCallKey = "call";
constexpr std::string_view kOtherKeys[] = {"at", "every", "until", "with"};

const StepKey* stepKey(std::string_view key) {
    const auto* found = std::ranges::find(kStepKeys, key, &StepKey::key);
    return found == std::ranges::end(kStepKeys) ? nullptr : found;
}

std::string allStepKeys() {
    std::string list;
    for (const auto& known : kStepKeys) appendQuoted(list, known.key);
    appendQuoted(list, kCallKey);
    return list;
}

/// The one key that says what the step does; empty, with a fault, where there is none, another or an unknown one.
std::string readActionKey(const JsonNode& node) {
    std::string action;
    node.eachMember("a step, which is an object", [&](std::string_view key, const JsonNode& member) {
        if (std::ranges::find(kOtherKeys, key) != std::ranges::end(kOtherKeys)) return;
        if (key != kCallKey && stepKey(key) == nullptr) {
            return member.fail("\"at\", \"every\", \"until\", \"with\" or one of the keys " + allStepKeys());
        }
        if (!action.empty()) {
            return node.refuse("expected one key that says what happens, found \"" + action + "\" and \"" +
                               std::string(key) + "\"");
        }
        action = key;
    });
    if (action.empty() && !node.failed()) node.refuse("expected one of the keys " + allStepKeys() + ", found none");
    return action;
}

void readTimes(const JsonNode& node, Step& step) {
    step.at = node["at"].seconds(0, kLongestVisit);
    step.until = step.at;
    const bool isRepeated = node.has("every");
    if (!isRepeated && !node.has("until")) return;
    step.every = node["every"].seconds(kShortestEvery);
    step.until = node["until"].seconds(0, kLongestVisit);
    if (step.until < step.at) node["until"].fail("seconds not before \"at\"");
}

void readStep(const JsonNode& node, const Folder& folder, Step& step) {
    const std::string key = readActionKey(node);
    if (node.failed()) return;
    readTimes(node, step);
    if (key == kCallKey) return readCall(node[key], node["with"], step.action.emplace<CallStep>());
    if (node.has("with")) node["with"].refuse("expected \"with\" only beside \"call\"");
    if (node.failed()) return;
    step.action = stepKey(key)->read(node[key], folder);
}

}  // namespace

void readTimeline(const JsonNode& node, const std::filesystem::path& folder, std::vector<Step>& steps) {
    node.eachItem("an array of steps", [&](const JsonNode& item) {
        Step& step = steps.emplace_back();
        step.index = steps.size() - 1;
        readStep(item, folder, step);
    });
}

}  // namespace quomi::simulated
