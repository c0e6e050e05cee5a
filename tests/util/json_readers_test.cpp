#include "quomi/util/json_readers.h"

#include "tests/support/prelude.h"
#include "tests/util/random_text.h"

namespace quomi {
namespace {

using namespace QuomiUtils;

boost::json::object dictionary(std::string_view text) {
    return parseJson(text).value().get_object();
}

TEST(ParseJson, TakesExactlyOneValue) {
    const auto deep = [](std::size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); };
    const Strings good{"{\"a\":[1,2.5,null,true]}", " 3 ", "\"text\"", "1e308", deep(64)};
    Strings bad =
        parts("{} x | {}{} | {\"a\":1,} | [1e999] | {\"a\":{\"b\":[-1e400]}} | 1e99999999999 | NaN | \"\xff\"");
    bad.insert(bad.end(), {"", "\"\\ud800\"", deep(65), std::string(100'000, '[')});
    for (const Strings* texts : std::initializer_list<const Strings*>{&good, &bad}) {
        for (const auto& text : *texts) {
            std::optional<Error> error;
            EXPECT_EQ(parseJson(text, &error).has_value(), texts == &good) << text.substr(0, 40);
            EXPECT_EQ(error.has_value(), texts == &bad) << text.substr(0, 40);
        }
    }
}

TEST(ParseJson, OfAStrangerTakesBoundedMemory) {
    const auto many = [](std::string_view piece, std::size_t length = 1 << 20) {
        std::string text = "[";
        while (text.size() < length) text += piece;
        return text.append("0]");
    };
    for (const char* piece : {"0,", "[],", "{},", "\"\",", "[[]],", "{\"\":0},", "[0,0],"}) {
        std::optional<Error> error;
        EXPECT_FALSE(parseForeignJson(many(piece), &error)) << piece;
        EXPECT_EQ(error.value().code, kJSONErrorTooLarge) << piece;
    }
    EXPECT_TRUE(parseForeignJson(many("12345,", 100'000))) << "identifiers to remove";
    const auto text = many(R"({"id":"5d1b2c7e","name":"Shop","latitude":52.5,"rules":["on_entry"],"enabled":true},)");
    auto value = parseForeignJson(text).value();
    EXPECT_EQ(value, parseJson(text));
    auto& first = value.get_array()[0];
    for (int i = 0; i < 1000; ++i) first.get_object()[std::to_string(i)] = std::string(1000, 'x');
    const auto kept = first;
    value = nullptr;
    EXPECT_EQ(kept.at("name"), "Shop") << "lives on, and may grow";
    EXPECT_FALSE(parseForeignJson("{} x"));
    EXPECT_FALSE(parseForeignJson("[1e999]"));
}

TEST(ParseJson, SurvivesDamagedText) {
    RandomText random(1);
    for (int i = 0; i < 20'000; ++i) {
        const auto value = parseJson(random.like(R"({"a":[1,-2.5e3,null,true],"b":{"c":"é\u00e9"}})"));
        if (value) {
            ASSERT_TRUE(parseJson(boost::json::serialize(*value)));
        }
    }
}

TEST(Readers, BoolTakesNumbersOnly) {
    const auto values = dictionary(R"({"yes":true,"no":false,"two":2,"half":0.5,"zero":0.0,"text":"1","null":null})");
    EXPECT_TRUE(boolForKey(values, "yes", false));
    EXPECT_FALSE(boolForKey(values, "no", true));
    EXPECT_TRUE(boolForKey(values, "two", false));
    EXPECT_TRUE(boolForKey(values, "half", false));
    EXPECT_FALSE(boolForKey(values, "zero", true));
    for (const char* key : {"text", "null", "missing"}) {
        EXPECT_FALSE(boolForKey(values, key, false)) << key;
        EXPECT_TRUE(boolForKey(values, key, true)) << key;
    }
}

TEST(Readers, NumberTakesNumbersAndTexts) {
    const auto values = dictionary(
        R"({"n":7,"d":-0.25,"yes":true,"big":18446744073709551615,"text":"12.5","word":"abc","blanks":"  ","array":[1],
            "null":null})");
    EXPECT_EQ(numberForKey(values, "n", std::nullopt), Number(7));
    EXPECT_EQ(numberForKey(values, "d", std::nullopt), Number(-0.25));
    EXPECT_EQ(numberForKey(values, "yes", std::nullopt), Number(1));
    EXPECT_EQ(numberForKey(values, "big", 0).as<std::int64_t>(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(numberForKey(values, "text", std::nullopt), Number(12.5));
    EXPECT_EQ(numberForKey(values, "word", 9), Number(0));
    for (const char* key : {"blanks", "array", "null", "missing"}) {
        EXPECT_EQ(numberForKey(values, key, std::nullopt), std::nullopt) << key;
        EXPECT_EQ(numberForKey(values, key, 10.5), Number(10.5)) << key;
    }
}

TEST(Readers, StringDescribesWhatIsNoText) {
    const auto values = dictionary(
        R"({"text":" a ","n":-12,"d":2.50,"whole":3.0,"yes":true,"no":false,"array":[1,"b"],"object":{"k":null},
            "null":null})");
    const std::pair<const char*, const char*> cases[] = {
        {"text", " a "}, {"n", "-12"}, {"d", "2.5"},           {"whole", "3"},
        {"yes", "1"},    {"no", "0"},  {"array", "[1,\"b\"]"}, {"object", "{\"k\":null}"}};
    for (const auto& [key, expected] : cases) EXPECT_EQ(stringForKey(values, key, "default"), expected) << key;
    EXPECT_EQ(stringForKey(values, "null", "default"), "default");
    EXPECT_EQ(stringForKey(values, "missing", std::string("default")), "default");
    EXPECT_EQ(stringForKey(values, "missing", std::nullopt), std::nullopt);
}

TEST(Readers, ContainersAndDatesKeepToTheirTypes) {
    const auto values =
        dictionary(R"({"array":[1],"object":{"a":1},"date":"1970-01-01T00:00:01Z","bad":"soon","n":5})");
    const boost::json::array spareArray;
    const boost::json::object spareObject;
    const WallTime spareDate{std::chrono::hours(1)};
    EXPECT_EQ(arrayForKey(values, "array")->size(), 1U);
    EXPECT_EQ(arrayForKey(values, "object"), nullptr);
    EXPECT_EQ(arrayForKey(values, "missing", &spareArray), &spareArray);
    EXPECT_EQ(dictionaryForKey(values, "object")->size(), 1U);
    EXPECT_EQ(dictionaryForKey(values, "array", &spareObject), &spareObject);
    EXPECT_EQ(isoDateForKey(values, "date", spareDate), WallTime{std::chrono::seconds(1)});
    EXPECT_EQ(isoDateForKey(values, "bad", spareDate), std::nullopt);
    EXPECT_EQ(isoDateForKey(values, "n", spareDate), spareDate);
    EXPECT_EQ(isoDateForKey(values, "missing", std::nullopt), std::nullopt);
}

TEST(ReplaceNSNull, EntersDictionariesButNotArrays) {
    const auto values = dictionary(R"({"z":null,"a":{"b":null,"c":{"d":null,"e":1}},"list":[null,{"f":null}]})");
    EXPECT_EQ(boost::json::serialize(replaceNSNullFromDictionnary(values, std::nullopt)),
              R"({"a":{"c":{"e":1}},"list":[null,{"f":null}]})");
    EXPECT_EQ(boost::json::serialize(replaceNSNullFromDictionnary(values, boost::json::value("-"))),
              R"({"z":"-","a":{"b":"-","c":{"d":"-","e":1}},"list":[null,{"f":null}]})");
}

}  // namespace
}  // namespace quomi
