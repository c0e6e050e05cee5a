#include "quomi/api/uploader.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/platform/clock.h"
#include "quomi/sdk/event_upload.h"
#include "tests/durability/scenarios.h"

#include <deque>

namespace quomi::test {

namespace {

constexpr int kSeeds = 51;   // one more than a batch
constexpr int kFirst = 100;  // of the process that is killed
constexpr int kOfNextLaunch = 120;

/// With an inner object: the beginning of its line may end with a brace and is no event all the same.
boost::json::object event(int number) {
    return {{"n", number}, {"in", {{"é", boost::json::object()}}}, {"x", 1}};
}

/// Fifty of them are more than a short log.
boost::json::object longEvent(int number) {
    return {{"n", number}, {"x", std::string(QuomiDLogger::kShortLog / QuomiDLogger::kBatchSize, 'x')}};
}

/// A server that accepts what it is sent when it is told to, and keeps it; but for one event that it refuses for good.
class Server final : public Uploader {
public:
    Server(Witness& witness, std::optional<int> refused) : witness_(witness), refused_(refused) {}

    void sendDLogEvent(const QuomiDLog&, std::function<void()>, std::function<void(const Error&)>) override {}
    void sendBatteryAlert(const BatteryAlert&, std::function<void()>, std::function<void(const Error&)>) override {}
    void sendBatchOfLogEvents(const std::vector<QuomiDLog>& records, std::function<void()> success,
                              std::function<void(const Error&)> failure) override {
        if (refused_ && std::ranges::any_of(records, [this](const auto& record) { return isRefused(record); })) {
            waiting_.push_back([failure = std::move(failure)] { failure(Error{kHTTPErrorDomain, 413, {}}); });
            return;
        }
        witness_.handedOver = witness_.accepted;
        if (first.empty()) first = records;
        for (const auto& record : records) take(record);
        waiting_.push_back(std::move(success));
    }
    void answerAll() {
        for (; !waiting_.empty(); waiting_.pop_front()) waiting_.front()();
    }
    [[nodiscard]] bool isRefused(const QuomiDLog& record) const {
        return boost::json::parse(record.logData.value()) == event(*refused_);
    }

    std::vector<QuomiDLog> first;
    std::string strange;  ///< what nobody logged

private:
    void take(const QuomiDLog& record) {
        boost::system::error_code failure;
        const auto data = boost::json::parse(record.logData.value(), failure);
        const auto* number = data.is_object() ? data.get_object().if_contains("n") : nullptr;
        const auto known = [&](const auto& make) { return data == make(number->template to_number<int>()); };
        if (number != nullptr && (known(event) || known(longEvent))) {
            ++witness_.uploads.at(number->to_number<std::size_t>());
        } else {
            strange = record.logData.value();
        }
    }

    Witness& witness_;
    const std::optional<int> refused_;
    std::deque<std::function<void()>> waiting_;
};

/// The part of the SDK that logs and uploads, in one launch of the app.
class Launch {
public:
    Launch(const Platform& platform, Witness& witness, std::optional<int> refused = std::nullopt)
        : platform_(platform), witness_(witness), server_(witness, refused), loop_(platform, debugLog_) {
        loop_.setUploader(&server_);
    }

