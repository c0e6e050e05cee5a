#include "quomi/model/notify_server_response.h"

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
    return !QuomiUtils::isEmpty(response.notifyUserAction) || !QuomiUtils::isEmpty(response.openURLAction) ||
           !QuomiUtils::isEmpty(response.openPassbookAction) || !QuomiUtils::isEmpty(response.openDeepLinkAction);
}

bool isValid(const QuomiNotifyServerResponse& response) {
    if (response.decision == kNotifyServerDecisionNotify) return ordersSomething(response);
    return response.decision != kNotifyServerDecisionInvalid;
}

}  // namespace

std::optional<QuomiNotifyServerResponse> QuomiNotifyServerResponse::createFromDictionnary(
    const boost::json::object& dictionary, const QuomiErrors& errors, std::optional<Error>* error) {
    QuomiNotifyServerResponse response;
    response.decision = decisionOf(QuomiUtils::stringForKey(dictionary, "decision", ""));
    response.notifyUserAction = QuomiUtils::stringForKey(dictionary, "notify_user", "");
    response.openURLAction = QuomiUtils::stringForKey(dictionary, "open_url", "");
    response.openDeepLinkAction = QuomiUtils::stringForKey(dictionary, "open_deep_link", "");
    if (isValid(response)) return response;
    assign(error, errors.errorWithCode(ErrorCode::serverNotificationResponse));
    return std::nullopt;
}

}  // namespace quomi
