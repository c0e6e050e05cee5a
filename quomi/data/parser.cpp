#include "quomi/data/parser.h"

#include "quomi/core/errors.h"
#include "quomi/core/settings.h"
#include "quomi/data/data.h"
#include "quomi/platform/clock.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/uuid.h"

#include <utility>

#include <boost/json/value.hpp>

namespace quomi {

namespace {

/// The answer as a dictionary that says it is a success; null otherwise.
const boost::json::object* successfulAnswer(const boost::json::value& response) {
    const auto* dictionary = response.if_object();
    return dictionary != nullptr && QuomiUtils::boolForKey(*dictionary, "success", false) ? dictionary : nullptr;
}

/// The record; nothing when a required text is missing or a UUID cannot be read: a phone cannot watch by it.
std::optional<QuomiApplication> applicationFrom(const boost::json::object& answer) {
    const auto text = [&answer](std::string_view key) { return QuomiUtils::stringForKey(answer, key, std::nullopt); };
    auto appNamespace = text("namespace_uid");
    const auto uuid = [&text](std::string_view key) {
        auto value = text(key);
        return value && Uuid::parse(*value) ? value : std::nullopt;
    };
    auto normal = uuid("normal_proximity_uuid");
    auto secure = uuid("secure_proximity_uuid");
    auto service = uuid("service_proximity_uuid");
    auto protocol = text("anti_hacking_protocol");
    if (!appNamespace || !normal || !secure || !service || !protocol) return std::nullopt;
    const auto threshold =
        QuomiUtils::numberForKey(answer, "max_distance_medium_far", kProximityDefaultFarSplitThreshold);
    return QuomiApplication{std::move(*appNamespace), std::move(*normal),   std::move(*secure),
                            std::move(*service),      std::move(*protocol), threshold.doubleValue()};
}

}  // namespace

bool QuomiDataApiResponseParser::fail(std::optional<Error>* error) const {
    assign(error, errors_.errorWithCode(ErrorCode::responseParsing));
    return false;
}

bool QuomiDataApiResponseParser::parseAndSaveApiApplicationResponseData(const boost::json::value& response,
                                                                        std::optional<Error>* error) {
    const auto* answer = successfulAnswer(response);
    if (answer == nullptr) return fail(error);
    const auto application = applicationFrom(*answer);
    return application ? dataManager_.insertOrUpdateApplication(*application, error) : fail(error);
}

bool QuomiDataApiResponseParser::parseAndSaveApiApplicationLimitsResponseData(const boost::json::value& response,
                                                                              std::optional<Error>* error) {
    const auto* answer = successfulAnswer(response);
    if (answer == nullptr) return fail(error);
    auto status = dataManager_.getSDKStatusInfo(error);
    if (!status) return false;
    status->globalMaxEvents = QuomiUtils::numberForKey(*answer, "max_events", 0).as<std::int32_t>();
    status->globalMaxEventsPeriod = QuomiUtils::numberForKey(*answer, "max_events_period", 0).as<std::int32_t>();
    status->globalMinInterval = QuomiUtils::numberForKey(*answer, "min_interval", 0).as<std::int32_t>();
    status->trimOutdatedHistoryElements(clock_.now());
    return dataManager_.saveSDKStatusInfo(*status, error);
}

}  // namespace quomi
