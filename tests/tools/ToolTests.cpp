// The two programs as a user or a script runs them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>

#include "Files.h"
#include "SpawnedProcess.h"
#include "TempDir.h"
#include "platform/WorkspaceProcessControl.h"

namespace {

using namespace std::chrono_literals;
using testsupport::SpawnedProcess;

struct ProgramRun {
    int exitCode = -1;
    std::vector<std::string> output;
};

ProgramRun runProgram(const std::string& program, const std::vector<std::string>& arguments) {
    SpawnedProcess process(program, arguments);
    ProgramRun result;
    result.output = process.readToEnd(20s).value_or(std::vector<std::string>{"<timeout>"});
    const auto status = process.waitForExit(20s);
    result.exitCode = status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
    return result;
}

bool contains(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

class FootprintToolTest : public ::testing::Test {
  protected:
    testsupport::TempDir temp;
    const std::string home = temp / "home";
    const std::string applications = temp / "Applications";

    ProgramRun plant(std::vector<std::string> extra = {}) {
        std::vector<std::string> arguments{"--home",        home, "--applications", applications,
                                           "--cache-files", "40", "--app-size-mb",  "1"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return runProgram(TAVIO_FOOTPRINT_PATH, arguments);
    }

    ProgramRun checkCanaries() {
        return runProgram(TAVIO_FOOTPRINT_PATH,
                          {"--check-canaries", "--home", home, "--applications", applications});
    }
};

TEST_F(FootprintToolTest, PlantsTheFootprintAndItsCanariesWhichThenPass) {
    const ProgramRun planted = plant();

    EXPECT_EQ(planted.exitCode, 0) << testsupport::joined(planted.output);
    EXPECT_TRUE(contains(planted.output, "planted: " + applications + "/Tavio.app"));
    EXPECT_TRUE(testsupport::exists(home + "/Library/Caches/io.tavio.Tavio/Cache.db"));
    const ProgramRun checked = checkCanaries();
    EXPECT_EQ(checked.exitCode, 0);
    EXPECT_EQ(checked.output, std::vector<std::string>{"canaries intact"});
}

TEST_F(FootprintToolTest, CheckFailsAndNamesAChangedCanary) {
    ASSERT_EQ(plant().exitCode, 0);
    const std::string canary = home + "/Movies/Tavio/Exports/clip-0001.mp4";
    testsupport::writeFile(canary, "overwritten");

    const ProgramRun checked = checkCanaries();

    EXPECT_EQ(checked.exitCode, 1);
    EXPECT_TRUE(contains(checked.output, "changed: " + canary))
        << testsupport::joined(checked.output);
    EXPECT_TRUE(contains(checked.output, "canaries damaged"));
}

TEST_F(FootprintToolTest, NoAppLeavesTheApplicationFolderWithoutTavio) {
    ASSERT_EQ(plant({"--no-app", "--identifier", "io.tavio.Other"}).exitCode, 0);

    EXPECT_FALSE(testsupport::exists(applications + "/Tavio.app"));
    EXPECT_TRUE(testsupport::exists(home + "/Library/Logs/io.tavio.Other"));
}

TEST_F(FootprintToolTest, MissingFoldersAreAUsageError) {
    EXPECT_EQ(runProgram(TAVIO_FOOTPRINT_PATH, {"--home", home}).exitCode, 2);
    EXPECT_EQ(runProgram(TAVIO_FOOTPRINT_PATH,
                         {"--home", home, "--applications", applications, "--cache-files", "many"})
                  .exitCode,
              2);
    EXPECT_FALSE(testsupport::exists(home));
}

// The planted app is a real, runnable copy of the product: the uninstaller
// finds it running and can ask it to quit.
TEST_F(FootprintToolTest, PlantedAppRunsAsTheProductAndQuitsWhenAsked) {
    ASSERT_EQ(
        plant({"--identifier", "io.tavio.FootprintRun" + std::to_string(::getpid())}).exitCode, 0);
    const platform::WorkspaceProcessControl control("io.tavio.FootprintRun" +
                                                    std::to_string(::getpid()));
    SpawnedProcess player(applications + "/Tavio.app/Contents/MacOS/Tavio",
                          {"--quit-delay-ms", "20", "--exit-with-parent"});
    ASSERT_TRUE(player.readUntil("ready").has_value());

    EXPECT_TRUE(control.isRunning());
    control.requestQuit();
    const auto status = player.waitForExit();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0);
    EXPECT_FALSE(control.isRunning());
}

class PlayerTest : public ::testing::Test {
  protected:
    testsupport::TempDir temp;
};

TEST_F(PlayerTest, QuitsByItselfAfterTheDelayOnSigterm) {
    SpawnedProcess player(TAVIO_PLAYER_PATH, {"--quit-delay-ms", "150", "--exit-with-parent"});
    ASSERT_TRUE(player.readUntil("ready").has_value());

    const auto start = std::chrono::steady_clock::now();
    player.signal(SIGTERM);
    const auto status = player.waitForExit();
    const auto elapsed = std::chrono::steady_clock::now() - start;

    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0);
    EXPECT_GE(elapsed, 140ms);
}

TEST_F(PlayerTest, ReportsEveryQuitRequestWhileItWaits) {
    SpawnedProcess player(TAVIO_PLAYER_PATH, {"--quit-delay-ms", "60000", "--exit-with-parent"});
    ASSERT_TRUE(player.readUntil("ready").has_value());

    player.signal(SIGTERM);
    EXPECT_EQ(player.linesBeforePing(), std::vector<std::string>{"term"});
    player.signal(SIGTERM);
    EXPECT_EQ(player.linesBeforePing(), std::vector<std::string>{"term"});
}

TEST_F(PlayerTest, IgnoreQuitKeepsItRunning) {
    SpawnedProcess player(TAVIO_PLAYER_PATH,
                          {"--ignore-quit", "--quit-delay-ms", "0", "--exit-with-parent"});
    ASSERT_TRUE(player.readUntil("ready").has_value());

    player.signal(SIGTERM);

    // It reports the request and still answers afterwards.
    EXPECT_EQ(player.linesBeforePing(), std::vector<std::string>{"term"});
    EXPECT_EQ(player.linesBeforePing(), std::vector<std::string>{});
    EXPECT_FALSE(player.waitUntilExited(0ms));
}

TEST_F(PlayerTest, ReadyFileIsWrittenOnceItIsReady) {
    const std::string readyFile = temp / "ready";
    SpawnedProcess player(TAVIO_PLAYER_PATH, {"--ready-file", readyFile, "--exit-with-parent"});
    ASSERT_TRUE(player.readUntil("ready").has_value());

    EXPECT_EQ(testsupport::readFile(readyFile), "ready\n");
}

TEST_F(PlayerTest, UnknownOptionIsAUsageError) {
    EXPECT_EQ(runProgram(TAVIO_PLAYER_PATH, {"--loud"}).exitCode, 2);
    EXPECT_EQ(runProgram(TAVIO_PLAYER_PATH, {"--quit-delay-ms", "soon"}).exitCode, 2);
}

}  // namespace
