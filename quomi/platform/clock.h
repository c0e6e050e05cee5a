#pragma once

#include "quomi/util/time.h"

#include <string>

namespace quomi {

/// Port: the device's clocks.
///
/// The SDK calls it on the host's thread; the log functions and the HTTP transport may call it from any thread, so an
/// implementation is safe to read concurrently. No call blocks or fails.
class Clock {
public:
    virtual ~Clock() = default;

    /// The wall clock. It may jump either way when the user or the network sets it.
    [[nodiscard]] virtual WallTime now() const = 0;

    /// Time since some fixed moment; never goes back. Timers know only this one.
    [[nodiscard]] virtual MonotonicTime monotonicNow() const = 0;

    /// IANA name of the device's time zone as it stands now ("Europe/Berlin").
    [[nodiscard]] virtual std::string timeZone() const = 0;
};

}  // namespace quomi
