// Several processes of the app use one container.

#include "hosts/posix/files.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/api/uploader.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/platform/clock.h"
#include "quomi/sdk/event_upload.h"
#include "quomi/util/json_readers.h"
#include "tests/support/prelude.h"
#include "tests/support/temporary_directory.h"

#include <atomic>
#include <deque>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quomi::test {
namespace {

constexpr std::size_t kProcesses = 4;
constexpr std::size_t kEventsOfEach = 150;

/// What the server has got, in memory that the processes share.
struct Arrivals {
    std::array<std::atomic<int>, kProcesses * kEventsOfEach> ofEvent{};
};

class SharedArrivals {
public:
    SharedArrivals()
        : memory_(::mmap(nullptr, sizeof(Arrivals), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (memory_ == MAP_FAILED) throw std::bad_alloc();
        arrivals_ = new (memory_) Arrivals();
    }
    SharedArrivals(const SharedArrivals&) = delete;
    SharedArrivals& operator=(const SharedArrivals&) = delete;
    ~SharedArrivals() { ::munmap(memory_, sizeof(Arrivals)); }
    Arrivals* operator->() { return arrivals_; }

private:
    void* memory_;
    Arrivals* arrivals_ = nullptr;
};

class Server final : public Uploader {
public:
    explicit Server(SharedArrivals& arrivals) : arrivals_(arrivals) {}

    void sendDLogEvent(const QuomiDLog&, std::function<void()>, std::function<void(const Error&)>) override {}
    void sendBatteryAlert(const BatteryAlert&, std::function<void()>, std::function<void(const Error&)>) override {}
    void sendBatchOfLogEvents(const std::vector<QuomiDLog>& records, std::function<void()> success,
                              std::function<void(const Error&)>) override {
        for (const auto& record : records) {
            const auto number = parseJson(record.logData.value()).value().at("n").to_number<std::size_t>();
            ++arrivals_->ofEvent.at(number);
        }
        waiting_.push_back(std::move(success));
    }
    void answerAll() {
        for (; !waiting_.empty(); waiting_.pop_front()) waiting_.front()();
    }

private:
    SharedArrivals& arrivals_;
    std::deque<std::function<void()>> waiting_;
};

void logAndUpload(const std::filesystem::path& container, std::size_t process, SharedArrivals& arrivals) {
    simulated::SimulatedPhone phone({.container = container});
    const Platform platform = phone.platform();
    Server server(arrivals);
    DebugLog debugLog(platform.files, platform.clock, {});
    EventUploadLoop loop(platform, debugLog);
    loop.setUploader(&server);
    for (std::size_t number = 0; number < kEventsOfEach; ++number) {
        if (!loop.logEvent({{"n", process * kEventsOfEach + number}}, platform.clock.now())) ::_exit(1);
        if (number % 7 == process) loop.uploadLogsInBatches();
        if (number % 3 == 0) server.answerAll();
    }
    server.answerAll();
}

TEST(SharedContainer, FourProcessesLoseNothingOfEachOthers) {
    const TemporaryDirectory directory;
    SharedArrivals arrivals;
    std::vector<pid_t> processes;
    for (std::size_t process = 0; process < kProcesses; ++process) {
        processes.push_back(::fork());
        if (processes.back() != 0) continue;
        logAndUpload(directory.path(), process, arrivals);
        ::_exit(0);
    }
    for (const pid_t process : processes) {
        int status = -1;
        ASSERT_EQ(::waitpid(process, &status, 0), process);
        EXPECT_EQ(status, 0) << "an event was not accepted";
    }
    simulated::SimulatedPhone phone({.container = directory.path()});
    Server server(arrivals);
    const Platform platform = phone.platform();
    DebugLog debugLog(platform.files, platform.clock, {});
    EventUploadLoop loop(platform, debugLog);
    loop.setUploader(&server);
    loop.uploadLogsInBatches();
    server.answerAll();
    for (std::size_t number = 0; number < arrivals->ofEvent.size(); ++number) {
        EXPECT_GT(arrivals->ofEvent.at(number), 0) << number;
    }
}

TEST(SharedContainer, ALogThatStaysLockedRefusesTheEventClearly) {
    const TemporaryDirectory directory;
    simulated::SimulatedPhone phone({.container = directory.path()});
    const Platform platform = phone.platform();
    DebugLog debugLog(platform.files, platform.clock, {});
    EventUploadLoop loop(platform, debugLog);
    ASSERT_TRUE(loop.logEvent({{"n", 1}}, platform.clock.now()));
    posix::PosixFiles files(directory.path());
    std::error_code failure;
    auto lock = files.lock(files.documentsDirectory() / kQuomiBOLogFileName, 0s, failure);
    ASSERT_NE(lock, nullptr) << failure.message();
    std::optional<Error> error;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(loop.logEvent({{"n", 2}}, platform.clock.now(), &error));
    EXPECT_NEAR(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(), 1.2, 0.2);
    EXPECT_THAT(error.value().localizedDescription().value(), HasSubstr("another process holds the event log"));
    lock.reset();
    EXPECT_TRUE(loop.logEvent({{"n", 2}}, platform.clock.now()));
}

}  // namespace
}  // namespace quomi::test
