#pragma once

#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/model/settings.h"
#include "quomi/sdk/sdk.h"
#include "tests/support/prelude.h"
#include "tests/support/temporary_directory.h"

namespace quomi::test {

using simulated::ScriptedAnswer;

inline constexpr const char* kApplicationRequest = "GET /u_applications/query.json";
inline constexpr const char* kLimitsRequest = "GET /u_applications/limits.json";
inline constexpr const char* kUserRequest = "POST /u_app_users/find_or_create_by_udid.json";
inline constexpr const char* kBeaconsRequest = "GET /u_beacons/query.json";

/// Proximity UUID of normal beacons in `applicationAnswer`.
inline constexpr const char* kShopUUID = "6B6E1B5A-0C0D-4A6E-9E62-0000000000B1";

/// The back office's answer for the namespace "shop": security "none", split distance 12 m. Tests change what they
/// need.
[[nodiscard]] boost::json::object applicationAnswer();
/// An answer with places and their rules; the key is "u_beacons" or "u_geofences".
[[nodiscard]] ScriptedAnswer rulesAnswer(std::string_view key, const boost::json::array& places,
                                         const boost::json::array& removed = {}, const boost::json::object& area = {},
                                         const char* validUntil = "2030-01-01T00:00:00Z");

/// A host app on a simulated phone: phone, settings, one SDK with the namespace "shop" set and not started, and a
/// delegate that implements every operation. Answers for application record, limits and user are scripted; others are
/// 404. Any number live side by side.
///
///     SdkFixture app({.supportsGeofences = false});
///     ASSERT_TRUE(app.start());
///     app.hear(7, -65);
///     EXPECT_THAT(app.journal, Contains("found " + app.beacon(7)));
///
/// A relaunch of the app is a second fixture on the first one's container.
class SdkFixture {
public:
    /// A container of its own unless the configuration names one.
    explicit SdkFixture(simulated::PhoneConfig config = {}, Deployment deployment = {});
    ~SdkFixture();
    SdkFixture(const SdkFixture&) = delete;
    SdkFixture& operator=(const SdkFixture&) = delete;

    /// What happened, oldest first, one line each.
    /// From the delegate: "error CODE" with ", running" behind it while the SDK runs, "event JSON", "entered UUID",
    /// "exited UUID", and "found", "lost", "updated", "ping" with the beacon's name.
    /// From the phone: "console TEXT", "monitor ID", "unmonitor ID", "range ID", "unrange ID", "updates KIND on" or
    /// "off", "request METHOD URL" (without query), "response STATUS" or "response WORD", "task begin", "task end".
    std::vector<std::string> journal;
    /// Called by the delegate's operations after they have written their line, which is handed over.
    std::function<void(const std::string& line)> inCallback;
    /// Called when the app begins or ends a background task, from inside the app's call.
    std::function<void(std::string_view what)> inBackgroundTask;
    /// The last error that the delegate was told.
    std::optional<Error> lastError;

    TemporaryDirectory directory;
    simulated::SimulatedPhone phone;
    QuomiSettings settings;
    std::shared_ptr<QuomiSDKDelegate> delegate;
    std::unique_ptr<QuomiSDK> sdk;

    /// `sdk->start()` and a second of virtual time for the answers: whether the SDK runs then.
    bool start();
    /// Lets virtual time pass.
    void settle(Duration span = std::chrono::seconds(1)) { phone.advanceBy(span); }
    /// A ranging report with one beacon, major 1, of `kShopUUID`, 2 m away.
    void hear(std::uint16_t minor, std::int64_t rssi);
    /// Name of that beacon.
    [[nodiscard]] static std::string beacon(std::uint16_t minor);

    /// Lines of the journal that begin with the text.
    [[nodiscard]] std::vector<std::string> lines(std::string_view beginning) const;
    /// Texts of the debug log without their dates. Needs `sdk->setFileLogEnabled(true)`.
    [[nodiscard]] std::vector<std::string> debugLines() const;
    [[nodiscard]] std::filesystem::path storeFile();

private:
    [[nodiscard]] simulated::PhoneConfig inOwnContainer(simulated::PhoneConfig config) const;
    [[nodiscard]] simulated::PhoneObserver observer();
    void makeDelegate();
    void tellTest(std::string line);
};

}  // namespace quomi::test
