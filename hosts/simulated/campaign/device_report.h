#pragma once

#include "quomi/util/time.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi::simulated {

/// What a device sent: a user's record, one event of its log, a push token, or an alert about a beacon's battery.
enum class ReceivedKind { user, event, pushToken, batteryAlert };

/// "user", "event", "push token", "battery alert".
[[nodiscard]] const char* nameOf(ReceivedKind kind);

struct Received {
    ReceivedKind kind = ReceivedKind::event;
    /// When the back office received it; kept to the millisecond.
    WallTime at;
    /// The device that sent it; empty for a battery alert, which does not say.
    std::string udid;
    /// The date that an event carries, as written; empty for all others.
    std::string date;
    /// JSON text: an event's "data" (null where it had none), a user's "u_app_user", {"push_token"},
    /// {"uuid", "battery_service_id"}.
    std::string content;
};

/// What a device's request body says.
struct ReceivedBody {
    std::vector<Received> entries;
    /// The namespace that the body names itself, when its endpoint's path has none.
    std::optional<std::string> namespaceUid;
};

/// Reads a request body received at a time. Keys other than the documented ones are refused. On failure empty, and
/// `fault` is one line: JSON path, what was expected, what was found.
using ReadBody = std::optional<ReceivedBody> (*)(std::string_view text, WallTime at, std::string& fault);

/// {"u_app_user": {…}}: the user record of ten entries, or eleven with "advertising_id".
[[nodiscard]] std::optional<ReceivedBody> readUserBody(std::string_view text, WallTime at, std::string& fault);
/// {"udid", "date", "data"}: one event. "date" is a text or a number; "data" may be missing.
[[nodiscard]] std::optional<ReceivedBody> readEventBody(std::string_view text, WallTime at, std::string& fault);
/// {"udid", "logs": [{"date", "data"}, …]}: a batch of events, which may be empty. "data" may be missing.
[[nodiscard]] std::optional<ReceivedBody> readEventsBody(std::string_view text, WallTime at, std::string& fault);
/// {"namespace", "udid", "push_token"}: the token as hexadecimal digits. Faults do not quote it.
[[nodiscard]] std::optional<ReceivedBody> readPushTokenBody(std::string_view text, WallTime at, std::string& fault);
/// {"namespace", "uuid", "battery_service_id"}: the UUID and the number, as text, with which a beacon calls for
/// service.
[[nodiscard]] std::optional<ReceivedBody> readBatteryAlertBody(std::string_view text, WallTime at, std::string& fault);

}  // namespace quomi::simulated
