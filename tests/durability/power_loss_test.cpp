// Power fails instead of the process: what was not forced to the disk is lost, or half of it.

#include "hosts/simulated/simulated_phone.h"
#include "tests/diagnostics/faulty_files.h"
#include "tests/durability/scenarios.h"
#include "tests/support/temporary_directory.h"

namespace quomi::test {
namespace {

struct PowerFails {};

/// The files of a phone whose power fails before its change of a certain number.
///
/// A replacement, or a move, forces a file and its directory to the disk, and with the directory the removals before
/// it. What else has been changed since a file was last forced is at the mercy of the system.
class FailingPower final : public FilesWrapper {
public:
    FailingPower(Files& files, int changes) : FilesWrapper(files), remaining_(changes) {}

    bool replace(const Path& path, std::string_view bytes, Code& error) override {
        beforeChange();
        const bool done = files_.replace(path, bytes, error);
        onDisk_.erase(path);
        forceDirectory();
        return done;
    }
    bool append(const Path& path, std::string_view bytes, Code& error) override {
        keepState(path);
        return files_.append(path, bytes, error);
    }
    bool truncate(const Path& path, std::uint64_t size, Code& error) override {
        keepState(path);
        return files_.truncate(path, size, error);
    }
    bool remove(const Path& path, Code& error) override {
        keepState(path);
        return files_.remove(path, error);
    }
    bool move(const Path& from, const Path& to, Code& error) override {
        beforeChange();
        const bool done = files_.move(from, to, error);
        onDisk_.erase(from);
        onDisk_.erase(to);
        forceDirectory();
        return done;
    }

    /// Brings the files to the state in which the disk has them: everything not forced is gone, or removals have come
    /// through and appends by half.
    void takeBack(bool half) {
        Code error;
        for (const auto& [path, forced] : onDisk_) {
            const auto now = files_.read(path, error);
            if (half && !now) continue;
            restore(path, half && now->starts_with(forced.value_or("")) ? halfOf(forced.value_or(""), *now) : forced);
        }
    }

private:
    static std::string halfOf(const std::string& forced, const std::string& now) {
        return now.substr(0, (forced.size() + now.size()) / 2);
    }
    void restore(const Path& path, const std::optional<std::string>& bytes) {
        Code error;
        EXPECT_TRUE(bytes ? files_.replace(path, *bytes, error) : files_.remove(path, error));
    }
    void beforeChange() {
        if (remaining_-- == 0) throw PowerFails();
    }
    void keepState(const Path& path) {
        beforeChange();
        Code error;
        onDisk_.try_emplace(path, files_.read(path, error));
    }
    /// A removal is on the disk from now on, as is the name of a new file, but not what the file holds.
    void forceDirectory() {
        Code error;
        std::erase_if(onDisk_, [&](const auto& entry) { return !files_.read(entry.first, error); });
        for (auto& [path, bytes] : onDisk_) bytes = bytes.value_or("");
    }

    int remaining_;
    std::map<Path, std::optional<std::string>> onDisk_;
};

/// False when the process came to its end before.
bool actUntilPowerFails(const Scenario& scenario, FailingPower& files, simulated::SimulatedPhone& phone,
                        Witness& witness) {
    try {
        scenario.act(phone.platform().with(files), witness);
        return false;
    } catch (const PowerFails&) {
        return true;
    }
}

void failAtEveryChange(LogLength length) {
    const auto scenario = loggingAndUploading(LogsFirst::no, length);
    for (const bool half : {false, true}) {
        bool failed = true;
        for (int changes = 0; failed; ++changes) {
            SCOPED_TRACE(testing::Message() << changes << (half ? ", half of what was not forced stays" : ""));
            const TemporaryDirectory directory;
            Witness witness;
            {
                simulated::SimulatedPhone phone({.container = directory.path()});
                scenario.prepare(phone.platform());
                FailingPower files(phone.platform().files, changes);
                failed = actUntilPowerFails(scenario, files, phone, witness);
                files.takeBack(half);
            }
            simulated::SimulatedPhone phone({.container = directory.path()});
            // Removals are not forced: the batch file may be back after its upload, and with it the log it came from.
            EXPECT_EQ(complaintAfterPowerLoss(phone.platform(), witness, 3, length), "");
            EXPECT_TRUE(!failed || changes < 100);
        }
    }
}

TEST(PowerLoss, CostsEventsSinceTheLastHandOverAndNoOthers) {
    failAtEveryChange(LogLength::isShort);
}

TEST(PowerLoss, OfALongLogCostsEventsSinceItIsDrainedAndNoOthers) {
    failAtEveryChange(LogLength::isLong);
}

}  // namespace
}  // namespace quomi::test
