#pragma once

#include "hosts/simulated/replay/deciding_delegate.h"
#include "hosts/simulated/replay/trace.h"
#include "quomi/sdk/sdk_delegate.h"

#include <memory>
#include <optional>

#include <boost/json/value.hpp>

namespace quomi {
class QuomiAuthorizationManager;
class QuomiSDK;
struct Platform;
struct QuomiAuthorizationDelegate;
struct QuomiSettings;
}  // namespace quomi

namespace quomi::simulated {
class SimulatedPhone;
}

namespace quomi::simulated {

struct AppConfig;
struct CallStep;

/// The host app of a replay: owns the facade's delegate, which writes all that it hears into the trace, and makes the
/// calls of a visit. The first call of the authorization manager makes it, with a delegate that traces as well.
class ReplayHost {
public:
    /// The references outlive the host. `own`, where there is one, is the app's delegate, which hears and decides too.
    /// `traces` says which of the telling operations are traced, all when it is empty.
    ReplayHost(const Platform& platform, QuomiSDK& sdk, QuomiSettings& settings, const Trace& trace,
               SimulatedPhone& phone, std::shared_ptr<const QuomiSDKDelegate> own, const TracedOperations& traces);
    ~ReplayHost();
    ReplayHost(const ReplayHost&) = delete;
    ReplayHost& operator=(const ReplayHost&) = delete;

    /// Sets namespace, base URL, properties and settings, in this order, and then becomes the delegate.
    void configure(const AppConfig& app);
    /// Sets a presentation screen that already presents another one, or takes it away.
    void presentScreen(bool presents);
    /// Makes one call and writes its record when it returns.
    void call(const CallStep& step);

    [[nodiscard]] QuomiSDK& sdk() const { return sdk_; }
    [[nodiscard]] QuomiSettings& settings() const { return settings_; }
    [[nodiscard]] const Trace& trace() const { return trace_; }
    [[nodiscard]] const SimulatedPhone& phone() const { return phone_; }
    [[nodiscard]] QuomiAuthorizationManager& authorizationManager();

private:
    const Platform& platform_;
    QuomiSDK& sdk_;
    QuomiSettings& settings_;
    const Trace& trace_;
    SimulatedPhone& phone_;
    DecidingDelegate deciding_;
    const std::shared_ptr<const QuomiSDKDelegate> own_;
    std::shared_ptr<QuomiSDKDelegate> delegate_;
    std::shared_ptr<QuomiAuthorizationDelegate> authorizationDelegate_;
    std::unique_ptr<QuomiAuthorizationManager> authorizationManager_;
};

}  // namespace quomi::simulated
