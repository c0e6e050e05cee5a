#include "quomi/diagnostics/debug_log.h"

#include "tests/diagnostics/log_support.h"

#include <atomic>

namespace quomi::test {
/// A host's type whose text takes note of being asked for.
struct Noisy {
    int* formatted;
};
}  // namespace quomi::test

template <>
struct fmt::formatter<quomi::test::Noisy> : fmt::formatter<int> {
    template <typename Context>
    auto format(const quomi::test::Noisy& value, Context& context) const {
        if (++*value.formatted > 1) throw std::runtime_error("no text");
        return fmt::formatter<int>::format(*value.formatted, context);
    }
};

namespace quomi {
namespace {

TEST(DebugLog, FormatsAndWritesOnlyWhileEnabled) {
    test::LogDirectory directory;
    test::SetClock clock;
    bool isEnabled = false;
    int formatted = 0;
    DebugLog log(directory.files, clock, [&] { return isEnabled; });
    log.log("value {}", test::Noisy{&formatted});
    EXPECT_EQ(formatted, 0);
    EXPECT_EQ(directory.text(kQuomiDebugLogFileName), "(missing)");
    isEnabled = true;
    log.log("value {} {}", test::Noisy{&formatted}, "100%");
    log.log("this one throws {}", test::Noisy{&formatted});
    log.log("plain");
    EXPECT_EQ(log.file().getFileLogContent(),
              "2026-11-21 04:00:00 +0000 - value 1 100%\n2026-11-21 04:00:00 +0000 - plain\n");
    log.file().clearLogFile();
    EXPECT_EQ(directory.text(kQuomiDebugLogFileName), "(missing)");
    EXPECT_EQ(log.file().getFileLogContent(), "");
    QuomiLogVoid("value {}", test::Noisy{&formatted});
    EXPECT_EQ(formatted, 2);
}

TEST(DebugLog, ASwitchThatIsMissingOrThrowsCountsAsOff) {
    test::LogDirectory directory;
    test::SetClock clock;
    DebugLog(directory.files, clock, {}).log("a");
    DebugLog(directory.files, clock, []() -> bool { throw 1; }).log("b");
    EXPECT_EQ(directory.text(kQuomiDebugLogFileName), "(missing)");
}

TEST(DebugLog, ThreadsThatStartTheFileTogetherLoseNoLine) {
    test::SetClock clock;
    for (int round = 0; round < 20; ++round) {
        test::LogDirectory directory;
        DebugLog log(directory.files, clock, [] { return true; });
        std::atomic<int> ready = 0;
        std::vector<std::thread> threads;
        for (int number = 0; number < 4; ++number) {
            threads.emplace_back([&] {
                for (++ready; ready < 4;) std::this_thread::yield();
                for (int line = 0; line < 20; ++line) log.log("line");
            });
        }
        for (auto& thread : threads) thread.join();
        std::string expected;
        for (int line = 0; line < 80; ++line) expected += "2026-11-21 04:00:00 +0000 - line\n";
        EXPECT_EQ(directory.text(kQuomiDebugLogFileName), expected);
    }
}

}  // namespace
}  // namespace quomi
