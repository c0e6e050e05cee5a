#include "hosts/simulated/simulated_application.h"

#include "quomi/util/ascii.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace quomi::simulated {

namespace {

constexpr std::string_view kSettingsScheme = "app-settings";

/// The part before the colon, in lower case; empty where there is none.
std::string schemeOf(const std::string& url) {
    const auto colon = url.find(':');
    if (colon == std::string::npos) return {};
    return lowerCase(std::string_view(url).substr(0, colon));
}

}  // namespace

class SimulatedApplication::Observation final : public ApplicationObservation {
public:
    Observation(SimulatedApplication& application, Observer observer)
        : application_(application), observer_(std::move(observer)) {}
    ~Observation() override { std::erase(application_.observers_, observer_); }
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;

private:
    SimulatedApplication& application_;
    Observer observer_;
};

SimulatedApplication::SimulatedApplication(VirtualLoop& loop, const PhoneConfig& config, const PhoneObserver& observer)
    : loop_(loop),
      config_(config),
      observer_(observer),
      state_(config.state),
      backgroundRefresh_(config.backgroundRefresh),
      badge_(config.badge) {}

SimulatedApplication::~SimulatedApplication() = default;

void SimulatedApplication::change(ApplicationState state, ApplicationEvent event) {
    state_ = state;
    post(event);
}

void SimulatedApplication::setBackgroundRefresh(BackgroundRefreshStatus status) {
    if (std::exchange(backgroundRefresh_, status) != status) post(ApplicationEvent::backgroundRefreshStatusDidChange);
}

void SimulatedApplication::post(ApplicationEvent event) {
    loop_.post([this, event] {
        const auto observers = observers_;
        for (const auto& observer : observers) {
            const bool observes = std::ranges::find(observers_, observer) != observers_.end();
            if (observes) tell(*observer, event);
        }
    });
}

void SimulatedApplication::expireBackgroundTasks() {
    for (const auto& entry : tasks_) {
        loop_.post([this, task = entry.first] {
            const auto found = tasks_.find(task);
            if (found == tasks_.end()) return;
            const auto handler = found->second;
            tell(handler);
        });
    }
}

std::unique_ptr<ApplicationObservation> SimulatedApplication::observe(std::function<void(ApplicationEvent)> observer) {
    auto shared = std::make_shared<std::function<void(ApplicationEvent)>>(std::move(observer));
    observers_.push_back(shared);
    return std::make_unique<Observation>(*this, std::move(shared));
}

BackgroundTaskIdentifier SimulatedApplication::beginBackgroundTask(std::function<void()> expiryHandler) {
    const auto task = ++lastTask_;
    tasks_.emplace(task, std::move(expiryHandler));
    tell(observer_.backgroundTask, "begin", task);
    return task;
}

void SimulatedApplication::endBackgroundTask(BackgroundTaskIdentifier task) {
    if (tasks_.erase(task) != 0) tell(observer_.backgroundTask, "end", task);
}

bool SimulatedApplication::canOpenURL(const std::string& url) const {
    const auto scheme = schemeOf(url);
    if (scheme.empty()) return false;
    if (scheme == kSettingsScheme) return config_.settingsURL;
    return std::ranges::find(config_.opensSchemes, scheme) != config_.opensSchemes.end();
}

bool SimulatedApplication::openURL(const std::string& url) {
    tell(observer_.openURL, url);
    return canOpenURL(url);
}

std::optional<std::string> SimulatedApplication::settingsURL() const {
    if (!config_.settingsURL) return std::nullopt;
    return std::string(kSettingsScheme) + ":";
}

}  // namespace quomi::simulated
