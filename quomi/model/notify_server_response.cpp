#include "quomi/model/notify_server_response.h"

#include "quomi/model/action_kind.h"
#include "quomi/model/errors.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/text.h"

#include <string_view>

#include <boost/json/object.hpp>

namespace quomi {

namespace {

std::int64_t decisionOf(std::string_view word) {
    if (word == "enable") return kNotifyServerDecisionEnable;
    if (word == "disable") return kNotifyServerDecisionDisable;
    if (word == "notify") return kNotifyServerDecisionNotify;
    return kNotifyServerDecisionInvalid;
}

bool ordersSomething(const QuomiNotifyServerResponse& response) {
    return !response.orderedActions().empty() || !QuomiUtils::isEmpty(response.openPassbookAction);
}

bool isValid(const QuomiNotifyServerResponse& response) {
    if (response.decision == kNotifyServerDecisionNotify) return ordersSomething(response);
    return response.decision != kNotifyServerDecisionInvalid;
}

}  // namespace

std::vector<QuomiAction> QuomiNotifyServerResponse::orderedActions() const {
    std::vector<QuomiAction> actions;
    for (const auto& kind : kActionKinds) {
        if (kind.ordered == nullptr || QuomiUtils::isEmpty(this->*kind.ordered)) continue;
        actions.push_back(QuomiAction::createWithType(kind.type, this->*kind.ordered));
    }
    return actions;
}

std::optional<QuomiNotifyServerResponse> QuomiNotifyServerResponse::createFromDictionnary(
    const boost::json::object& dictionary, const QuomiErrors& errors, std::optional<Error>* error) {
    QuomiNotifyServerResponse response;
    response.decision = decisionOf(QuomiUtils::stringForKey(dictionary, "decision", ""));
    for (const auto& kind : kActionKinds) {
        if (kind.ordered != nullptr) response.*kind.ordered = QuomiUtils::stringForKey(dictionary, kind.type, "");
    }
    if (isValid(response)) return response;
    assign(error, errors.errorWithCode(ErrorCode::serverNotificationResponse));
    return std::nullopt;
}

}  // namespace quomi
