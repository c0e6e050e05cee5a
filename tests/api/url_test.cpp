#include "quomi/api/url.h"

#include "tests/support/prelude.h"

namespace quomi {
namespace {

TEST(Url, JoinsBaseAndPath) {
    for (const auto& [base, joined] : std::vector<std::pair<std::string, std::string>>{
             {"https://a.test", "https://a.test/u_x.json"},
             {"https://a.test/", "https://a.test/u_x.json"},
             {"https://a.test/api/v1", "https://a.test/api/v1/u_x.json"},
             {"https://a.test/api/v1/", "https://a.test/api/v1/u_x.json"},
             {"http://a.test:8080", "http://a.test:8080/u_x.json"},
             {"http://[::1]:8080/api", "http://[::1]:8080/api/u_x.json"}}) {
        EXPECT_EQ(joinUrl(base, "/u_x.json"), joined);
        EXPECT_EQ(normalizedHttpUrl(joined), joined);
    }
}

TEST(Url, QueryValuesArriveAsTheyAre) {
    for (const auto& [value, encoded] :
         std::vector<std::pair<std::string, std::string>>{{"", ""},
                                                          {"aZ09-._~", "aZ09-._~"},
                                                          {"a b", "a%20b"},
                                                          {"a/b?c#d&e=f+g%h", "a%2Fb%3Fc%23d%26e%3Df%2Bg%25h"},
                                                          {"b\xC3\xBC"
                                                           "cher",
                                                           "b%C3%BCcher"},
                                                          {"\xF0\x9F\x9B\x8D", "%F0%9F%9B%8D"},
                                                          {std::string("\0\n\x7F", 3), "%00%0A%7F"}}) {
        const std::string url = "https://a.test/q?n=" + encoded;
        EXPECT_EQ(withQuery("https://a.test/q", {{"n", value}}), url);
        EXPECT_EQ(normalizedHttpUrl(url), url);
    }
    EXPECT_EQ(withQuery("https://a.test/q", {}), "https://a.test/q");
    EXPECT_EQ(withQuery("https://a.test/q?z=1", {{"a&", "1"}, {"b", "2"}}), "https://a.test/q?z=1&a%26=1&b=2");
}

TEST(Url, ForbiddenCharactersAreEncodedAndTheRestStaysAsItIs) {
    for (const auto& [url, normalized] : std::vector<std::pair<std::string, std::optional<std::string>>>{
             {"https://a.test/my shop/x", "https://a.test/my%20shop/x"},
             {"https://a.test/\xC3\xBC/\"<>\\^`{|}", "https://a.test/%C3%BC/%22%3C%3E%5C%5E%60%7B%7C%7D"},
             {"https://a.test/50%/%41%2f", "https://a.test/50%/%41%2f"},
             {"https://a.test/a\nHost: b", "https://a.test/a%0AHost:%20b"},
             {"HTTP://A.Test", "HTTP://A.Test"},
             {"http://127.0.0.1:80/", "http://127.0.0.1:80/"},
             {"", std::nullopt},
             {"a.test/x", std::nullopt},
             {"/x", std::nullopt},
             {"ftp://a.test/x", std::nullopt},
             {"file:///etc/passwd", std::nullopt},
             {"http://", std::nullopt},
             {"http:///shop", std::nullopt},
             {"https://:80/", std::nullopt},
             {"http://a.test:99999/", std::nullopt},
             {"http://a.test:port/", std::nullopt},
             {"http://[::1/", std::nullopt},
             {" http://a.test", std::nullopt},
             {"javascript:alert(1)", std::nullopt}}) {
        EXPECT_EQ(normalizedHttpUrl(url), normalized) << url;
    }
}

TEST(Url, OriginIsWhatOneConnectionBelongsTo) {
    for (const auto& [url, origin] :
         std::vector<std::pair<std::string, std::string>>{{"https://a.test", "https://a.test"},
                                                          {"HTTPS://A.Test/Path", "https://a.test"},
                                                          {"http://a.test:8080?q=/", "http://a.test:8080"},
                                                          {"http://a.test#/", "http://a.test"},
                                                          {"http://[FE80::1]:80/x", "http://[fe80::1]:80"}}) {
        EXPECT_EQ(originOf(url), origin);
    }
}

}  // namespace
}  // namespace quomi
