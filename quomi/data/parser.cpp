#include "quomi/data/parser.h"

#include "quomi/data/data.h"
#include "quomi/data/place_parsing.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/uuid.h"

#include <string>
#include <utility>
#include <vector>

#include <boost/json/value.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

/// The answer as a dictionary that says it is a success; null otherwise.
const boost::json::object* successfulAnswer(const boost::json::value& response) {
    const auto* dictionary = response.if_object();
    return dictionary != nullptr && QuomiUtils::boolForKey(*dictionary, "success", false) ? dictionary : nullptr;
}

std::shared_ptr<QuomiApplication> applicationFrom(const boost::json::object& answer) {
    const auto text = [&answer](std::string_view key) { return QuomiUtils::stringForKey(answer, key, std::nullopt); };
    auto application = std::make_shared<QuomiApplication>();
    application->appNamespace = text("namespace_uid");
    application->proximityUUIDNormal = text("normal_proximity_uuid");
    application->proximityUUIDSecure = text("secure_proximity_uuid");
    application->proximityUUIDService = text("service_proximity_uuid");
    application->antiHackingProtocol = text("anti_hacking_protocol");
    application->proximityFarSplitThreshold =
        QuomiUtils::numberForKey(answer, "max_distance_medium_far", kProximityDefaultFarSplitThreshold).doubleValue();
    return application;
}

/// What makes a record of the answer useless; empty when nothing does.
std::string faultOf(const boost::json::object& answer) {
    for (const char* key : {"namespace_uid", "normal_proximity_uuid", "secure_proximity_uuid", "service_proximity_uuid",
                            "anti_hacking_protocol"}) {
        const auto text = QuomiUtils::stringForKey(answer, key, std::nullopt);
        if (!text) return fmt::format("\"{}\" is missing", key);
        if (std::string_view(key).ends_with("_uuid") && !Uuid::parse(*text))
            return fmt::format("\"{}\" is no UUID", key);
    }
    return {};
}

/// A phone can watch by every UUID of the record. Those that are missing are the save's affair.
bool hasReadableUuids(const QuomiApplication& application) {
    const auto isReadable = [](const std::optional<std::string>& text) { return !text || Uuid::parse(*text); };
    return isReadable(application.proximityUUIDNormal) && isReadable(application.proximityUUIDSecure) &&
           isReadable(application.proximityUUIDService);
}

/// The four keys that an answer with places must have.
struct PlacesAnswer {
    const boost::json::array* places;
    const boost::json::object* query;
    std::optional<WallTime> validUntil;
    const boost::json::array* removeIds;

    static std::optional<PlacesAnswer> from(const boost::json::value& response, std::string_view placesKey) {
        const auto* answer = response.if_object();
        if (answer == nullptr) return std::nullopt;
        const PlacesAnswer places{QuomiUtils::arrayForKey(*answer, placesKey),
                                  QuomiUtils::dictionaryForKey(*answer, "query_params"),
                                  QuomiUtils::isoDateForKey(*answer, "valid_until", std::nullopt),
                                  QuomiUtils::arrayForKey(*answer, "remove_ids")};
        const bool isWhole =
            places.places != nullptr && places.query != nullptr && places.validUntil && places.removeIds != nullptr;
        return isWhole ? std::optional(places) : std::nullopt;
    }

    [[nodiscard]] std::vector<std::string> idsToRemove() const {
        std::vector<std::string> ids;
        for (const auto& id : *removeIds) {
            if (id.is_string()) {
                ids.emplace_back(id.get_string());
            } else if (const auto number = numberOf(&id)) {
                ids.push_back(number->text());  // as the identifier of a place would be read
            }
        }
        return ids;
    }
};

/// The places of the array one after the other, parsed as they are asked for: only one of many is in memory at a time.
/// Those that hold too long a text are left out, and the console tells that there were some.
template <class Place>
QuomiData::Source<Place> sourceOf(const boost::json::array& elements, PlaceContext context,
                                  std::shared_ptr<Place> (*parse)(const boost::json::object&, const PlaceContext&),
                                  Console& console) {
    return [element = elements.begin(), end = elements.end(), context = std::move(context), parse, &console,
            tooLong = 0]() mutable -> std::shared_ptr<Place> {
        while (element != end) {
            const auto& record = *element++;
            const auto* dictionary = record.if_object();
            if (dictionary == nullptr) continue;
            if (holdsLongText(record)) {
                ++tooLong;
            } else if (auto place = parse(*dictionary, context)) {
                return place;
            }
        }
        if (tooLong > 0) {
            console.log(fmt::format("Quomi SDK Warning: {} dropped because of a text longer than 64 KiB",
                                    std::exchange(tooLong, 0) == 1 ? "A record was" : "Records were"));
        }
        return nullptr;
    };
}

}  // namespace

