#pragma once

#include "tools/quomi/backoffice/inbox.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi::tool {

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

}  // namespace quomi::tool
