#pragma once

#include "quomi/core/sdk_delegate.h"
#include "tools/quomi/replay/deciding_delegate.h"
#include "tools/quomi/replay/trace.h"

#include <memory>
#include <optional>

#include <boost/json/value.hpp>

namespace quomi {
class QuomiSDK;
struct QuomiSettings;
}  // namespace quomi

namespace quomi::simulated {
class SimulatedPhone;
}

namespace quomi::tool {

struct AppConfig;
struct CallStep;

/// The host app of a replay: owns the facade's delegate, which writes all that it hears into the trace, and makes the
/// calls of a visit.
class ReplayHost {
public:
    /// All of them outlive the host.
    ReplayHost(QuomiSDK& sdk, QuomiSettings& settings, const Trace& trace, simulated::SimulatedPhone& phone);
    ~ReplayHost();
    ReplayHost(const ReplayHost&) = delete;
    ReplayHost& operator=(const ReplayHost&) = delete;

    /// Sets namespace, base URL, properties and settings, in this order, and then becomes the delegate.
    void configure(const AppConfig& app);
    /// Sets a presentation screen that already presents another one, or takes it away.
    void presentScreen(bool presents);
    /// Makes one call and writes its record when it returns.
    void call(const CallStep& step);

private:
    QuomiSDK& sdk_;
    QuomiSettings& settings_;
    const Trace& trace_;
    simulated::SimulatedPhone& phone_;
    DecidingDelegate deciding_;
    std::shared_ptr<QuomiSDKDelegate> delegate_;
};

}  // namespace quomi::tool
