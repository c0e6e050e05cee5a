#pragma once

#include "quomi/util/observers.h"

#include <functional>
#include <memory>

namespace quomi {

/// Properties of the facade that can be observed.
enum class QuomiSDKProperty { isRunning, beaconsEnabled, geofencesEnabled };

/// What the authorization manager wants to know of the SDK; the facade answers it. Host's thread only.
class AuthorizationFacade {
public:
    /// Whether a start has succeeded or is under way.
    [[nodiscard]] virtual bool isRunning() const = 0;
    /// Whether they are switched on, also while the SDK does not run.
    [[nodiscard]] virtual bool beaconsEnabled() const = 0;
    [[nodiscard]] virtual bool geofencesEnabled() const = 0;

    /// From now on the observer is called with the old and the new value whenever the property has been set, also to
    /// the value that it had, and all that this set off has been done. Every operation of the facade may be called from
    /// inside.
    [[nodiscard]] virtual std::unique_ptr<Observation> observe(
        QuomiSDKProperty property, std::function<void(bool oldValue, bool newValue)> observer) = 0;

protected:
    ~AuthorizationFacade() = default;
};

}  // namespace quomi
