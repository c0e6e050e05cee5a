#pragma once

#include "hosts/simulated/simulated_phone.h"
#include "quomi/beacons/beacon_manager.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/settings.h"
#include "tests/support/prelude.h"
#include "tests/support/temporary_directory.h"

namespace quomi::test {

using Log = std::vector<std::string>;

inline const Uuid kShop = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A1");
inline const Uuid kOther = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A2");

/// A beacon of the shop in a ranging report.
inline RangedBeacon heard(std::uint16_t minor, PlatformProximity proximity = PlatformProximity::near,
                          double accuracy = 2) {
    return {kShop, 1, minor, proximity, accuracy, -65};
}

/// A beacon manager on a simulated phone, and one log of what the manager tells its delegate and asks of the phone.
class ManagerBench {
public:
    explicit ManagerBench(simulated::PhoneConfig config = {})
        : phone(inContainer(std::move(config)), observer()),
          settings({}, platform.location),
          debugLog(platform.files, platform.clock, [this] { return settings.isFileLogEnabled(); }),
          manager(std::make_unique<QuomiBeaconManager>(kShop, platform, settings, debugLog)) {
        *delegate = writer();
        manager->setDelegate(delegate);
    }

    /// A manager that has been started and has settled; the log is empty.
    static std::unique_ptr<ManagerBench> started(simulated::PhoneConfig config = {}) {
        auto bench = std::make_unique<ManagerBench>(std::move(config));
        EXPECT_TRUE(bench->manager->start());
        bench->news();
        return bench;
    }

    /// What was logged since the last call, after everything that needs no time.
    Log news() {
        phone.runTurns();
        return std::exchange(log, {});
    }
    /// The same after a ranging report, or after time.
    Log report(const std::vector<RangedBeacon>& beacons) {
        phone.range(beacons);
        return news();
    }
    Log after(Duration span) {
        phone.advanceBy(span);
        return news();
    }

    [[nodiscard]] std::vector<int> nearby() const {
        std::vector<int> minors;
        for (const auto& beacon : manager->getNearbyBeacons()) minors.push_back(beacon->minor());
        return minors;
    }

    /// Texts of the debug log's new lines, without their dates.
    Log debugLines() {
        const auto content = debugLog.file().getFileLogContent().value_or("");
        debugLog.file().clearLogFile();
        Log lines;
        for (std::size_t begin = 0; begin < content.size();) {
            const auto text = content.find(" - ", begin) + 3;
            const auto end = content.find('\n', text);
            lines.push_back(content.substr(text, end - text));
            begin = end + 1;
        }
        return lines;
    }

    Log log;
    TemporaryDirectory container;
    simulated::SimulatedPhone phone;
    const Platform platform = phone.platform();
    QuomiSettings settings;
    DebugLog debugLog;
    std::shared_ptr<QuomiBeaconManagerDelegate> delegate = std::make_shared<QuomiBeaconManagerDelegate>();
    std::unique_ptr<QuomiBeaconManager> manager;

private:
    simulated::PhoneConfig inContainer(simulated::PhoneConfig config) const {
        if (config.container.empty()) config.container = container.path();
        return config;
    }

    template <class... Arguments>
    void note(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        log.push_back(fmt::format(format, std::forward<Arguments>(arguments)...));
    }

    QuomiBeaconManagerDelegate writer() {
        QuomiBeaconManagerDelegate told;
        told.didEnterBeaconRegion = [this](const BeaconRegion&) { note("enter"); };
        told.didExitBeaconRegion = [this](const BeaconRegion&) { note("exit"); };
        told.beaconRegionStateChanged = [this](const BeaconRegion&, RegionState state) {
            note("state {}", static_cast<int>(state));
        };
        told.beaconRegionMonitoringStarted = [this](const BeaconRegion& region) {
            note("began {}", region.identifier);
        };
        told.beaconRegionMonitoringFailed = [this](const BeaconRegion&, const PlatformError& error) {
            note("failed {}", error.code);
        };
        told.didFindBeacon = [this](const QuomiBeacon& beacon) {
            note("found {} at {}", beacon.minor(), static_cast<int>(beacon.proximity()));
        };
        told.didUpdateBeacon = [this](const QuomiBeacon& beacon, QuomiProximity oldProximity, double oldAccuracy,
                                      QuomiProximity newProximity, double newAccuracy) {
            note("updated {} from {} {} to {} {}", beacon.minor(), static_cast<int>(oldProximity), oldAccuracy,
                 static_cast<int>(newProximity), newAccuracy);
        };
        told.didReceivePingFromBeacon = [this](const QuomiBeacon& beacon) { note("ping {}", beacon.minor()); };
        told.didLoseBeacon = [this](const QuomiBeacon& beacon) { note("lost {}", beacon.minor()); };
        return told;
    }

    simulated::PhoneObserver observer() {
        return {
            .monitor = [this](const Region& region) { note("monitor {}", regionIdentifier(region)); },
            .unmonitor = [this](const Region& region) { note("unmonitor {}", regionIdentifier(region)); },
            .range = [this](const BeaconRegion& region) { note("range {}", region.identifier); },
            .unrange = [this](const BeaconRegion& region) { note("unrange {}", region.identifier); },
            .updates = [this](std::string_view kind, bool on) { note("{} updates {}", kind, on ? "on" : "off"); },
            .authorizationRequest = [this](std::string_view level) { note("ask {}", level); },
            .backgroundTask = [this](std::string_view what,
                                     BackgroundTaskIdentifier task) { note("{} task {}", what, task); },
            .console = [this](std::string_view text) { note("console: {}", text); },
        };
    }
};

}  // namespace quomi::test
