#pragma once

#include "quomi/model/action_kind.h"
#include "quomi/util/error.h"

#include <functional>
#include <optional>
#include <string>

namespace quomi {

struct NotificationRequest;

/// What the host is asked about an action, and asked to do in the SDK's place: its delegate as it is at each call. An
/// operation that the host does not implement, and one that throws, is as if it were not there. `triggeredBy` is 1 for
/// a geofence and 2 for a beacon. Host's thread; the host may call every operation of the SDK from inside, `stop`
/// included.
class ActionHost {
public:
    virtual ~ActionHost() = default;

    /// Whether the URL may be opened, or its server asked; nothing when the host does not say.
    [[nodiscard]] virtual std::optional<bool> shouldExecute(ActionKind kind, const std::string& url,
                                                            int triggeredBy) const = 0;
    /// True when the host opens the URL, and the SDK does not.
    [[nodiscard]] virtual bool execute(ActionKind kind, const std::string& url, int triggeredBy) const = 0;

    /// True when the host decides in its own time. The block takes the answer, on the host's thread, at once or later.
    /// Without an answer the notification waits for ever.
    [[nodiscard]] virtual bool shouldExecuteNotificationRequest(const NotificationRequest& request, int triggeredBy,
                                                                std::function<void(bool)> completionBlock) const = 0;
    [[nodiscard]] virtual std::optional<bool> shouldExecuteNotificationRequest(const NotificationRequest& request,
                                                                               int triggeredBy) const = 0;
    /// True when the host shows it, and the SDK does not.
    [[nodiscard]] virtual bool executeNotificationRequest(const NotificationRequest& request,
                                                          int triggeredBy) const = 0;

    /// True when the host asks the server itself. It reports through one of the two blocks, on the host's thread, at
    /// once or later.
    [[nodiscard]] virtual bool executeServerNotificationRequest(const std::string& url, int triggeredBy,
                                                                std::function<void()> success,
                                                                std::function<void(const Error&)> failure) const = 0;
};

}  // namespace quomi
