#include "tests/durability/kill_walk.h"

#include "hosts/simulated/simulated_phone.h"
#include "tests/support/temporary_directory.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quomi::test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kShortWrite = 200;  // bytes

/// A witness in memory that a forked process shares.
class SharedWitness {
public:
    SharedWitness()
        : memory_(::mmap(nullptr, sizeof(Witness), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (memory_ == MAP_FAILED) throw std::bad_alloc();
        witness_ = new (memory_) Witness();
    }
    SharedWitness(const SharedWitness&) = delete;
    SharedWitness& operator=(const SharedWitness&) = delete;
    ~SharedWitness() { ::munmap(memory_, sizeof(Witness)); }

    Witness& operator*() { return *witness_; }

private:
    void* memory_;
    Witness* witness_ = nullptr;
};

/// Where a process is killed: in the counted call of this number, after so many of its bytes.
struct KillPoint {
    int call = 0;
    std::size_t bytes = 0;
};

/// The phone as one process of the app finds it.
struct Launch {
    Launch(const fs::path& container, const Scenario& scenario)
        : phone({.container = container}),
          faulty(scenario.fault ? scenario.fault(phone.platform().files) : nullptr),
          platform(phone.platform().with(faulty ? *faulty : phone.platform().files)) {}

    simulated::SimulatedPhone phone;
    std::unique_ptr<Files> faulty;
    Platform platform;
};

class Walker {
public:
    Walker(const Scenario& scenario, Extent extent, const std::string& sought)
        : scenario_(scenario), extent_(extent), sought_(sought) {
        fs::create_directories(origin_);
        simulated::SimulatedPhone phone({.container = origin_});
        if (scenario_.prepare) scenario_.prepare(phone.platform());
    }

    Walk run() {
        while (!isFound() && runKilledAt({call_, 0})) {
            for (const std::size_t bytes : cuts(fatal_->bytes())) {
                if (!isFound()) runKilledAt({call_, bytes});
            }
            call_ += extent_ == Extent::changes ? scenario_.stride : 1;
        }
        return walk_;
    }

private:
    [[nodiscard]] bool isFound() const {
        return !sought_.empty() && !walk_.complaints.empty() &&
               walk_.complaints.back().find(sought_) != std::string::npos;
    }
    /// False when the process came to its end before it was to be killed.
    bool runKilledAt(const KillPoint& point) {
        fs::remove_all(work_);
        fs::copy(origin_, work_, fs::copy_options::recursive);
        SharedWitness witness;
        const Ending ending = runChild(point, *witness);
        walk_.kills += ending == Ending::killed ? 1 : 0;
        std::string complaint = ending == Ending::failed ? "the process failed" : "";
        if (complaint.empty()) complaint = verify(*witness);
        if (!complaint.empty()) walk_.complaints.push_back(fmt::format("{}: {}", describe(point), complaint));
        return ending == Ending::killed;
    }

    Ending runChild(const KillPoint& point, Witness& witness) {
        // Made here, so that a child that is killed leaves nothing behind and spends no system calls on it.
        const Launch launch(work_, scenario_);
        int counted = 0;
        fatal_.reset();
        return trace([&] { scenario_.act(launch.platform, witness); }, extent_,
                     [&](const SystemCall& call) -> Decision {
                         if (counted++ < point.call) return {};
                         fatal_ = call;
                         if (point.bytes == 0) return {Decision::kill};
                         return {Decision::writeAndKill, point.bytes};
                     });
    }

    [[nodiscard]] std::string verify(const Witness& witness) const {
        const Launch launch(work_, scenario_);
        try {
            return scenario_.verify(launch.platform, witness);
        } catch (const std::exception& failure) {
            return failure.what();
        }
    }

    [[nodiscard]] std::vector<std::size_t> cuts(std::size_t size) const {
        std::vector<std::size_t> all;
        if (size < 2) return all;
        if (scenario_.everyByte && size <= kShortWrite) {
            for (std::size_t bytes = 1; bytes < size; ++bytes) all.push_back(bytes);
        } else if (extent_ == Extent::changes) {
            all = {size / 2};
        } else {
            all = {1, size / 2, size - 1};
        }
        return all;
    }

    [[nodiscard]] std::string describe(const KillPoint& point) const {
        if (!fatal_) return scenario_.name + ", not killed";
        return fmt::format("{}, killed in call {} ({}) after {} bytes", scenario_.name, point.call,
                           fatal_->description(), point.bytes);
    }

    const Scenario& scenario_;
    Extent extent_;
    const std::string& sought_;
    TemporaryDirectory directory_;
    fs::path origin_ = directory_.path() / "origin";
    fs::path work_ = directory_.path() / "work";
    std::optional<SystemCall> fatal_;
    int call_ = 0;
    Walk walk_;
};

}  // namespace

Extent extentOfThisRun() {
    const char* asked = std::getenv("QUOMI_DURABILITY");
    return asked != nullptr && std::string_view(asked) == "full" ? Extent::allCalls : Extent::changes;
}

Walk walk(const Scenario& scenario, Extent extent, const std::string& sought) {
    return Walker(scenario, extent, sought).run();
}

std::string whyNoTracing() {
    int calls = 0;
    const Ending ending = trace([] { ::getppid(); }, Extent::allCalls,
                                [&calls](const SystemCall&) -> Decision {
                                    ++calls;
                                    return {};
                                });
    if (ending == Ending::finished && calls > 0) return "";
    return "this system does not let a process trace its child (ptrace): no kill points";
}

bool runAndKill(const std::function<void()>& work) {
    const pid_t process = ::fork();
    if (process == 0) {
        try {
            work();
        } catch (...) {
            ::_exit(1);
        }
        ::raise(SIGKILL);
    }
    int status = 0;
    return process > 0 && ::waitpid(process, &status, 0) == process && WIFSIGNALED(status);
}

}  // namespace quomi::test
