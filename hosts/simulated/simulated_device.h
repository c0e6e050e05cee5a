#pragma once

#include "hosts/posix/defaults.h"
#include "hosts/posix/files.h"
#include "hosts/simulated/phone_config.h"
#include "hosts/simulated/phone_observer.h"
#include "hosts/simulated/virtual_loop.h"
#include "quomi/platform/console.h"
#include "quomi/platform/device.h"
#include "quomi/platform/localization.h"
#include "quomi/platform/reachability.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi::simulated {

/// Facts about the phone, as the configuration states them.
class SimulatedDevice final : public Device {
public:
    explicit SimulatedDevice(const PhoneConfig& config) : config_(config) {}
    [[nodiscard]] std::string identifierForVendor() const override { return config_.udid; }
    [[nodiscard]] std::string systemName() const override { return config_.systemName; }
    [[nodiscard]] std::string systemVersion() const override { return config_.systemVersion; }
    [[nodiscard]] std::string model() const override { return config_.model; }
    [[nodiscard]] std::vector<std::string> preferredLanguages() const override { return config_.languages; }
    [[nodiscard]] std::optional<std::string> advertisingIdentifier() const override { return config_.advertisingId; }
    [[nodiscard]] bool isAdvertisingTrackingEnabled() const override { return config_.advertisingTracking; }

private:
    const PhoneConfig& config_;
};

/// The app's translations, as the configuration states them.
class SimulatedLocalization final : public Localization {
public:
    explicit SimulatedLocalization(const PhoneConfig& config) : config_(config) {}
    [[nodiscard]] std::optional<std::string> localizedString(std::string_view english) const override;

private:
    const PhoneConfig& config_;
};

/// The app's directories in its container; the bundle's resources are those of the configuration.
class SimulatedFiles final : public posix::PosixFiles {
public:
    SimulatedFiles(std::filesystem::path container, const PhoneConfig& config)
        : PosixFiles(std::move(container)), config_(config) {}
    [[nodiscard]] std::optional<std::string> bundleResource(const std::string& path) const override;

private:
    const PhoneConfig& config_;
};

/// User defaults in the container whose observer is told of every write.
class SimulatedDefaults final : public posix::JsonDefaults {
public:
    SimulatedDefaults(Files& files, const PhoneObserver& observer) : JsonDefaults(files), observer_(observer) {}
    void setBool(const std::string& key, bool value) override;

private:
    const PhoneObserver& observer_;
};

/// The system log: the observer alone reads it.
class SimulatedConsole final : public Console {
public:
    SimulatedConsole(VirtualLoop& loop, const PhoneObserver& observer) : loop_(loop), observer_(observer) {}
    void log(std::string_view message) override;

private:
    VirtualLoop& loop_;
    const PhoneObserver& observer_;
};

/// Whether the phone has a network. It says nothing about requests: the transport answers those as it was told.
class SimulatedReachability final : public Reachability {
public:
    SimulatedReachability(VirtualLoop& loop, NetworkStatus status);
    ~SimulatedReachability() override;

    /// Lever: observers are told in order; nothing when it is the status already.
    void setStatus(NetworkStatus status);

    [[nodiscard]] NetworkStatus status() const override { return status_; }
    [[nodiscard]] std::unique_ptr<ReachabilityObservation> observe(std::function<void(NetworkStatus)> changed) override;

private:
    class Observation;
    using Observer = std::shared_ptr<std::function<void(NetworkStatus)>>;

    VirtualLoop& loop_;
    NetworkStatus status_;
    std::vector<Observer> observers_;
};

}  // namespace quomi::simulated
