#include "tools/quomi/backoffice/backoffice_command.h"

#include "hosts/simulated/campaign/campaign.h"
#include "quomi/util/dates.h"
#include "tools/quomi/backoffice/backoffice.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace quomi::tool {
namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

struct Options {
    std::string campaign;
    int port = BackofficeCommand::kDefaultPort;
    std::optional<std::string> keep;
};

/// SIGINT and SIGTERM, kept pending for this thread and those that it starts while this lives.
class HeldSignals {
public:
    HeldSignals() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    }
    ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    void wait() const {
        int signal = 0;
        sigwait(&signals_, &signal);
    }

private:
    sigset_t signals_{};
    sigset_t before_{};
};

/// The exit status, when the arguments already decide it.
std::optional<int> read(std::vector<std::string> args, Options& options, std::ostream& out, std::ostream& err) {
    CLI::App app(
        "Serves a campaign file to SDKs on this machine until it is interrupted. Its page at / explains the endpoints.",
        "quomi backoffice");
    app.add_option("campaign", options.campaign, "The campaign file")->required()->type_name("CAMPAIGN.json");
    app.add_option("--port", options.port, "The port of 127.0.0.1 to listen on, 0 for any free one")
        ->type_name("N")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--keep", options.keep, "Keep what devices send in this SQLite file, and go on with what is in it")
        ->type_name("FILE.sqlite");
    std::ranges::reverse(args);  // as the library wants them
    try {
        app.parse(std::move(args));
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return 0;
    } catch (const CLI::ParseError& error) {
        err << "quomi backoffice: " << neutralised(error.what()) << '\n';
        return kUsage;
    }
    return std::nullopt;
}

std::string timeOfDay() {
    const auto now = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
    return QuomiUtils::descriptionOfDate(now).substr(11, 8);
}

/// The lines of the requests and what else is printed, each whole.
class Printer {
public:
    explicit Printer(std::ostream& out) : out_(out) {}

    void line(std::string_view text) {
        const std::lock_guard lock(mutex_);
        out_ << text << std::endl;
    }
    void request(const RequestLine& request) {
        line(fmt::format("{} {} {} {}", timeOfDay(), neutralised(request.method), neutralised(request.path),
                         request.status));
    }

private:
    std::mutex mutex_;
    std::ostream& out_;
};

}  // namespace

BackofficeCommand::BackofficeCommand(WaitForStop waitForStop) : waitForStop_(std::move(waitForStop)) {}

int BackofficeCommand::run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    Options options;
    if (const auto status = read(args, options, out, err)) return *status;
    std::optional<Error> error;
    std::optional<simulated::Campaign> campaign = simulated::Campaign::load(options.campaign, &error);
    if (!campaign) {
        err << "quomi backoffice: " << error->localizedDescription().value_or("") << '\n';
        return kUsage;
    }
    std::unique_ptr<Inbox> inbox = options.keep ? Inbox::open(*options.keep, &error) : std::make_unique<Inbox>();
    if (!inbox) {
        err << "quomi backoffice: " << neutralised(error->localizedDescription().value_or("")) << '\n';
        return kUsage;
    }
    std::optional<HeldSignals> signals;
    if (!waitForStop_) signals.emplace();
    Printer printer(out);
    Backoffice backoffice(
        std::move(*campaign), [&](const RequestLine& request) { printer.request(request); }, std::move(inbox));
    if (!backoffice.start(options.port)) {
        err << fmt::format("quomi backoffice: cannot listen on 127.0.0.1:{}; is the port in use?\n", options.port);
        return kFailed;
    }
    printer.line(fmt::format("{} serves {}; stop it with Ctrl-C", backoffice.baseUrl(), options.campaign));
    signals ? signals->wait() : waitForStop_();
    backoffice.stop();
    return 0;
}

int runBackoffice(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    return BackofficeCommand().run(args, out, err);
}

}  // namespace quomi::tool
