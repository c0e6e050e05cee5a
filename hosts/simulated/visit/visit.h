#pragma once

#include "hosts/simulated/visit/expectation.h"
#include "hosts/simulated/visit/visit_steps.h"
#include "quomi/platform/application.h"
#include "quomi/platform/bluetooth.h"
#include "quomi/platform/location.h"
#include "quomi/platform/notification_center.h"
#include "quomi/util/time.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <boost/json/value.hpp>

namespace quomi::simulated {

/// Why a visit cannot be played.
struct VisitError {
    std::string file;     ///< as the user wrote it
    std::string path;     ///< JSON path of the offending value, "$" for the file as a whole
    std::string message;  ///< "expected …, found …", or what is not supported

    /// "FILE: PATH: MESSAGE", always one line.
    [[nodiscard]] std::string text() const;
};

/// The phone as it is at time 0.
struct DeviceConfig {
    std::string udid = "00000000-0000-0000-0000-000000000001";  ///< a UUID's text, letters as the visit has them
    std::string systemName = "iOS";
    std::string systemVersion = "17.1";
    std::string model = "iPhone";
    std::vector<std::string> languages = {"en"};
    bool supportsBeacons = true;
    bool supportsGeofences = true;
    bool locationServices = true;
    AuthorizationStatus authorization = AuthorizationStatus::authorizedAlways;
    BluetoothState bluetooth = BluetoothState::poweredOn;
    NotificationSettings notificationRights{NotificationAuthorization::authorized, true, true, true};
    BackgroundRefreshStatus backgroundRefresh = BackgroundRefreshStatus::available;
    std::int64_t badge = 0;
    std::optional<std::string> advertisingId;
    bool advertisingTracking = false;
    std::size_t maxMonitoredRegions = 20;
    std::vector<std::string> opensSchemes = {"http", "https"};
    bool settingsURL = true;
    ApplicationState state = ApplicationState::active;
};

/// How a `should…` operation of the host's delegate answers.
struct DelegateAnswer {
    bool answer = false;
    std::optional<Duration> after;  ///< set: the variant with a completion block, which is called so much later
};

/// How the host performs a server request itself.
enum class DelegateServerRequest { performs, succeeds, fails };

/// The deciding and performing operations that the host's delegate implements; an empty or false one it does not.
struct DelegateConfig {
    std::optional<DelegateAnswer> shouldExecuteNotificationRequest;
    bool executeNotificationRequest = false;
    std::optional<bool> shouldExecuteOpenWebPageRequest;
    bool executeOpenWebPageRequest = false;
    std::optional<bool> shouldExecuteOpenDeepLinkRequest;
    bool executeOpenDeepLinkRequest = false;
    std::optional<bool> shouldExecuteServerNotificationRequest;
    std::optional<DelegateServerRequest> executeServerNotificationRequest;
};

/// The host app.
struct AppConfig {
    std::optional<std::string> appNamespace;
    std::string baseURL = "https://backoffice.test";
    /// Properties of the facade to set, in file order.
    std::vector<std::pair<std::string, bool>> properties;
    /// Fields of the settings object to set, in file order, values as `settingValue` gives them.
    std::vector<std::pair<std::string, boost::json::value>> settings;
    std::map<std::string, std::string> localization;  ///< English text to translation
    std::map<std::string, std::string> resources;     ///< bundle path to text
    DelegateConfig delegate;
};

/// One scripted answer.
struct Answer {
    enum class Failure { connection, timeout, tls };

    int status = 200;
    /// The body: a value to be sent as JSON, a raw text, or none at all.
    std::variant<std::monostate, boost::json::value, std::string> body;
    std::vector<std::pair<std::string, std::string>> headers;  ///< in file order, names as the visit has them
    Duration delay = std::chrono::milliseconds(50);
    std::optional<Failure> fail;  ///< set: no HTTP response arrives
};

/// Answers in process. Each list has at least one entry, the last of which repeats; the key is the method, a blank and
/// a path or a whole URL, without a query.
struct ScriptedBackoffice {
    std::map<std::string, std::vector<Answer>, std::less<>> answers;
};

/// The project's own back office, on a loopback port.
struct CampaignBackoffice {
    std::filesystem::path campaign;
};

/// The first alternative answers every request with status 404.
using BackofficeConfig = std::variant<std::monostate, ScriptedBackoffice, CampaignBackoffice>;

/// A beacon that stands somewhere.
struct WorldBeacon {
    Uuid uuid;
    std::uint16_t major = 0;
    std::uint16_t minor = 0;
    Coordinate position;
    std::int64_t txPower = -59;  ///< dBm at one metre
};

/// The longest visit, and the latest time of its steps, in seconds: ten years.
inline constexpr double kLongestVisit = 315'576'000;
/// The most that may happen in a visit: steps with their repetitions, packets, points of tracks, and seconds of a visit
/// in which the phone model runs.
inline constexpr std::int64_t kMostHappenings = 10'000'000;

/// How long a step goes on after it began; zero for most. Given by whoever has read the step's file.
using StepSpan = std::function<Duration(const Step&)>;

/// A visit as its file describes it: checked, but with none of the files that it names read.
struct Visit {
    std::string file;  ///< what errors call it
    std::int64_t version = 1;
    std::string name;
    WallTime start;  ///< the wall clock at time 0
    std::string timeZone = "UTC";
    DeviceConfig device;
    AppConfig app;
    BackofficeConfig backoffice;
    std::vector<WorldBeacon> world;
    std::vector<Step> steps;      ///< in file order, not of time
    std::optional<Duration> end;  ///< as the visit says it
    std::vector<Expectation> expectations;

    /// The visit anew for each of its cases: with that case's parts, and with its expectations behind the visit's.
    std::vector<Visit> cases;
    std::string caseName;  ///< empty for what is no case
    /// JSON paths of what a case replaces, and of what stands there instead in the file.
    std::vector<std::pair<std::string, std::string>> replaced;

    /// Reads a visit file. Files that it names must be there; names in the visit are absolute paths or relative to the
    /// visit's own folder. Empty on failure, with what was wrong first.
    [[nodiscard]] static std::optional<Visit> load(const std::filesystem::path& path, VisitError* error);
    /// The same of a text at hand; `fileName` stands for it in errors and gives the visit its name.
    [[nodiscard]] static std::optional<Visit> parse(std::string_view text, const std::string& fileName,
                                                    const std::filesystem::path& folder, VisitError* error);

    /// How often the step happens before the visit's `end`, if it names one.
    [[nodiscard]] std::int64_t timesOf(const Step& step) const;
    /// When the replay stops: `end`, else 60 s after the last occurrence of a step and what `span` adds to it.
    [[nodiscard]] Duration endTime(const StepSpan& span = {}) const;

    /// An error at a place inside a step ("packets.csv"), for what only its player finds out.
    [[nodiscard]] VisitError stepError(const Step& step, std::string_view place, std::string message) const;
    /// An error at any place ("$.backoffice.campaign"); of a case, at the part that it replaces.
    [[nodiscard]] VisitError errorAt(std::string path, std::string message) const;
};

}  // namespace quomi::simulated
