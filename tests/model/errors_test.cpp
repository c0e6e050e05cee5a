#include "quomi/model/errors.h"

#include "quomi/platform/localization.h"
#include "tests/support/prelude.h"

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

std::string twice(const std::string& message) {
    return message + ". " + message;
}

TEST(Errors, DescriptionIsMessageAndAddition) {
    const Catalogue catalogue;
    const QuomiErrors errors(catalogue);
    const Table<std::int64_t, std::optional<std::string_view>, const char*> rows = {
        {2, "why not", "SDK not started. why not"},
        {2, "", "SDK not started. "},
        {2, std::nullopt, "SDK not started. (null)"},
        {2, "{} %@", "SDK not started. {} %@"},
        {205, "lost", ". lost"},
    };
    for (const auto& [code, addition, description] : rows) {
        const auto error = errors.errorWithCode(code, addition);
        EXPECT_EQ(error.code, code);
        EXPECT_EQ(error.localizedDescription(), description);
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
