#pragma once

#include "quomi/platform/application.h"
#include "quomi/platform/bluetooth.h"
#include "quomi/platform/location.h"
#include "quomi/platform/notification_center.h"
#include "quomi/util/time.h"
#include "quomi/util/uuid.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <boost/json/value.hpp>

namespace quomi::simulated {

// What a step does: one struct for each key of the timeline, named after it.

struct RangeStep {
    std::vector<RangedBeacon> beacons;
};
/// `enterBeaconRegion`, `exitBeaconRegion`.
struct BeaconRegionStep {
    Uuid uuid;
    bool enters = false;
};
struct BeaconRegionStateStep {
    Uuid uuid;
    RegionState state = RegionState::unknown;
};
struct LocationStep {
    Coordinate coordinate;
    double accuracy = 0;  ///< metres; negative when unknown
};
/// `enterRegion`, `exitRegion`: a circular region.
struct RegionStep {
    std::string identifier;
    bool enters = false;
};
/// `monitoringFails`.
struct MonitoringFailsStep {
    std::string region;  ///< identifier or UUID, as the visit has it
    std::int64_t code = 0;
};
struct RangingFailsStep {
    std::string region;  ///< identifier or UUID, as the visit has it
    std::int64_t code = 0;
};
struct LocationFailsStep {
    std::int64_t code = 0;
};
struct AuthorizationStep {
    AuthorizationStatus status = AuthorizationStatus::notDetermined;
};
struct BluetoothStep {
    BluetoothState state = BluetoothState::unknown;
};
struct BackgroundRefreshStep {
    BackgroundRefreshStatus status = BackgroundRefreshStatus::restricted;
};
struct NotificationRightsStep {
    NotificationSettings settings;
};
struct LocationServicesStep {
    bool enabled = false;
};
enum class AppChange { background, foreground, active, inactive, terminate, suspend, resume };
struct AppStep {
    AppChange change = AppChange::background;
};
struct NetworkStep {
    bool reachable = false;
};
struct ExpireBackgroundTasksStep {};
struct PresentScreenStep {
    bool presents = false;
};
struct CloseWebPageStep {};
struct DismissWebPageStep {};
/// The wall clock jumps by so much, either way.
struct ClockStep {
    Duration jump{};
};
struct TimeZoneStep {
    std::string zone;  ///< one that the time-zone database has
};
struct PacketsStep {
    std::filesystem::path csv;  ///< resolved against the visit's folder
    double speed = 1;           ///< above zero; 2 plays it in half its time
};
struct WalkStep {
    std::filesystem::path gpx;  ///< resolved against the visit's folder
    double speed = 1;           ///< above zero; 2 plays it in half its time
};
/// The host calls the SDK. `with` is the argument, checked for that call; null where the call takes none. In that of
/// `setSetting`, `value` is as `settingValue` gives it.
struct CallStep {
    std::string name;
    boost::json::value with;
};

using StepAction = std::variant<RangeStep, BeaconRegionStep, BeaconRegionStateStep, LocationStep, RegionStep,
                                MonitoringFailsStep, RangingFailsStep, LocationFailsStep, AuthorizationStep,
                                BluetoothStep, BackgroundRefreshStep, NotificationRightsStep, LocationServicesStep,
                                AppStep, NetworkStep, ExpireBackgroundTasksStep, PresentScreenStep, CloseWebPageStep,
                                DismissWebPageStep, ClockStep, TimeZoneStep, PacketsStep, WalkStep, CallStep>;

/// One entry of the timeline. Times are counted from the visit's start.
struct Step {
    std::size_t index = 0;  ///< its place in the file, from 0
    Duration at{};
    /// Set: the step happens again every so often (at least one microsecond) ...
    std::optional<Duration> every;
    /// ... for the last time at this time or before; never less than `at`. Equal to `at` without `every`.
    Duration until{};
    StepAction action;

    /// When it happens for the last time.
    [[nodiscard]] Duration lastTime() const;
};

/// One happening of a step.
struct Occurrence {
    Duration at{};
    std::size_t step = 0;  ///< place in the list of steps
    bool operator==(const Occurrence&) const = default;
};

/// Unfolds repeated steps one occurrence at a time: by time, equal times in the order of the list. It needs memory for
/// the steps, not for their repetitions, and refers to the list, which outlives it and does not change.
class Occurrences {
public:
    explicit Occurrences(const std::vector<Step>& steps);

    /// The next one; empty at the end.
    [[nodiscard]] std::optional<Occurrence> peek() const;
    /// Takes the next one.
    std::optional<Occurrence> next();

private:
    const std::vector<Step>* steps_;
    std::vector<Occurrence> heap_;
};

}  // namespace quomi::simulated
