#pragma once

#include "quomi/platform/clock.h"

#include <filesystem>
#include <optional>
#include <string>

namespace quomi::posix {

/// The clock port on the system's clocks. The monotonic clock stands still while the machine sleeps.
///
/// Safe to read from any thread, as long as the host does not change its environment meanwhile.
class SystemClock final : public Clock {
public:
    [[nodiscard]] WallTime now() const override;
    [[nodiscard]] MonotonicTime monotonicNow() const override;

    /// Looked up anew at each call, from the variable TZ and the files that `timeZoneName` reads.
    [[nodiscard]] std::string timeZone() const override;
};

/// The IANA name of the system's time zone: what `variable` (the text of TZ, a leading colon or the path of the
/// database before it removed) names, when `database` (usually /usr/share/zoneinfo) holds such a zone; else what the
/// link `etc`/localtime points at; else the first line of `etc`/timezone; else "UTC". An empty `variable` means UTC,
/// as it does for the C library; a POSIX rule such as "CET-1CEST" names no zone and is passed over.
[[nodiscard]] std::string timeZoneName(const std::optional<std::string>& variable, const std::filesystem::path& etc,
                                       const std::filesystem::path& database);

}  // namespace quomi::posix
