// Every call the core makes, made to fail one at a time with each errno it
// can really return, over a whole uninstall and over a scan alone. Each case
// runs in a child process on a freshly planted home; a failing case prints
// the call, its occurrence and the errno, which is all it takes to replay it
// (UT_FAULT=<call>:<occurrence>:<errno name> runs that one case alone).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <sstream>

#include "CaseWorkers.h"
#include "ChildProcess.h"
#include "FaultScenario.h"

using faults::Call;
using faulttest::FaultScenario;
using faulttest::Stage;

namespace {

// Calls made this many times or fewer are failed at every occurrence; more
// frequent ones at an even spread of kSpread occurrences, first and last
// included, unless every occurrence is asked for. The sanitizer build, whose
// cases take five times as long, is built with a spread of its own for
// every call (UT_FAULT_SPREAD): there the point is what the failure paths do
// to memory, which each errno of each call shows.
#ifdef UT_FAULT_SPREAD
constexpr std::uint64_t kSpread = UT_FAULT_SPREAD;
constexpr std::uint64_t kEveryOccurrenceUpTo = UT_FAULT_SPREAD;
#else
constexpr std::uint64_t kSpread = 200;
constexpr std::uint64_t kEveryOccurrenceUpTo = 300;
#endif
static_assert(kSpread >= 2 && kSpread <= kEveryOccurrenceUpTo);

bool exhaustive() {
    const char* value = std::getenv("UT_FAULTS_EXHAUSTIVE");
    return value != nullptr && std::string(value) == "1";
}

std::vector<std::uint64_t> occurrencesToFail(std::uint64_t count) {
    std::vector<std::uint64_t> occurrences;
    if (count <= kEveryOccurrenceUpTo || exhaustive()) {
        for (std::uint64_t n = 1; n <= count; ++n) {
            occurrences.push_back(n);
        }
        return occurrences;
    }
    for (std::uint64_t i = 0; i < kSpread; ++i) {
        const std::uint64_t n = 1 + i * (count - 1) / (kSpread - 1);
        if (occurrences.empty() || occurrences.back() != n) {
            occurrences.push_back(n);
        }
    }
    return occurrences;
}

std::string joined(const std::vector<std::string>& lines) {
    std::ostringstream out;
    for (const auto& line : lines) {
        out << "\n    " << line;
    }
    return out.str();
}

// Runs one case; what is wrong with it, naming what to replay, or nothing.
std::optional<std::string> runCase(Stage stage, const faults::Fault& fault) {
    try {
        FaultScenario scenario;
        const auto run = scenario.run(stage, fault);
        const auto problems = scenario.problems(stage, fault, run);
        if (problems.empty()) {
            return std::nullopt;
        }
        return fault.describe() + (run.fired ? "" : " (not reached)") + joined(problems);
    } catch (const std::exception& error) {
        return fault.describe() + joined({error.what()});
    }
}

// How often the stage makes `call` when nothing fails, checked to be a clean
// run first.
std::uint64_t countCalls(Stage stage, Call call) {
    FaultScenario scenario;
    const auto run = scenario.run(stage, std::nullopt);
    const auto problems = scenario.problems(stage, std::nullopt, run);
    EXPECT_TRUE(problems.empty()) << "without a fault:" << joined(problems);
    return run.counts[static_cast<std::size_t>(call)];
}

// The one case that UT_FAULT names ("openat:12:EACCES"), when it names a
// case of `call`.
std::optional<faults::Fault> replayedFault(Call call) {
    const char* value = std::getenv("UT_FAULT");
    if (value == nullptr) {
        return std::nullopt;
    }
    std::istringstream fields(value);
    std::string name, occurrence, error;
    std::getline(fields, name, ':');
    std::getline(fields, occurrence, ':');
    std::getline(fields, error, ':');
    if (faults::callNamed(name) != call) {
        return std::nullopt;
    }
    for (const int candidate : faults::realisticErrors(call)) {
        const char* candidateName = strerrorname_np(candidate);
        if (candidateName != nullptr && error == candidateName) {
            return faults::Fault{call, std::stoull(occurrence), candidate};
        }
    }
    ADD_FAILURE() << "UT_FAULT=" << value << " names no errno that " << name << " can return";
    return std::nullopt;
}

void failEveryOccurrence(Stage stage, Call call) {
    if (const auto fault = replayedFault(call)) {
        const std::size_t failed = faulttest::runCases(
            {*fault}, [&](const faults::Fault& each) { return runCase(stage, each); });
        std::cout << "1 fault case replayed, " << failed << " failed" << std::endl;
        return;
    }
    const std::uint64_t count = countCalls(stage, call);
    ASSERT_GT(count, 0u) << faults::nameOf(call) << " is not made here any more";
    std::vector<faults::Fault> cases;
    for (const std::uint64_t occurrence : occurrencesToFail(count)) {
        for (const int error : faults::realisticErrors(call)) {
            cases.push_back(faults::Fault{call, occurrence, error});
        }
    }
    const std::size_t failed =
        faulttest::runCases(cases, [&](const faults::Fault& each) { return runCase(stage, each); });
    std::cout << faults::nameOf(call) << ": " << count << " calls\n"
              << cases.size() << " fault cases, " << failed << " failed" << std::endl;
}

std::string paramName(const ::testing::TestParamInfo<Call>& info) {
    return faults::nameOf(info.param);
}

// The calls a whole uninstall makes when Tavio is not running.
const std::vector<Call> kUninstallCalls = {
    Call::open,  Call::openat,     Call::fstatat,   Call::statx,   Call::fstat,
    Call::lstat, Call::opendir,    Call::fdopendir, Call::readdir, Call::unlinkat,
    Call::close, Call::read,       Call::write,     Call::fsync,   Call::mkdirat,
    Call::fcntl, Call::readlinkat, Call::getrandom, Call::linkat,  Call::renameat2,
};

// The calls of a preferences file's rewrite.
const std::vector<Call> kRewriteCalls = {
    Call::open,   Call::openat, Call::fstatat,  Call::fstat, Call::read,      Call::write,
    Call::fchmod, Call::fsync,  Call::renameat, Call::close, Call::getrandom,
};

// The calls made while Tavio runs and is asked to quit: looking at the
// process table and at the bundles of what runs, and the polite request.
const std::vector<Call> kQuitCalls = {
    Call::open,       Call::openat,    Call::fstatat,         Call::fstat,
    Call::read,       Call::opendir,   Call::readdir,         Call::close,
    Call::readlinkat, Call::pidfdOpen, Call::pidfdSendSignal,
};

// The calls a scan makes.
const std::vector<Call> kScanCalls = {
    Call::open,    Call::openat, Call::fstatat, Call::fstat, Call::lstat,      Call::fdopendir,
    Call::readdir, Call::close,  Call::read,    Call::fcntl, Call::readlinkat,
};

class UninstallFaultTest : public ::testing::TestWithParam<Call> {};
class QuitFaultTest : public ::testing::TestWithParam<Call> {};
class ScanFaultTest : public ::testing::TestWithParam<Call> {};
class RewriteFaultTest : public ::testing::TestWithParam<Call> {};

TEST_P(UninstallFaultTest, EveryFailingCallKeepsTheReportHonestAndLosesNothing) {
    failEveryOccurrence(Stage::uninstall, GetParam());
}

TEST_P(QuitFaultTest, EveryFailingCallWhileTavioRunsDeletesNothingUnderIt) {
    failEveryOccurrence(Stage::quit, GetParam());
}

TEST_P(ScanFaultTest, EveryFailingCallGivesAnHonestInventory) {
    failEveryOccurrence(Stage::scan, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Calls,
                         UninstallFaultTest,
                         ::testing::ValuesIn(kUninstallCalls),
                         paramName);
TEST_P(RewriteFaultTest, EveryFailingCallLeavesThePreferencesWholeOrRewritten) {
    failEveryOccurrence(Stage::rewrite, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Calls, QuitFaultTest, ::testing::ValuesIn(kQuitCalls), paramName);
INSTANTIATE_TEST_SUITE_P(Calls, ScanFaultTest, ::testing::ValuesIn(kScanCalls), paramName);
INSTANTIATE_TEST_SUITE_P(Calls, RewriteFaultTest, ::testing::ValuesIn(kRewriteCalls), paramName);

}  // namespace