bool QuomiDataApiResponseParser::fail(std::optional<Error>* error) const {
    assign(error, errors_.errorWithCode(ErrorCode::responseParsing));
    return false;
}

bool QuomiDataApiResponseParser::parseAndSaveApiApplicationResponseData(const boost::json::value& response,
                                                                        std::optional<Error>* error) {
    const auto* answer = successfulAnswer(response);
    if (answer == nullptr || holdsLongText(response)) return fail(error);
    if (const auto fault = faultOf(*answer); !fault.empty()) {
        platform_.console.log("Quomi SDK Error: The application record cannot be used: " + fault);
    }
    const auto application = applicationFrom(*answer);
    if (!hasReadableUuids(*application)) return fail(error);
    return dataManager_.insertOrUpdateApplication(application, error);
}

bool QuomiDataApiResponseParser::parseAndSaveApiApplicationLimitsResponseData(const boost::json::value& response,
                                                                              std::optional<Error>* error) {
    const auto* answer = successfulAnswer(response);
    if (answer == nullptr) return fail(error);
    const auto status = dataManager_.getSDKStatusInfo(error);
    if (status == nullptr) return false;
    status->globalMaxEvents = QuomiUtils::numberForKey(*answer, "max_events", 0).as<std::int32_t>();
    status->globalMaxEventsPeriod = QuomiUtils::numberForKey(*answer, "max_events_period", 0).as<std::int32_t>();
    status->globalMinInterval = QuomiUtils::numberForKey(*answer, "min_interval", 0).as<std::int32_t>();
    status->trimOutdatedHistoryElements(platform_.clock.now());
    return dataManager_.saveContext(error);
}

bool QuomiDataApiResponseParser::parseAndSaveApiGeofencesResponseData(const boost::json::value& response,
                                                                      std::optional<Error>* error) {
    const auto answer = PlacesAnswer::from(response, "u_geofences");
    if (!answer) return fail(error);
    const auto number = [&answer](std::string_view key) {
        const auto value = QuomiUtils::numberForKey(*answer->query, key, std::optional<Number>());
        return value ? std::optional(value->doubleValue()) : std::nullopt;
    };
    const auto latitude = number("lat");
    const auto longitude = number("lng");
    // A download near an earlier one takes that one's area over.
    std::optional<Error> failure;
    auto region = dataManager_.findClosestGeofenceRegion(latitude.value_or(0), longitude.value_or(0), &failure);
    if (failure) {
        assign(error, std::move(*failure));
        return false;
    }
    if (region == nullptr) region = std::make_shared<QuomiGeofenceRegion>();
    region->latitude = latitude;
    region->longitude = longitude;
    region->radius = number("radius");
    region->validUntil = answer->validUntil;
    if (!dataManager_.insertOrUpdateGeofenceRegion(region, error)) return false;

    const auto geofences = sourceOf(*answer->places, placeContext(), geofenceFrom, platform_.console);
    if (dataManager_.insertOrUpdateGeofences(geofences, *region, &failure) == 0 && failure) {
        assign(error, std::move(*failure));
        return false;
    }
    if (!dataManager_.saveContext(error)) return false;
    const auto ids = answer->idsToRemove();
    if (!ids.empty() && !dataManager_.removeGeofencesWithIds(ids, error)) return false;
    return dataManager_.setLastGeofencesDataUpdateDate(platform_.clock.now(), error);
}

bool QuomiDataApiResponseParser::parseAndSaveApiBeaconsResponseData(const boost::json::value& response,
                                                                    std::optional<Error>* error) {
    const auto answer = PlacesAnswer::from(response, "u_beacons");
    if (!answer) return fail(error);
    if (!answer->places->empty()) {
        std::optional<Error> failure;
        const auto beacons = sourceOf(*answer->places, placeContext(), beaconFrom, platform_.console);
        const auto count = dataManager_.insertOrUpdateBeacons(beacons, &failure);
        if (count == 0 && failure) {
            assign(error, std::move(*failure));
            return false;
        }
        if (count > 0 && !dataManager_.saveContext(error)) return false;
    }
    const auto ids = answer->idsToRemove();
    if (!ids.empty() && !dataManager_.removeBeaconsWithIds(ids, error)) return false;
    return dataManager_.setLastBeaconsDataUpdateDate(platform_.clock.now(), error);
}

PlaceContext QuomiDataApiResponseParser::placeContext() const {
    return {settings_.namespace_.value_or(""), platform_.clock.now(), errors_};
}

}  // namespace quomi
