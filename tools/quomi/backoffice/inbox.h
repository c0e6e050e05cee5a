#pragma once

#include "hosts/simulated/campaign/device_report.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace quomi {
struct Error;
}  // namespace quomi

namespace quomi::tool {

using simulated::Received;
using simulated::ReceivedKind;

/// Domain of the errors of opening an inbox's file; their description is one line, ready to be shown.
inline constexpr const char* kInboxErrorDomain = "QuomiInboxErrorDomain";

/// What a back office has received, oldest first, up to a bound on number and size; beyond it the oldest go. It lies in
/// an SQLite database, in memory or in a file. Any thread may call.
class Inbox {
public:
    struct Bounds {
        std::size_t entries = 10'000;
        std::size_t bytes = std::size_t{64} * 1024 * 1024;
    };

    struct Counts {
        std::uint64_t users = 0;
        std::uint64_t events = 0;
        std::uint64_t pushTokens = 0;
        std::uint64_t batteryAlerts = 0;
        /// How many of them are no longer kept.
        std::uint64_t dropped = 0;

        bool operator==(const Counts&) const = default;
    };

    /// In memory: it ends with the object.
    Inbox();
    explicit Inbox(const Bounds& bounds);
    ~Inbox();
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    /// In a file, made with mode 0600 where there is none; one that is there gets this mode. It holds what earlier
    /// inboxes in it received, and other programs may read it meanwhile (docs/campaign.md describes its tables). Empty
    /// with an error, leaving what is there as it is, when it cannot be made, read or written, or is no inbox.
    [[nodiscard]] static std::unique_ptr<Inbox> open(const std::string& path, const Bounds& bounds,
                                                     std::optional<Error>* error = nullptr);
    [[nodiscard]] static std::unique_ptr<Inbox> open(const std::string& path, std::optional<Error>* error = nullptr);

    /// Takes all entries of one request, together: no reader sees a part of them, and none is lost when the process is
    /// killed. False, and none is taken, when the database cannot be written.
    bool add(const std::vector<Received>& entries);

    /// The newest `most` entries, oldest of them first. Nothing while the database cannot be read.
    [[nodiscard]] std::vector<Received> newest(std::size_t most) const;
    [[nodiscard]] std::vector<Received> all() const;
    /// Of everything ever received.
    [[nodiscard]] Counts counts() const;

private:
    class Database;
    Inbox(const Bounds& bounds, std::unique_ptr<Database> database);

    const Bounds bounds_;
    mutable std::mutex mutex_;
    std::unique_ptr<Database> database_;
};

}  // namespace quomi::tool
