#pragma once

// The ports that an app implements over its own platform. Here they stand for a phone on a desk: one beacon is in the
// air, everything is allowed, one server answers, and what the user would see is printed.

#include <cstdio>
#include <map>
#include <quomi/quomi.h>

namespace shop {

/// Location services that hear one beacon of each region ranged. A real one wraps the phone's.
class OneBeaconLocation final : public quomi::LocationPlatform {
public:
    explicit OneBeaconLocation(quomi::RunLoop& loop) : loop_(loop) {}

    std::optional<bool> isMonitoringAvailable(quomi::RegionClass kind) const override {
        return kind == quomi::RegionClass::beacon;
    }
    std::optional<bool> isRangingAvailable() const override { return true; }
    bool significantLocationChangeMonitoringAvailable() const override { return false; }
    bool locationServicesEnabled() const override { return true; }
    quomi::AuthorizationStatus authorizationStatus() const override {
        return quomi::AuthorizationStatus::authorizedAlways;
    }
    std::unique_ptr<quomi::LocationService> makeLocationService(quomi::LocationServiceDelegate& delegate) override {
        return std::make_unique<Service>(loop_, delegate);
    }

private:
    /// Callbacks come in later turns, and none after the service has gone: each is a timer that the service owns.
    class Service final : public quomi::LocationService {
    public:
        Service(quomi::RunLoop& loop, quomi::LocationServiceDelegate& delegate) : loop_(loop), delegate_(delegate) {
            authorization_ = loop_.scheduleOnce(
                {}, [this] { delegate_.didChangeAuthorizationStatus(quomi::AuthorizationStatus::authorizedAlways); });
        }
        void requestAlwaysAuthorization() override {}
        void requestWhenInUseAuthorization() override {}
        void startMonitoring(const quomi::Region& region) override { monitored_[regionIdentifier(region)] = region; }
        void stopMonitoring(const std::string& identifier) override { monitored_.erase(identifier); }
        void requestState(const quomi::Region&) override {}
        std::vector<quomi::Region> monitoredRegions() const override {
            std::vector<quomi::Region> regions;
            for (const auto& [identifier, region] : monitored_) regions.push_back(region);
            return regions;
        }
        void startRangingBeacons(const quomi::BeaconRegion& region) override {
            reports_[region.identifier] = loop_.scheduleRepeating(std::chrono::milliseconds(100), [this, region] {
                const quomi::RangedBeacon beacon{region.proximityUUID, 1, 7, quomi::PlatformProximity::near, 1.5, -60};
                delegate_.didRangeBeacons({beacon}, region);
            });
        }
        void stopRangingBeacons(const std::string& identifier) override { reports_.erase(identifier); }
        std::vector<quomi::BeaconRegion> rangedRegions() const override { return {}; }
        void startUpdatingLocation() override {}
        void stopUpdatingLocation() override {}
        void startMonitoringSignificantLocationChanges() override {}
        void stopMonitoringSignificantLocationChanges() override {}
        void setDesiredAccuracy(double) override {}
        void setDistanceFilter(double) override {}
        void setPausesLocationUpdatesAutomatically(bool) override {}
        void setAllowsBackgroundLocationUpdates(bool) override {}

    private:
        quomi::RunLoop& loop_;
        quomi::LocationServiceDelegate& delegate_;
        std::unique_ptr<quomi::Timer> authorization_;
        std::map<std::string, quomi::Region> monitored_;
        std::map<std::string, std::unique_ptr<quomi::Timer>> reports_;
    };