    void log(int number, boost::json::object (*make)(int) = event) {
        if (loop_.logEvent(make(number), platform_.clock.now())) {
            witness_.accepted.at(static_cast<std::size_t>(number)) = true;
        }
    }
    void upload() {
        loop_.uploadLogsInBatches();
        server_.answerAll();
    }
    [[nodiscard]] const Server& server() const { return server_; }

private:
    const Platform& platform_;
    Witness& witness_;
    Server server_;
    DebugLog debugLog_{platform_.files, platform_.clock, [] { return false; }};
    EventUploadLoop loop_;
};

void logSeeds(const Platform& platform, LogLength length) {
    Witness witness;
    Launch launch(platform, witness);
    for (int number = 0; number < kSeeds; ++number) launch.log(number, length == LogLength::isLong ? longEvent : event);
    if (!witness.accepted[kSeeds - 1]) throw std::runtime_error("the seeds could not be logged");
    std::error_code error;  // of a long log that is gone
    platform.files.replace(platform.files.documentsDirectory() / kQuomiBODrainOffsetFileName, "30000", error);
}

void logAndUpload(const Platform& platform, Witness& witness) {
    std::fill_n(witness.accepted.begin(), kSeeds, true);
    witness.handedOver = witness.accepted;
    Launch launch(platform, witness);
    launch.log(kFirst);
    launch.upload();
    launch.log(kFirst + 1);
    launch.upload();
    launch.log(kFirst + 2);
}

void logAndBeRefused(const Platform& platform, Witness& witness) {
    Launch launch(platform, witness, kFirst);
    launch.log(kFirst);
    launch.log(kFirst + 1);
    for (std::size_t refusal = 0; refusal < QuomiDLogger::kMostRefusals; ++refusal) launch.upload();
}

/// An event that was set aside is not lost.
void countRefused(const Platform& platform, Witness& witness) {
    std::error_code error;
    const auto file = platform.files.documentsDirectory() / kQuomiBORefusedLogFileName;
    const auto refused =
        QuomiDLog::quomiDLogsFromString(platform.files.read(file, error).value_or(""), platform.console);
    for (const auto& record : refused) {
        const auto number = boost::json::parse(record.logData.value()).at("n").to_number<std::size_t>();
        witness.uploads.at(number) = std::max<std::uint8_t>(witness.uploads.at(number), 1);
    }
}

std::vector<QuomiDLog> batchFile(const Platform& platform) {
    QuomiDLogger logger(platform.files, platform.clock, platform.console);
    return logger.getBatchOfQuomiDLogsFromTmpFile().value_or(std::vector<QuomiDLog>());
}

/// Launches the app again and lets it send all that it has.
std::string complaintOfLaunch(const Platform& platform, Witness& witness, LogsFirst logsFirst) {
    const auto batch = batchFile(platform);
    Launch launch(platform, witness);
    if (logsFirst == LogsFirst::yes) launch.log(kOfNextLaunch);
    launch.upload();
    if (logsFirst == LogsFirst::no) launch.log(kOfNextLaunch);
    launch.upload();
    if (!batch.empty() && launch.server().first != batch) return "the batch in the batch file was not sent first";
    if (!launch.server().strange.empty()) return "nobody logged " + launch.server().strange;
    return "";
}

std::string complaintOfUploads(const Witness& witness, const std::array<bool, Witness::kEvents>& owed,
                               int mostUploads) {
    std::size_t repeats = 0;
    for (std::size_t number = 0; number < Witness::kEvents; ++number) {
        const int uploads = witness.uploads[number];
        if (owed[number] && uploads == 0) return fmt::format("lost {}", number);
        if (uploads > mostUploads) return fmt::format("{} arrived {} times", number, uploads);
        repeats += uploads > 1 ? 1 : 0;
    }
    if (mostUploads == 2 && repeats > QuomiDLogger::kBatchSize) return "more than a batch arrived twice";
    if (!witness.accepted[kOfNextLaunch]) return "the next launch could not log";
    return witness.uploads[kOfNextLaunch] == 1 ? "" : "the next launch's own event was affected";
}

}  // namespace

Scenario loggingAndUploading(LogsFirst logsFirst, LogLength length) {
    return {.name = fmt::format("events{}{}", length == LogLength::isLong ? ", a long log" : "",
                                logsFirst == LogsFirst::yes ? ", the next launch logs first" : ""),
            .prepare = [length](const Platform& platform) { logSeeds(platform, length); },
            .act = logAndUpload,
            .verify =
                [logsFirst](const Platform& platform, const Witness& seen) {
                    Witness witness = seen;
                    std::fill_n(witness.accepted.begin(), kSeeds, true);  // it may have been killed at its first call
                    const auto complaint = complaintOfLaunch(platform, witness, logsFirst);
                    return complaint.empty() ? complaintOfUploads(witness, witness.accepted, 2) : complaint;
                },
            .everyByte = length == LogLength::isShort};
}

Scenario beingRefused() {
    return {.name = "an event is refused",
            .prepare = {},
            .act = logAndBeRefused,
            .verify = [](const Platform& platform, const Witness& seen) {
                Witness witness = seen;
                const auto complaint = complaintOfLaunch(platform, witness, LogsFirst::no);
                countRefused(platform, witness);
                return complaint.empty() ? complaintOfUploads(witness, witness.accepted, 2) : complaint;
            }};
}

std::string complaintAfterPowerLoss(const Platform& platform, Witness witness, int mostUploads, LogLength length) {
    auto owed = witness.handedOver;
    if (length == LogLength::isLong) std::fill(owed.begin() + kSeeds, owed.end(), false);
    const auto complaint = complaintOfLaunch(platform, witness, LogsFirst::no);
    return complaint.empty() ? complaintOfUploads(witness, owed, mostUploads) : complaint;
}

}  // namespace quomi::test
