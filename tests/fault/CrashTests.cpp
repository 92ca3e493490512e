// A run cut off at any instant: the program is killed with SIGKILL just
// before each call of a whole run in turn (the scan, the quit of a running
// Tavio, the removal with its records, the final check), and of a rewrite of
// a preferences file that keeps some keys, and then a fresh run
// in a new process, with nothing in its way, must finish the job: nothing of
// Tavio left, the canaries and look-alikes whole, and no file of ours (a
// record, a temporary file) anywhere. UT_CRASH=<call>:<occurrence> replays one
// case of the uninstall.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <sstream>

#include "CaseWorkers.h"
#include "FaultScenario.h"

using faults::Call;
using faulttest::FaultScenario;
using faulttest::Stage;

namespace {

// Calls made this many times or fewer are crashed at every occurrence; more
// frequent ones at an even spread, first and last included.
#ifdef UT_FAULT_SPREAD
constexpr std::uint64_t kSpread = UT_FAULT_SPREAD;
constexpr std::size_t kLeastCases = 1;
#else
constexpr std::uint64_t kSpread = 300;
constexpr std::size_t kLeastCases = 1'500;
#endif

std::vector<std::uint64_t> occurrences(std::uint64_t count) {
    std::vector<std::uint64_t> chosen;
    const std::uint64_t wanted = std::min(count, kSpread);
    for (std::uint64_t i = 0; i < wanted; ++i) {
        const std::uint64_t n = wanted < 2 ? 1 : 1 + i * (count - 1) / (wanted - 1);
        if (chosen.empty() || chosen.back() != n) {
            chosen.push_back(n);
        }
    }
    return chosen;
}

// Every call the stage makes when nothing fails, with how often.
faults::Counts countsOf(Stage stage) {
    FaultScenario scenario;
    return scenario.run(stage, std::nullopt).counts;
}

std::vector<faults::Fault> crashesOf(Stage stage) {
    const faults::Counts counts = countsOf(stage);
    std::vector<faults::Fault> crashes;
    for (std::size_t call = 0; call < faults::kCallCount; ++call) {
        for (const std::uint64_t occurrence : occurrences(counts[call])) {
            crashes.push_back({static_cast<Call>(call), occurrence, faults::kCrash});
        }
    }
    return crashes;
}

std::optional<std::string> runCrash(Stage stage, const faults::Fault& crash) {
    try {
        FaultScenario scenario;
        const auto second = scenario.runAfterCrash(stage, crash);
        const auto problems = scenario.problemsAfterCrash(second);
        if (problems.empty()) {
            return std::nullopt;
        }
        std::ostringstream out;
        out << crash.describe() << " (" << static_cast<int>(stage) << ")";
        for (const auto& line : problems) {
            out << "\n    " << line;
        }
        return out.str();
    } catch (const std::exception& error) {
        return crash.describe() + "\n    " + error.what();
    }
}

// The one case that UT_CRASH names ("unlinkat:12"), if any.
std::optional<faults::Fault> replayedCrash() {
    const char* value = std::getenv("UT_CRASH");
    if (value == nullptr) {
        return std::nullopt;
    }
    std::istringstream fields(value);
    std::string name, occurrence;
    std::getline(fields, name, ':');
    std::getline(fields, occurrence, ':');
    const auto call = faults::callNamed(name);
    if (!call || occurrence.empty()) {
        ADD_FAILURE() << "UT_CRASH=" << value << " names no call and occurrence";
        return std::nullopt;
    }
    return faults::Fault{*call, std::stoull(occurrence), faults::kCrash};
}

TEST(CrashTest, EveryInstantOfARunIsFinishedByTheNextRun) {
    if (const auto crash = replayedCrash()) {
        const std::size_t failed = faulttest::runCases(
            {*crash}, [](const faults::Fault& each) { return runCrash(Stage::uninstall, each); });
        std::cout << "1 crash case replayed, " << failed << " failed" << std::endl;
        return;
    }
    std::size_t total = 0, failed = 0;
    for (const Stage stage : {Stage::uninstall, Stage::quit, Stage::rewrite}) {
        const auto crashes = crashesOf(stage);
        ASSERT_FALSE(crashes.empty());
        total += crashes.size();
        failed += faulttest::runCases(
            crashes, [stage](const faults::Fault& each) { return runCrash(stage, each); });
    }
    std::cout << total << " crash cases, " << failed << " failed" << std::endl;
    EXPECT_GE(total, kLeastCases);
}

}  // namespace
