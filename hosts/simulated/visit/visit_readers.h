#pragma once

#include "hosts/simulated/json/json_reader.h"
#include "hosts/simulated/visit/visit.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

// The parts of a visit's reader. Each reads one value of the document; faults go to the node's.
namespace quomi::simulated {

/// Reads a whole document into a visit that has its file's name. Cases are told by what they replace.
void readVisit(const JsonNode& root, const std::filesystem::path& folder, Visit& visit);
/// Adds to the visit, whose start and zone are read.
void readExpectations(const JsonNode& node, Visit& visit);
/// Reads `cases` of the document.
void readCases(const JsonNode& node, const boost::json::value& document, const std::filesystem::path& folder,
               Visit& visit);
void readDevice(const JsonNode& node, DeviceConfig& device);
void readApp(const JsonNode& node, AppConfig& app);
void readBackoffice(const JsonNode& node, const std::filesystem::path& folder, BackofficeConfig& backoffice);
void readWorld(const JsonNode& node, std::vector<WorldBeacon>& beacons);
void readTimeline(const JsonNode& node, const std::filesystem::path& folder, std::vector<Step>& steps);
/// The argument of a call, given as the step's `with`.
void readCall(const JsonNode& name, const JsonNode& with, CallStep& call);

// Values that stand in more than one part.
AuthorizationStatus readAuthorization(const JsonNode& node);
BluetoothState readBluetooth(const JsonNode& node);
BackgroundRefreshStatus readBackgroundRefresh(const JsonNode& node);
/// Keys that are left out have the value that they have on a phone that allows everything.
void readNotificationRights(const JsonNode& node, NotificationSettings& settings);
/// A text that names a zone of the time-zone database.
std::string readTimeZone(const JsonNode& node);
double readLatitude(const JsonNode& node);
double readLongitude(const JsonNode& node);
/// Major or minor of a beacon.
std::uint16_t readBeaconNumber(const JsonNode& node);
/// The path of a file that is there, absolute or relative to the folder.
std::filesystem::path readFileName(const JsonNode& node, const std::filesystem::path& folder);

/// The value for a field of the settings object: a boolean, a double, an integer (int64) or a text, by the field's
/// type; null stands for nil where the field is an object. A name that is no field is a fault at `name`.
boost::json::value settingValue(const JsonNode& name, std::string_view field, const JsonNode& value);

}  // namespace quomi::simulated