    quomi::RunLoop& loop_;
};

/// A radio that is on.
class BluetoothOn final : public quomi::BluetoothPlatform {
public:
    explicit BluetoothOn(quomi::RunLoop& loop) : loop_(loop) {}
    std::unique_ptr<quomi::BluetoothCentral> makeCentral(bool,
                                                         std::function<void(quomi::BluetoothState)> told) override {
        auto central = std::make_unique<Central>();
        central->first = loop_.scheduleOnce({}, [told] { told(quomi::BluetoothState::poweredOn); });
        return central;
    }

private:
    struct Central final : quomi::BluetoothCentral {
        quomi::BluetoothState state() const override { return quomi::BluetoothState::poweredOn; }
        std::unique_ptr<quomi::Timer> first;
    };
    quomi::RunLoop& loop_;
};

/// Prints notifications; every right is granted.
class PrintedNotifications final : public quomi::NotificationCenter {
public:
    explicit PrintedNotifications(quomi::RunLoop& loop) : loop_(loop) {}
    void getSettings(std::function<void(quomi::NotificationSettings)> completion) override {
        loop_.post([completion] { completion({quomi::NotificationAuthorization::authorized, true, true, true}); });
    }
    void requestAuthorization(unsigned, std::function<void(bool)> completion) override {
        loop_.post([completion] { completion(true); });
    }
    void getCategories(std::function<void(std::vector<quomi::NotificationCategory>)> completion) override {
        loop_.post([this, completion] { completion(categories_); });
    }
    void setCategories(std::vector<quomi::NotificationCategory> categories) override {
        categories_ = std::move(categories);
    }
    void add(const quomi::NotificationRequest& request) override {
        std::printf("notification: %s\n", request.body.value_or("").c_str());
    }

private:
    quomi::RunLoop& loop_;
    std::vector<quomi::NotificationCategory> categories_;
};

/// An app in the foreground that nothing happens to.
class ForegroundApplication final : public quomi::Application {
public:
    quomi::ApplicationState state() const override { return quomi::ApplicationState::active; }
    std::unique_ptr<quomi::ApplicationObservation> observe(std::function<void(quomi::ApplicationEvent)>) override {
        return std::make_unique<quomi::ApplicationObservation>();
    }
    quomi::BackgroundTaskIdentifier beginBackgroundTask(std::function<void()>) override {
        return quomi::kBackgroundTaskInvalid;
    }
    void endBackgroundTask(quomi::BackgroundTaskIdentifier) override {}
    std::int64_t badgeNumber() const override { return 0; }
    void setBadgeNumber(std::int64_t) override {}
    bool canOpenURL(const std::string&) const override { return false; }
    bool openURL(const std::string&) override { return false; }
    std::optional<std::string> settingsURL() const override { return std::nullopt; }
    quomi::BackgroundRefreshStatus backgroundRefreshStatus() const override {
        return quomi::BackgroundRefreshStatus::available;
    }
};

/// An app without a window: pages of actions are refused.
class NoScreens final : public quomi::Screens {
public:
    std::shared_ptr<quomi::Screen> rootScreen() const override { return nullptr; }
    std::unique_ptr<quomi::WebPage> presentWebPage(const std::shared_ptr<quomi::Screen>&,
                                                   quomi::WebPageEvents) override {
        return nullptr;
    }
    void presentAlert(const std::shared_ptr<quomi::Screen>&, const std::string&, const std::string&,
                      const std::string&) override {}
};

class DeskDevice final : public quomi::Device {
public:
    std::string identifierForVendor() const override { return "7A0E2C64-55D1-4C0B-8B0B-0D7F2C3E9A11"; }
    std::string systemName() const override { return "Linux"; }
    std::string systemVersion() const override { return "1"; }
    std::string model() const override { return "desk"; }
    std::vector<std::string> preferredLanguages() const override { return {"en"}; }
    std::optional<std::string> advertisingIdentifier() const override { return std::nullopt; }
    bool isAdvertisingTrackingEnabled() const override { return false; }
};

class EnglishOnly final : public quomi::Localization {
public:
    std::optional<std::string> localizedString(std::string_view) const override { return std::nullopt; }
};

class AlwaysReachable final : public quomi::Reachability {
public:
    quomi::NetworkStatus status() const override { return quomi::NetworkStatus::reachableViaWiFi; }
    std::unique_ptr<quomi::ReachabilityObservation> observe(std::function<void(quomi::NetworkStatus)>) override {
        return std::make_unique<quomi::ReachabilityObservation>();
    }
};

/// A back office in the process: texts by the path of the request. An app uses `quomi::CurlTransport` instead.
class CannedServer final : public quomi::HttpTransport {
public:
    CannedServer(quomi::RunLoop& loop, std::map<std::string, std::string> answers)
        : loop_(loop), answers_(std::move(answers)) {}
    std::unique_ptr<quomi::HttpTask> send(quomi::HttpRequest request, Completion completion) override {
        const auto path = request.url.substr(0, request.url.find('?'));
        const auto answer = answers_.find(path.substr(path.find('/', path.find("//") + 2)));
        quomi::HttpResponse response{404, {{"content-type", "application/json"}}, "{}"};
        if (answer != answers_.end()) response = {200, response.headers, answer->second};
        auto task = std::make_unique<Task>();
        task->answer = loop_.scheduleOnce({}, [completion, response] { completion(response); });
        return task;
    }

private:
    struct Task final : quomi::HttpTask {
        std::unique_ptr<quomi::Timer> answer;
    };
    quomi::RunLoop& loop_;
    std::map<std::string, std::string> answers_;
};

}  // namespace shop
