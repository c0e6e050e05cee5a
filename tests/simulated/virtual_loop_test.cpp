#include "hosts/simulated/virtual_loop.h"

#include "tests/support/prelude.h"

namespace quomi::simulated {
namespace {

MonotonicTime at(Duration time) {
    return MonotonicTime(time);
}

class VirtualLoopTest : public testing::Test {
protected:
    Task note(const std::string& text) {
        return
            [this, text] { log_.push_back(text + "@" + std::to_string(loop_.monotonicNow().time_since_epoch() / 1s)); };
    }

    VirtualLoop loop_;
    std::vector<std::string> log_;
    std::vector<std::unique_ptr<Timer>> timers_;
};

TEST_F(VirtualLoopTest, RunsAnInstantInTheOrderTurnsTimersAnswersEachFollowedByItsTurns) {
    timers_.push_back(loop_.scheduleAnswer(5s, note("answer")));
    timers_.push_back(loop_.scheduleOnce(5s, [this] {
        note("timer 1")();
        loop_.post(note("its turn"));
    }));
    timers_.push_back(loop_.scheduleRepeating(5s, note("timer 2")));
    timers_.push_back(loop_.scheduleOnce(4s, note("early")));
    loop_.post([this] {
        loop_.post(note("second round"));
        note("first")();
    });
    loop_.postToGlobalQueue(note("second"));
    EXPECT_TRUE(loop_.runTurns());
    EXPECT_TRUE(loop_.advanceTo(at(5s)));
    EXPECT_THAT(log_, ElementsAre("first@0", "second@0", "second round@0", "early@4", "timer 1@5", "its turn@5",
                                  "timer 2@5", "answer@5"));
}

TEST_F(VirtualLoopTest, WhatIsDueNowNeedsNoTime) {
    timers_.push_back(loop_.scheduleOnce(-3s, note("late")));
    timers_.push_back(loop_.scheduleAnswer(0s, note("answer")));
    loop_.post(note("turn"));
    EXPECT_TRUE(log_.empty());
    loop_.runTurns();
    EXPECT_THAT(log_, ElementsAre("turn@0", "late@0", "answer@0"));
    EXPECT_EQ(loop_.nextEvent(), std::nullopt);
}

TEST_F(VirtualLoopTest, DroppedTimersNeverRunAgain) {
    std::unique_ptr<Timer> self;
    int beats = 0;
    self = loop_.scheduleRepeating(1s, [&] {
        if (++beats == 3) self.reset();
    });
    std::unique_ptr<Timer> victim;
    timers_.push_back(loop_.scheduleOnce(1s, [&] { victim.reset(); }));
    victim = loop_.scheduleOnce(1s, note("never: dropped when already due"));
    loop_.advanceTo(at(10s));
    EXPECT_EQ(beats, 3);
    EXPECT_TRUE(log_.empty());
    EXPECT_EQ(loop_.pendingEvents(), 0u);
}

TEST_F(VirtualLoopTest, SuspensionHoldsEverythingBackAndResumingRunsItInOrderOfDueTime) {
    timers_.push_back(loop_.scheduleRepeating(4s, note("beat")));
    timers_.push_back(loop_.scheduleOnce(6s, [this] {
        note("timer due 6")();
        loop_.post(note("its turn"));
    }));
    timers_.push_back(loop_.scheduleAnswer(6s, note("answer due 6")));
    timers_.push_back(loop_.schedulePhoneTimer(5s, 0s, [this] { loop_.post(note("phone's news of 5")); }));
    loop_.suspend();
    loop_.post(note("turn of 0"));
    EXPECT_EQ(loop_.nextEvent(), at(5s)) << "only the phone's own timers count";
    loop_.advanceTo(at(6s));
    loop_.post(note("turn of 6"));
    loop_.advanceTo(at(14s));
    EXPECT_FALSE(loop_.runOneSource());
    EXPECT_TRUE(log_.empty());

    loop_.resume();
    loop_.runTurns();
    EXPECT_THAT(log_, ElementsAre("turn of 0@14", "beat@14", "phone's news of 5@14", "timer due 6@14", "its turn@14",
                                  "answer due 6@14", "turn of 6@14"));
    log_.clear();
    loop_.advanceTo(at(20s));
    EXPECT_THAT(log_, ElementsAre("beat@16", "beat@20")) << "later firings stay on the beat";
}

TEST_F(VirtualLoopTest, RunOneSourceRunsOneReadyThingFromInsideATaskAndNeverMovesTheClock) {
    std::vector<bool> answers;
    loop_.post([&] {
        answers.push_back(loop_.runOneSource());
        answers.push_back(loop_.runOneSource());
    });
    loop_.post(note("inner"));
    timers_.push_back(loop_.scheduleOnce(1s, note("timer")));
    loop_.runTurns();
    EXPECT_THAT(answers, ElementsAre(true, false));
    EXPECT_THAT(log_, ElementsAre("inner@0"));
}

TEST_F(VirtualLoopTest, GivesUpOnTasksThatPostThemselvesForEver) {
    VirtualLoop loop({}, "UTC", 1000);
    int runs = 0;
    Task again = [&] {
        ++runs;
        loop.post(again);
    };
    auto timer = loop.scheduleOnce(2s, again);
    EXPECT_FALSE(loop.advanceTo(at(5s)));
    EXPECT_EQ(loop.monotonicNow(), at(2s));
    EXPECT_EQ(runs, 1001);
    // A beat that is not endless at one instant is fine, however long it goes on.
    VirtualLoop other({}, "UTC", 10);
    auto beat = other.scheduleRepeating(1s, [] {});
    EXPECT_TRUE(other.advanceTo(at(1000s)));
}

TEST_F(VirtualLoopTest, ThrowingTasksAreDropped) {
    loop_.post([] { throw std::runtime_error("no"); });
    loop_.post(note("after"));
    EXPECT_TRUE(loop_.runTurns());
    EXPECT_THAT(log_, ElementsAre("after@0"));
}

TEST_F(VirtualLoopTest, OtherThreadsPostAndTheDriverWaitsForThem) {
    EXPECT_FALSE(loop_.waitForPost(0ms));
    std::thread other([this] {
        EXPECT_FALSE(loop_.isHostThread());
        EXPECT_FALSE(loop_.runOneSource());
        for (int i = 0; i < 100; ++i) loop_.post(note(std::to_string(i)));
    });
    EXPECT_TRUE(loop_.waitForPost(10s));
    other.join();
    loop_.runTurns();
    ASSERT_EQ(log_.size(), 100u);
    EXPECT_EQ(log_.back(), "99@0");
}

TEST_F(VirtualLoopTest, TasksThatOwnTimersGoWithTheLoop) {
    auto loop = std::make_unique<VirtualLoop>();
    auto survivor = loop->scheduleOnce(1s, note("never"));
    auto owned = std::make_shared<std::unique_ptr<Timer>>(loop->scheduleOnce(1s, note("never")));
    loop->post([owned] {});
    owned.reset();
    loop.reset();
    survivor.reset();
    EXPECT_TRUE(log_.empty());
}

}  // namespace
}  // namespace quomi::simulated
