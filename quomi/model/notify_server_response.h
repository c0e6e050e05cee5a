#pragma once

#include "quomi/model/action.h"
#include "quomi/util/error.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class QuomiErrors;

// Values of `QuomiNotifyServerResponse::decision`.
inline constexpr std::int64_t kNotifyServerDecisionEnable = 0;   ///< the rule's other actions may run
inline constexpr std::int64_t kNotifyServerDecisionDisable = 1;  ///< they may not
inline constexpr std::int64_t kNotifyServerDecisionNotify = 2;   ///< the answer's own actions run in their place
inline constexpr std::int64_t kNotifyServerDecisionInvalid = 3;

/// What a server said when it was told of a rule: what becomes of the rule's other actions. An empty text is no action.
struct QuomiNotifyServerResponse {
    std::int64_t decision = kNotifyServerDecisionInvalid;
    std::string notifyUserAction;    ///< as the `param` of an action "notify_user"
    std::string openURLAction;       ///< a URL
    std::string openPassbookAction;  ///< always empty: no key of the answer fills it
    std::string openDeepLinkAction;  ///< as the `param` of an action "open_deep_link"

    /// Reads "decision" ("enable", "disable", "notify"), "notify_user", "open_url" and "open_deep_link". Fails with 405
    /// when the decision is none of them, or is "notify" and orders nothing. The doubled "nn" of the name is
    /// deliberate: callers know it by that name.
    [[nodiscard]] static std::optional<QuomiNotifyServerResponse> createFromDictionnary(
        const boost::json::object& dictionary, const QuomiErrors& errors, std::optional<Error>* error = nullptr);

    /// What it orders, in the order in which it is performed.
    [[nodiscard]] std::vector<QuomiAction> orderedActions() const;

    bool operator==(const QuomiNotifyServerResponse&) const = default;
};

}  // namespace quomi
