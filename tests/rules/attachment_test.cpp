#include "quomi/rules/attachment.h"

#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/platform/files.h"
#include "tests/support/prelude.h"

namespace quomi::test {
namespace {

using simulated::ScriptedAnswer;
using simulated::SimulatedPhone;

TEST(AttachmentFileName, IsAPlainNameWhateverTheUrlSays) {
    const std::string base = "https://shop.test/";
    const std::string longName(300, 'x');
    std::string manyUmlauts;
    for (int i = 0; i < 100; ++i) manyUmlauts += "%C3%A4";
    std::string keptUmlauts;
    for (int i = 0; i < 62; ++i) keptUmlauts += "ä";
    const Table<std::string, std::string> cases = {
        {base + "a/b/coffee%20cup.png?size=2#top", "coffee cup.png"},
        {base + "offers/", "offers"},
        {base + "b%C3%A4r.png", "bär.png"},
        {base + "100%.png", "100%.png"},
        {"https://shop.test", "image"},
        {base, "image"},
        {base + "?x=/../y", "image"},
        {base + "..", "image"},
        {base + "a/%2e%2e", "image"},
        {base + "...", "image"},
        {base + "..%2F..%2Fetc%2Fpasswd", ".._.._etc_passwd"},
        {base + "..%5C..%5Cboot.ini", ".._.._boot.ini"},
        {base + "%2Fetc%2Fpasswd", "_etc_passwd"},
        {base + "a%00.png%0Ab%7F", "a_.png_b_"},
        {base + "a%22%3A.png", "a__.png"},
        {base + "a%FF%C3.png", "a__.png"},
        {base + longName + ".png", longName.substr(0, 124) + ".png"},
        {base + manyUmlauts + ".png", keptUmlauts + ".png"},
    };
    for (const auto& [url, name] : cases) EXPECT_EQ(attachmentFileName(url), "QuomiAttachment+" + name) << url;
}

class AttachmentDownloadsTest : public testing::Test {
protected:
    void download(const std::string& url) {
        downloads_.download(url, [this](const auto& file) {
            names_.push_back(file ? file->lexically_relative(phone_.container()).string() : "nothing");
        });
    }
    void answer(ScriptedAnswer answer) { phone_.transport().answer("GET https://shop.test/a.png", std::move(answer)); }

    SimulatedPhone phone_;
    AttachmentDownloads downloads_{phone_.platform().http, phone_.platform().files};
    std::vector<std::string> names_;
};

TEST_F(AttachmentDownloadsTest, KeepsTheBytesInAFolderOfItsOwnThatIsTheOwnersAlone) {
    const std::string bytes("\x89PNG\0\xFF", 6);
    answer({.body = bytes});
    download("https://shop.test/a.png?x=1");
    EXPECT_THAT(names_, ElementsAre());
    phone_.advanceBy(std::chrono::seconds(1));
    ASSERT_THAT(names_, ElementsAre("Library/Caches/QuomiAttachments/QuomiAttachment+a.png"));
    const auto path = phone_.container() / names_.front();
    EXPECT_EQ(contentOf(path), bytes);
    EXPECT_EQ(status(path.parent_path()).permissions(), std::filesystem::perms::owner_all);
}

TEST_F(AttachmentDownloadsTest, EveryFailureIsNoFile) {
    const std::vector<ScriptedAnswer> answers = {
        {.status = 404, .body = "<html>"},
        {.status = 301, .body = "x"},
        {.body = ""},
        {.body = std::string(kLargestAttachment + 1, 'x')},
        {.body = "x", .delay = std::chrono::minutes(5)},
        ScriptedAnswer::failure(HttpFailureKind::connection),
        ScriptedAnswer::failure(HttpFailureKind::tls),
    };
    for (const auto& some : answers) {
        names_.clear();
        answer(some);
        download("https://shop.test/a.png");
        phone_.advanceBy(std::chrono::minutes(2));
        EXPECT_THAT(names_, ElementsAre("nothing")) << some.status << ' ' << some.body.size();
    }
    answer({.body = std::string(kLargestAttachment, 'x')});
    std::filesystem::create_directories(phone_.container() / "Library/Caches");
    std::ofstream(phone_.container() / "Library/Caches/QuomiAttachments") << "a file in the folder's place";
    names_.clear();
    download("https://shop.test/a.png");
    phone_.advanceBy(std::chrono::minutes(2));
    EXPECT_THAT(names_, ElementsAre("nothing"));
}

TEST_F(AttachmentDownloadsTest, CancelledOnesAreNeverHeardOfAndOneMayCancelFromItsEnd) {
    answer({.body = "x"});
    download("https://shop.test/a.png");
    downloads_.cancelAll();
    downloads_.download("https://shop.test/a.png", [this](const auto&) {
        names_.emplace_back("first");
        downloads_.cancelAll();
    });
    download("https://shop.test/a.png");
    phone_.advanceBy(std::chrono::minutes(2));
    EXPECT_THAT(names_, ElementsAre("first"));
}

}  // namespace
}  // namespace quomi::test
