#pragma once

#include "quomi/model/action.h"
#include "quomi/model/notify_server_response.h"
#include "quomi/model/settings.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace quomi {

/// What a rule or a server's answer can order.
enum class ActionKind { notifyServer, notifyUser, openUrl, openDeepLink };

/// One kind of action, as parser, executors, servers' answers and tools know it.
struct ActionKindRow {
    ActionKind kind;
    /// Its type, and its key in a rule and in a server's answer.
    const char* type;
    /// Whether such actions are performed.
    bool QuomiSettings::*setting;
    /// What a server's answer orders of it; null where an answer cannot order it.
    std::string QuomiNotifyServerResponse::*ordered;
    /// Whether it opens something, which a notification can carry until the user opens it.
    bool opens;
};

/// All kinds, in the order in which a rule's actions are read.
inline constexpr ActionKindRow kActionKinds[] = {
    {ActionKind::notifyServer, kActionNotifyServer, &QuomiSettings::serverNotificationActionsEnabled, nullptr, false},
    {ActionKind::notifyUser, kActionNotifyUser, &QuomiSettings::localNotificationActionsEnabled,
     &QuomiNotifyServerResponse::notifyUserAction, false},
    {ActionKind::openUrl, kActionOpenUrl, &QuomiSettings::openWebPageActionsEnabled,
     &QuomiNotifyServerResponse::openURLAction, true},
    {ActionKind::openDeepLink, kActionOpenDeepLink, &QuomiSettings::openDeepLinkActionsEnabled,
     &QuomiNotifyServerResponse::openDeepLinkAction, true},
};

/// The kind of a type; null for a type that is not known, which nobody performs.
[[nodiscard]] inline const ActionKindRow* actionKind(std::string_view type) {
    const auto* found = std::ranges::find(kActionKinds, type, &ActionKindRow::type);
    return found != std::end(kActionKinds) ? found : nullptr;
}

[[nodiscard]] inline bool isOfKind(const QuomiAction& action, ActionKind kind) {
    const auto* row = actionKind(action.type);
    return row != nullptr && row->kind == kind;
}

}  // namespace quomi
