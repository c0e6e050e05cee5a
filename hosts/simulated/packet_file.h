#pragma once

#include "hosts/simulated/phone_model.h"
#include "quomi/util/error.h"
#include "quomi/util/time.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi::simulated {

/// Domain of the errors of this reader. Codes: 1 the file cannot be read, 2 its content is not what it must be.
inline constexpr const char* kPacketFileErrorDomain = "QuomiPacketFileErrorDomain";

/// A packet and when it is heard, counted from the time of the file's first row.
struct TimedPacket {
    Duration offset{};
    Packet packet;
    bool operator==(const TimedPacket&) const = default;
};

/// Reads packets that a scanner logged: CSV with a header, columns found by the names `t_ms` (milliseconds, any
/// origin), `uuid`, `major`, `minor`, `measured_power`, `rssi`; others are ignored. Commas; fields may be quoted; LF or
/// CRLF; a byte-order mark and empty lines are skipped; blanks around a field do not count; whole numbers may be
/// written with a fraction of zeros.
///
/// Rows without a UUID, or with a text that is none, are ignored. Time zero is the time of the first row, ignored or
/// not (the first one that has a readable time). Packets come in the order of time, equal times in that of the file;
/// those before time zero count as heard at time zero.
///
/// Empty on failure; the error's description names file and line ("visit.csv:12: major: …").
[[nodiscard]] std::optional<std::vector<TimedPacket>> readPacketFile(const std::string& path,
                                                                     std::optional<Error>* error = nullptr);

/// The same from text already in memory; `name` stands for the file in errors.
[[nodiscard]] std::optional<std::vector<TimedPacket>> parsePackets(std::string_view text, const std::string& name,
                                                                   std::optional<Error>* error = nullptr);

}  // namespace quomi::simulated
