// The wait for Tavio to quit, with the clock in the test's hands: the
// program's own engine (its thirty-second limit and its 200-millisecond poll)
// against a Tavio that never quits, one that quits in time, a clock that
// jumps and a machine that sleeps in the middle of the wait. Each test takes
// milliseconds.
#include <gtest/gtest.h>

#include <algorithm>

#include "FakeAdapters.h"
#include "VirtualClock.h"
#include "app/SystemServices.h"

using engine::UninstallOutcome;
using engine::UninstallReport;
using faults::VirtualClock;
using testsupport::FakeProcesses;
using namespace std::chrono_literals;

namespace {

class QuitWaitTimingTest : public ::testing::Test {
  protected:
    // The engine exactly as the program builds it, with a scripted Tavio.
    UninstallReport runWith(const std::shared_ptr<FakeProcesses>& processes) {
        auto context =
            target::UninstallContext::make(::getuid(), {"/nonexistent", "alice"}, "io.tavio.Tavio");
        context.applicationDirectories = {};
        engine::UninstallEngine uninstaller = app::makeSystemEngine(context);
        uninstaller.processes = processes;
        uninstaller.preferences = std::make_shared<testsupport::FakePreferences>();
        uninstaller.verifier = std::make_shared<testsupport::FakeVerifier>();
        return uninstaller.run(target::Inventory{}, [](const engine::UninstallEvent&) {});
    }

    // A Tavio that is running for the first `checks` looks, and gone after.
    static std::shared_ptr<FakeProcesses> quittingAfter(std::size_t checks) {
        std::vector<bool> script(checks, true);
        script.push_back(false);
        return std::make_shared<FakeProcesses>(script);
    }
};

TEST_F(QuitWaitTimingTest, ATavioThatNeverQuitsIsPolledEvery200MillisecondsFor30Seconds) {
    const VirtualClock clock;
    const auto processes = std::make_shared<FakeProcesses>(std::vector<bool>{true});
    const UninstallReport report = runWith(processes);
    EXPECT_EQ(report.outcome, UninstallOutcome::didNotQuit);
    EXPECT_TRUE(report.results.empty());
    EXPECT_EQ(processes->requestQuitCalls(), 1);
    // 150 pauses of 200 ms fill the 30 s; the look after the last one finds
    // the deadline reached. One more look came before the request to quit.
    const auto sleeps = clock.sleeps();
    EXPECT_EQ(sleeps.size(), 150u);
    EXPECT_TRUE(std::all_of(sleeps.begin(), sleeps.end(), [](auto s) { return s == 200ms; }));
    EXPECT_EQ(processes->isRunningCalls(), 1 + 151);
}

TEST_F(QuitWaitTimingTest, ATavioThatQuitsInTimeEndsTheWaitAtTheNextLook) {
    const VirtualClock clock;
    // Running at the start, at the look right after the request and at ten
    // more looks: gone after 2 s.
    const auto processes = quittingAfter(1 + 1 + 10);
    const UninstallReport report = runWith(processes);
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    EXPECT_EQ(clock.sleeps().size(), 11u);
}

// The deadline is kept on the clock that counts a sleeping machine too: the
// wait reads no other clock, so a change of the wall clock cannot move it.
TEST_F(QuitWaitTimingTest, TheDeadlineIsMeasuredOnTheBootClockAlone) {
    const VirtualClock clock;
    runWith(std::make_shared<FakeProcesses>(std::vector<bool>{true}));
    const auto clocks = clock.clocksRead();
    ASSERT_FALSE(clocks.empty());
    EXPECT_TRUE(std::all_of(clocks.begin(), clocks.end(),
                            [](clockid_t id) { return id == CLOCK_BOOTTIME; }));
}

TEST_F(QuitWaitTimingTest, AJumpOfTheBootClockMovesTheDeadlineCloserByAsMuch) {
    VirtualClock clock;
    const auto processes = std::make_shared<FakeProcesses>(std::vector<bool>{true});
    // Ten seconds pass between two looks without a pause of the engine's.
    processes->onIsRunning([&](int call) {
        if (call == 20) {
            clock.jump(10s);
        }
    });
    EXPECT_EQ(runWith(processes).outcome, UninstallOutcome::didNotQuit);
    EXPECT_EQ(clock.sleeps().size(), 100u);
}

// The machine sleeps for an hour during the fifth pause: the wait is over at
// the next look, as the time really passed for Tavio too.
TEST_F(QuitWaitTimingTest, ASuspendDuringThePauseEndsTheWaitAtTheNextLook) {
    int pauses = 0;
    const VirtualClock clock([&](auto requested) { return ++pauses == 5 ? 1h : requested; });
    const auto processes = std::make_shared<FakeProcesses>(std::vector<bool>{true});
    EXPECT_EQ(runWith(processes).outcome, UninstallOutcome::didNotQuit);
    EXPECT_EQ(clock.sleeps().size(), 5u);
    EXPECT_EQ(processes->isRunningCalls(), 1 + 6);
}

// Whether Tavio is gone is asked before whether time is up: a Tavio that
// quit while the machine slept lets the run go on.
TEST_F(QuitWaitTimingTest, ATavioThatQuitWhileTheMachineSleptLetsTheRunGoOn) {
    int pauses = 0;
    const VirtualClock clock([&](auto requested) { return ++pauses == 5 ? 1h : requested; });
    const auto processes = quittingAfter(1 + 5);
    EXPECT_EQ(runWith(processes).outcome, UninstallOutcome::completed);
    EXPECT_EQ(clock.sleeps().size(), 5u);
}

}  // namespace
