#include "quomi/core/errors.h"

#include "quomi/platform/localization.h"

#include <map>
#include <string>

#include <gtest/gtest.h>

namespace quomi {
namespace {

/// A catalogue of the host's, by English text.
struct Catalogue final : Localization {
    std::optional<std::string> localizedString(std::string_view english) const override {
        const auto found = translations.find(std::string(english));
        return found == translations.end() ? std::nullopt : std::optional(found->second);
    }
    std::map<std::string, std::string> translations;
};

struct Row {
    std::int64_t code;
    const char* message;
};

const Row kTable[] = {
    {0, "Success / No error"},
    {1, "Unknown error"},
    {2, "SDK not started"},
    {3, "SDK already started"},
    {4,
     "SDK start failed due to data initialization error. Calling removeAllData method should help but will erase all "
     "stored data"},
    {5, "The device does not support region monitoring or significant location change monitoring"},
    {6, "The device does not support iBeacons. Support has been added with iOS 7.0"},
    {7, "The mandatory appNamespace property is not set"},
    {8, "The geofencing features of the SDK are disabled, see geofencesEnabled property"},
    {9, "The beacons features of the SDK are disabled, see beaconsEnabled property"},
    {200, "Generic action error, related to actions execution"},
    {201,
     "Data for entered region does not exist. It might have been removed after registering and before entering the "
     "location"},
    {202, "Data for region not available, start date is in the future"},
    {203, "Data for region not available, end date is in the past"},
    {204, "Data for region not available, schedule indicates disabled"},
    {400, "Generic network error, related to web service API"},
    {401, "API request parameters error"},
    {402, "API response parsing error"},
    {403, "Tried to launch a second geofences download request while the previous one hadn't finished yet"},
    {404, "Regions downloading received != 200 HTTP status code response"},
    {405, "JSON object returned by HTTP request for notify_server action is invalid"},
    {600, "Generic data error, related to data storage"},
    {601,
     "Could not migrate storage store. Calling removeAllData method should help but will cause to destroy all stored "
     "data"},
    {602, "Could not delete old storage store"},
    {603, "Could not open persistent storage file"},
    {604, "Expected a directory and found a file during persistent storage directory creation"},
    {605, "Predicate parsing error"},
    {606, "Attempted to insert/update data while previously started attempt hasn't yet finished"},
    {607, "Unable to add nil rule and action object"},
    {608, "Unable to add nil action object"},
    {609, "Removing local data failed"},
    {800, "Generic location error, related to location services"},
    {801, "Location services are not available"},
    {802, "Region monitoring is not available on the device"},
    {1000, "Generic beacon error, related to beacons management"},
    {1001, "Beacon manager already started"},
    {1002, "Beacon manager not started"},
};

std::string twice(const std::string& message) {
    return message + ". " + message;
}

TEST(Errors, EveryCodeHasItsMessageAndNoOtherHasOne) {
    const Catalogue catalogue;
    const QuomiErrors errors(catalogue);
    const auto* row = std::begin(kTable);
    for (std::int64_t code = -10; code < 1100; ++code) {
        const bool isKnown = row != std::end(kTable) && row->code == code;
        EXPECT_EQ(errors.errorMessageForCode(code), isKnown ? row->message : "") << code;
        if (!isKnown) continue;
        EXPECT_EQ(errors.errorWithCode(code),
                  (Error{"QuomiErrorDomain", code, {{"NSLocalizedDescription", twice(row->message)}}}));
        ++row;
    }
    EXPECT_EQ(row, std::end(kTable));
}

TEST(Errors, DescriptionIsMessageAndAddition) {
    const Catalogue catalogue;
    const QuomiErrors errors(catalogue);
    const struct {
        std::int64_t code;
        std::optional<std::string_view> addition;
        const char* description;
    } rows[] = {
        {2, "why not", "SDK not started. why not"},
        {2, "", "SDK not started. "},
        {2, std::nullopt, "SDK not started. (null)"},
        {2, "{} %@", "SDK not started. {} %@"},
        {205, "lost", ". lost"},
    };
    for (const auto& row : rows) {
        const auto error = errors.errorWithCode(row.code, row.addition);
        EXPECT_EQ(error.code, row.code);
        EXPECT_EQ(error.localizedDescription(), row.description);
        EXPECT_EQ(error.userInfo.size(), 1U);
    }
    for (const std::int64_t unknown : {10, 205, 406, 610, 803, 1003}) {
        EXPECT_EQ(errors.errorWithCode(unknown).code, unknown);
        EXPECT_EQ(errors.errorWithCode(unknown).localizedDescription(), ". ");
    }
}

TEST(Errors, GivenInfoIsKeptAsItIs) {
    const Catalogue catalogue;
    const QuomiErrors errors(catalogue);
    EXPECT_EQ(errors.errorWithCodeAndInfo(601, {}), (Error{"QuomiErrorDomain", 601, {}}));
    const boost::json::object info{{"NSLocalizedDescription", "mine"}, {"file", "x"}};
    EXPECT_EQ(errors.errorWithCodeAndInfo(601, info), (Error{"QuomiErrorDomain", 601, info}));
}

TEST(Errors, HostTranslatesByTheEnglishText) {
    Catalogue catalogue;
    catalogue.translations = {{"SDK not started", "SDK nicht gestartet"}, {"", "Language: de"}};
    const QuomiErrors errors(catalogue);
    EXPECT_EQ(errors.errorWithCode(ErrorCode::notStarted).localizedDescription(), twice("SDK nicht gestartet"));
    EXPECT_EQ(errors.errorWithCode(ErrorCode::notStarted, "SDK not started").localizedDescription(),
              "SDK nicht gestartet. SDK not started");
    EXPECT_EQ(errors.errorMessageForCode(3), "SDK already started");
    EXPECT_EQ(errors.errorMessageForCode(10), "") << "a catalogue's header is no message";
}

}  // namespace
}  // namespace quomi
