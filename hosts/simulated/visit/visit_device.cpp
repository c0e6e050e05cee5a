#include "hosts/simulated/visit/visit_readers.h"
#include "quomi/util/ascii.h"

#include <exception>
#include <fstream>

#include <date/tz.h>

namespace quomi::simulated {
namespace {

constexpr std::int64_t kLargestCount = 2147483647;

constexpr Named<AuthorizationStatus> kAuthorizations[] = {
    {"notDetermined", AuthorizationStatus::notDetermined},
    {"restricted", AuthorizationStatus::restricted},
    {"denied", AuthorizationStatus::denied},
    {"always", AuthorizationStatus::authorizedAlways},
    {"whenInUse", AuthorizationStatus::authorizedWhenInUse},
};

constexpr Named<BluetoothState> kBluetoothStates[] = {
    {"unknown", BluetoothState::unknown},         {"resetting", BluetoothState::resetting},
    {"unsupported", BluetoothState::unsupported}, {"unauthorized", BluetoothState::unauthorized},
    {"off", BluetoothState::poweredOff},          {"on", BluetoothState::poweredOn},
};

constexpr Named<BackgroundRefreshStatus> kBackgroundRefresh[] = {
    {"available", BackgroundRefreshStatus::available},
    {"restricted", BackgroundRefreshStatus::restricted},
    {"denied", BackgroundRefreshStatus::denied},
};

constexpr Named<NotificationAuthorization> kNotificationAuthorizations[] = {
    {"notDetermined", NotificationAuthorization::notDetermined},
    {"denied", NotificationAuthorization::denied},
    {"authorized", NotificationAuthorization::authorized},
    {"provisional", NotificationAuthorization::provisional},
};

constexpr Named<ApplicationState> kApplicationStates[] = {
    {"active", ApplicationState::active},
    {"inactive", ApplicationState::inactive},
    {"background", ApplicationState::background},
};

std::vector<std::string> readTexts(const JsonNode& node) {
    std::vector<std::string> texts;
    node.eachItem("an array of texts", [&](const JsonNode& item) { texts.push_back(item.text()); });
    return texts;
}

/// Schemes know no case.
std::vector<std::string> readSchemes(const JsonNode& node) {
    auto schemes = readTexts(node);
    for (auto& scheme : schemes) scheme = lowerCase(scheme);
    return schemes;
}

constexpr Field<DeviceConfig> kDeviceFields[] = {
    {"udid", [](const JsonNode& n, DeviceConfig& d) { d.udid = n.uuidText(); }},
    {"systemName", [](const JsonNode& n, DeviceConfig& d) { d.systemName = n.text(); }},
    {"systemVersion", [](const JsonNode& n, DeviceConfig& d) { d.systemVersion = n.text(); }},
    {"model", [](const JsonNode& n, DeviceConfig& d) { d.model = n.text(); }},
    {"languages", [](const JsonNode& n, DeviceConfig& d) { d.languages = readTexts(n); }},
    {"supportsBeacons", [](const JsonNode& n, DeviceConfig& d) { d.supportsBeacons = n.boolean(); }},
    {"supportsGeofences", [](const JsonNode& n, DeviceConfig& d) { d.supportsGeofences = n.boolean(); }},
    {"locationServices", [](const JsonNode& n, DeviceConfig& d) { d.locationServices = n.boolean(); }},
    {"authorization", [](const JsonNode& n, DeviceConfig& d) { d.authorization = readAuthorization(n); }},
    {"bluetooth", [](const JsonNode& n, DeviceConfig& d) { d.bluetooth = readBluetooth(n); }},
    {"notificationRights", [](const JsonNode& n, DeviceConfig& d) { readNotificationRights(n, d.notificationRights); }},
    {"backgroundRefresh", [](const JsonNode& n, DeviceConfig& d) { d.backgroundRefresh = readBackgroundRefresh(n); }},
    {"badge", [](const JsonNode& n, DeviceConfig& d) { d.badge = n.integer(0, kLargestCount); }},
    {"advertisingId", [](const JsonNode& n, DeviceConfig& d) { d.advertisingId = n.text(); }},
    {"advertisingTracking", [](const JsonNode& n, DeviceConfig& d) { d.advertisingTracking = n.boolean(); }},
    {"maxMonitoredRegions",
     [](const JsonNode& n, DeviceConfig& d) {
         d.maxMonitoredRegions = static_cast<std::size_t>(n.integer(0, kLargestCount));
     }},
    {"opensSchemes", [](const JsonNode& n, DeviceConfig& d) { d.opensSchemes = readSchemes(n); }},
    {"settingsURL", [](const JsonNode& n, DeviceConfig& d) { d.settingsURL = n.boolean(); }},
    {"state", [](const JsonNode& n, DeviceConfig& d) { d.state = n.oneOf<ApplicationState>(kApplicationStates); }},
};

constexpr Field<NotificationSettings> kNotificationFields[] = {
    {"status",
     [](const JsonNode& n, NotificationSettings& s) {
         s.status = n.oneOf<NotificationAuthorization>(kNotificationAuthorizations);
     }},
    {"alert", [](const JsonNode& n, NotificationSettings& s) { s.alert = n.boolean(); }},
    {"sound", [](const JsonNode& n, NotificationSettings& s) { s.sound = n.boolean(); }},
    {"badge", [](const JsonNode& n, NotificationSettings& s) { s.badge = n.boolean(); }},
};

constexpr Field<WorldBeacon> kWorldBeaconFields[] = {
    {"uuid", [](const JsonNode& n, WorldBeacon& b) { b.uuid = n.uuid(); }, true},
    {"major", [](const JsonNode& n, WorldBeacon& b) { b.major = readBeaconNumber(n); }, true},
    {"minor", [](const JsonNode& n, WorldBeacon& b) { b.minor = readBeaconNumber(n); }, true},
    {"lat", [](const JsonNode& n, WorldBeacon& b) { b.position.latitude = readLatitude(n); }, true},
    {"lng", [](const JsonNode& n, WorldBeacon& b) { b.position.longitude = readLongitude(n); }, true},
    {"txPower", [](const JsonNode& n, WorldBeacon& b) { b.txPower = n.integer(-kLargestCount, kLargestCount); }},
};

using WorldBeacons = std::vector<WorldBeacon>;

constexpr Field<WorldBeacons> kWorldFields[] = {
    {"beacons",
     [](const JsonNode& n, WorldBeacons& beacons) {
         n.eachItem("an array of beacons", [&](const JsonNode& item) {
             readObject<WorldBeacon>(item, kWorldBeaconFields, beacons.emplace_back());
         });
     }},
};

bool isKnownZone(const std::string& name) {
    try {
        return date::locate_zone(name) != nullptr;
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

void readDevice(const JsonNode& node, DeviceConfig& device) {
    readObject<DeviceConfig>(node, kDeviceFields, device);
}

void readWorld(const JsonNode& node, std::vector<WorldBeacon>& beacons) {
    readObject<WorldBeacons>(node, kWorldFields, beacons);
}

AuthorizationStatus readAuthorization(const JsonNode& node) {
    return node.oneOf<AuthorizationStatus>(kAuthorizations);
}

BluetoothState readBluetooth(const JsonNode& node) {
    return node.oneOf<BluetoothState>(kBluetoothStates);
}

BackgroundRefreshStatus readBackgroundRefresh(const JsonNode& node) {
    return node.oneOf<BackgroundRefreshStatus>(kBackgroundRefresh);
}

void readNotificationRights(const JsonNode& node, NotificationSettings& settings) {
    settings = DeviceConfig().notificationRights;
    readObject<NotificationSettings>(node, kNotificationFields, settings);
}

std::string readTimeZone(const JsonNode& node) {
    if (node.isText() && isKnownZone(node.text())) return node.text();
    node.fail("an IANA time zone such as \"Europe/Berlin\"");
    return "UTC";
}

double readLatitude(const JsonNode& node) {
    return node.number(-90, 90);
}

double readLongitude(const JsonNode& node) {
    return node.number(-180, 180);
}

std::uint16_t readBeaconNumber(const JsonNode& node) {
    return static_cast<std::uint16_t>(node.integer(0, 65535));
}

std::filesystem::path readFileName(const JsonNode& node, const std::filesystem::path& folder) {
    if (!node.isText()) {
        node.fail("a file's name");
        return {};
    }
    const std::string name = node.text();
    std::error_code error;
    auto path = folder / name;
    const bool isUsable = !name.empty() && name.find('\0') == std::string::npos;
    if (isUsable && std::filesystem::is_regular_file(path, error) && std::ifstream(path).is_open()) return path;
    node.fail("a file that can be read");
    return {};
}

}  // namespace quomi::simulated
