#include "tools/quomi/backoffice/backoffice_command.h"

#include "tests/support/prelude.h"
#include "tools/quomi/backoffice/backoffice.h"

#include <csignal>
#include <future>

#include <httplib.h>

namespace quomi::tool {
namespace {

using testing::MatchesRegex;

const std::string kExample = QUOMI_SOURCE_DIR "/examples/shop/campaign.json";

int portIn(const std::string& text) {
    const std::string_view before = "http://127.0.0.1:";
    const std::size_t at = text.find(before);
    return at == std::string::npos ? 0 : std::stoi(text.substr(at + before.size()));
}

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

/// Runs the command; `whileRunning` is called with what it has printed so far, once it serves.
Outcome run(const std::vector<std::string>& args, const std::function<void(const std::string&)>& whileRunning = {}) {
    std::ostringstream out;
    std::ostringstream err;
    BackofficeCommand command([&] {
        if (whileRunning) whileRunning(out.str());
    });
    const int status = command.run(args, out, err);
    return {status, out.str(), err.str()};
}

TEST(BackofficeCommand, PrintsItsAddressAndEachRequest) {
    const Outcome outcome = run({kExample, "--port", "0"}, [](const std::string& printed) {
        httplib::Client client("127.0.0.1", portIn(printed));
        EXPECT_EQ(client.Get("/u_applications/query.json?namespace=corner-and-oak")->status, 200);
        EXPECT_EQ(client.Get("/\x1b[2J")->status, 404);
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out, MatchesRegex("http://127.0.0.1:[0-9]+ serves .*\n"
                                          "..:..:.. GET /u_applications/query.json.namespace=corner-and-oak 200\n"
                                          "..:..:.. GET .*404\n"));
    EXPECT_EQ(outcome.out.find('\x1b'), std::string::npos) << "foreign bytes reach the terminal";
}

TEST(BackofficeCommand, GoesOnWithTheInboxOfItsFile) {
    const auto file = std::filesystem::temp_directory_path() / "quomi_backoffice_kept.sqlite";
    std::filesystem::remove(file);
    const std::string body =
        R"({"namespace": "corner-and-oak", "udid": "U", "push_token": "0123456789abcdef0123456789abcdef"})";
    for (const char* tokens : {"push tokens: 1,", "push tokens: 2,"}) {
        const Outcome outcome =
            run({kExample, "--port", "0", "--keep", file.string()}, [&](const std::string& printed) {
                httplib::Client client("127.0.0.1", portIn(printed));
                EXPECT_EQ(client.Post("/u_app_users/register_push_token.json", body, "application/json")->status, 200);
                EXPECT_THAT(client.Get("/")->body, HasSubstr(tokens));
            });
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_EQ(outcome.out.find("456789abcdef"), std::string::npos) << outcome.out;
    }
    std::filesystem::remove(file);
    const Outcome refused = run({kExample, "--port", "0", "--keep", "/nowhere/kept.sqlite"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("/nowhere/kept.sqlite: expected a file"));
}

TEST(BackofficeCommand, RefusesBadArgumentsAndCampaigns) {
    const auto broken = std::filesystem::temp_directory_path() / "quomi_backoffice_broken.json";
    std::ofstream(broken) << R"({"application": {"namespace_uid": "a"}, "limits": {"max_events": "3"}})";
    const Table<std::vector<std::string>, int, std::string> cases = {
        {{}, 2, "campaign is required"},
        {{kExample, "--port", "70000"}, 2, "70000"},
        {{kExample, "--port", "http"}, 2, "http"},
        {{kExample, "more"}, 2, "more"},
        {{kExample, "--prot", "1"}, 2, "--prot"},
        {{"/nowhere.json"}, 2, "/nowhere.json: no such file"},
        {{broken.string()}, 2, "$.limits.max_events: expected an integer"},
    };
    for (const auto& [args, status, err] : cases) {
        const Outcome outcome = run(args, [](const std::string&) { ADD_FAILURE() << "it ran"; });
        EXPECT_EQ(outcome.status, status) << err;
        EXPECT_THAT(outcome.err, HasSubstr(err));
        EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
        EXPECT_EQ(outcome.out, "");
    }
    std::filesystem::remove(broken);
    const Outcome help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("--port"));
}

TEST(BackofficeCommand, SaysThatThePortIsTaken) {
    Backoffice other(*simulated::Campaign::load(kExample));
    ASSERT_TRUE(other.start());
    const Outcome outcome = run({kExample, "--port", std::to_string(other.port())});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("127.0.0.1:" + std::to_string(other.port())));
}

TEST(BackofficeCommand, EndsOnInterruptAndTermination) {
    sigset_t signals;
    sigset_t before;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signals, &before), 0);
    for (const int signal : {SIGINT, SIGTERM}) {
        std::ostringstream out;
        std::ostringstream err;
        auto status = std::async(std::launch::async, [&] {
            return runBackoffice({kExample, "--port", "0"}, out, err);
        });
        ::kill(::getpid(), signal);
        EXPECT_EQ(status.get(), 0) << err.str();
        EXPECT_GT(portIn(out.str()), 0);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace
}  // namespace quomi::tool
