#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>

#include "ChildProcess.h"
#include "DescriptorCheck.h"
#include "ProcessFixture.h"
#include "platform/WorkspaceProcessControl.h"

namespace {

using platform::ProcessInstance;
using platform::WorkspaceProcessControl;
using testsupport::joined;
using namespace std::chrono_literals;

class WorkspaceProcessControlTest : public testsupport::ProcessFixture {
  protected:
    WorkspaceProcessControl control{identifier};

    std::vector<pid_t> runningPids() const {
        std::vector<pid_t> pids;
        for (const ProcessInstance& instance : control.runningInstances()) {
            pids.push_back(instance.pid);
        }
        return pids;
    }
};

TEST_F(WorkspaceProcessControlTest, NoRunningCopyIsNotRunningAndRequestQuitSignalsNobody) {
    // The same program, outside any bundle and in a bundle of another product.
    auto loose = startPlayer(TAVIO_PLAYER_PATH);
    auto other = startPlayer(installBundle(temp / "Applications", identifier + ".Other"));

    EXPECT_FALSE(control.isRunning());
    control.requestQuit();

    EXPECT_EQ(loose->linesBeforePing(), std::vector<std::string>{});
    EXPECT_EQ(other->linesBeforePing(), std::vector<std::string>{});
}

TEST_F(WorkspaceProcessControlTest, CopyRunningFromTavioAppIsFound) {
    const std::string executable = installBundle(temp / "Applications", identifier);
    auto player = startPlayer(executable);

    EXPECT_TRUE(control.isRunning());
    const auto instances = control.runningInstances();
    ASSERT_EQ(instances.size(), 1u);
    EXPECT_EQ(instances[0].pid, player->pid());
    EXPECT_EQ(instances[0].executable, executable);
}

TEST_F(WorkspaceProcessControlTest, CopiesInEveryApplicationFolderAreFound) {
    auto first = startPlayer(installBundle(temp / "Applications", identifier));
    auto second = startPlayer(installBundle(temp / "home/Applications", identifier));
    auto renamed = startPlayer(installBundle(temp / "Applications", identifier, TAVIO_PLAYER_PATH,
                                             "Tavio Beta.app", "Tavio Beta"));

    std::vector<pid_t> expected{first->pid(), second->pid(), renamed->pid()};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(runningPids(), expected);
}

TEST_F(WorkspaceProcessControlTest, ExecutableOutsideContentsMacOSDoesNotCount) {
    const std::string bundle = temp / "Applications/Tavio.app";
    installBundle(temp / "Applications", identifier);
    testsupport::makeDirectories(bundle + "/Contents/Resources");
    installProgram(TAVIO_PLAYER_PATH, bundle + "/Contents/Resources/helper");
    installProgram(TAVIO_PLAYER_PATH, bundle + "/Tavio");
    auto helper = startPlayer(bundle + "/Contents/Resources/helper");
    auto topLevel = startPlayer(bundle + "/Tavio");

    EXPECT_FALSE(control.isRunning());
}

TEST_F(WorkspaceProcessControlTest, BundleNotNamedDotAppDoesNotCount) {
    auto player = startPlayer(
        installBundle(temp / "Applications", identifier, TAVIO_PLAYER_PATH, "Tavio", "Tavio"));

    EXPECT_FALSE(control.isRunning());
}

TEST_F(WorkspaceProcessControlTest, InfoPlistThatIsALinkIsNotRead) {
    const std::string executable = installBundle(temp / "Applications", identifier);
    const std::string contents = temp / "Applications/Tavio.app/Contents";
    ASSERT_EQ(::rename((contents + "/Info.plist").c_str(), (temp / "Info.plist").c_str()), 0);
    testsupport::makeLink(temp / "Info.plist", contents + "/Info.plist");
    auto player = startPlayer(executable);

    EXPECT_FALSE(control.isRunning());
}

// A copy keeps running after its bundle is deleted (the kernel then names
// its executable "…/Tavio.app/Contents/MacOS/Tavio (deleted)"). Nothing is
// left to say which product it is, so it may be Tavio, and counts as running.
TEST_F(WorkspaceProcessControlTest, CopyWhoseBundleWasDeletedWhileItRunsCountsAsRunning) {
    auto player = startPlayer(installBundle(temp / "Applications", identifier));
    ASSERT_TRUE(control.isRunning());

    testsupport::removeAll(temp / "Applications/Tavio.app");

    EXPECT_TRUE(control.isRunning());
}

// Moved elsewhere, it is still a bundle that names Tavio.
TEST_F(WorkspaceProcessControlTest, CopyWhoseBundleWasMovedWhileItRunsIsFoundWhereItWent) {
    auto player = startPlayer(installBundle(temp / "Applications", identifier));
    testsupport::makeDirectories(temp / "elsewhere");
    ASSERT_EQ(
        ::rename((temp / "Applications/Tavio.app").c_str(), (temp / "elsewhere/Tavio.app").c_str()),
        0);

    const auto instances = control.runningInstances();
    ASSERT_EQ(instances.size(), 1u);
    EXPECT_EQ(instances[0].pid, player->pid());
    EXPECT_EQ(instances[0].executable, temp / "elsewhere/Tavio.app/Contents/MacOS/Tavio");
}

TEST_F(WorkspaceProcessControlTest, ZombieCountsAsTerminated) {
    auto player = startPlayer(installBundle(temp / "Applications", identifier));
    ASSERT_TRUE(control.isRunning());

    player->signal(SIGKILL);
    ASSERT_TRUE(player->waitUntilExited());  // exited, not reaped: a zombie

    EXPECT_FALSE(control.isRunning());
    control.requestQuit();  // nothing to ask, and nothing goes wrong
    const auto status = player->waitForExit();
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(WTERMSIG(*status), SIGKILL);
}

TEST_F(WorkspaceProcessControlTest, RequestQuitSendsOneSigtermToEachAndReturnsAtOnce) {
    // Both would take ten seconds to quit; requestQuit must not wait for that.
    auto first =
        startPlayer(installBundle(temp / "Applications", identifier), {"--quit-delay-ms", "10000"});
    auto second = startPlayer(installBundle(temp / "home/Applications", identifier),
                              {"--quit-delay-ms", "10000"});

    const auto start = std::chrono::steady_clock::now();
    control.requestQuit();
    const auto elapsed = std::chrono::steady_clock::now() - start;

    EXPECT_LT(elapsed, 2s);
    EXPECT_EQ(joined(first->linesBeforePing().value_or(std::vector<std::string>{"none"})), "term");
    EXPECT_EQ(joined(second->linesBeforePing().value_or(std::vector<std::string>{"none"})), "term");
    // Still alive after answering: nothing forced them out.
    EXPECT_TRUE(control.isRunning());
}

TEST_F(WorkspaceProcessControlTest, PoliteRequestMakesTheCopyQuitByItself) {
    auto player =
        startPlayer(installBundle(temp / "Applications", identifier), {"--quit-delay-ms", "50"});

    control.requestQuit();
    const auto status = player->waitForExit();

    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), 0);
    EXPECT_FALSE(control.isRunning());
}

TEST_F(WorkspaceProcessControlTest, OwnProcessIsNeitherCountedNorSignalled) {
    const std::string probe = installBundle(temp / "Applications", identifier, TAVIO_PROBE_PATH);
    testsupport::SpawnedProcess alone(probe, {identifier});

    EXPECT_EQ(joined(alone.readToEnd().value_or(std::vector<std::string>{"timeout"})),
              "running=0|signalled=0");
}

TEST_F(WorkspaceProcessControlTest, OwnProcessBesideARunningCopyAsksOnlyTheCopy) {
    auto player = startPlayer(installBundle(temp / "Applications", identifier), {"--ignore-quit"});
    const std::string probe =
        installBundle(temp / "home/Applications", identifier, TAVIO_PROBE_PATH);
    testsupport::SpawnedProcess beside(probe, {identifier});

    EXPECT_EQ(joined(beside.readToEnd().value_or(std::vector<std::string>{"timeout"})),
              "running=1|signalled=0");
    EXPECT_EQ(joined(player->linesBeforePing().value_or(std::vector<std::string>{"none"})), "term");
}

TEST_F(WorkspaceProcessControlTest, ProcessThatExitedSinceItWasFoundIsNotSignalled) {
    auto player = startPlayer(installBundle(temp / "Applications", identifier));
    const auto instances = control.runningInstances();
    ASSERT_EQ(instances.size(), 1u);

    player->signal(SIGKILL);
    ASSERT_TRUE(player->waitForExit().has_value());

    EXPECT_FALSE(control.askToQuit(instances[0]));
}

// The process found under an id turns into another program under the same id
// (here by exec, which keeps the id): the request must not reach it.
TEST_F(WorkspaceProcessControlTest, SameIdRunningAnotherProgramIsNotSignalled) {
    const std::string shell = installBundle(temp / "Applications", identifier, "/bin/sh");
    testsupport::SpawnedProcess process(
        shell,
        {"-c", "echo started; read line; exec \"$0\" --exit-with-parent", TAVIO_PLAYER_PATH});
    ASSERT_TRUE(process.readUntil("started").has_value());
    const auto instances = control.runningInstances();
    ASSERT_EQ(instances.size(), 1u);
    ASSERT_EQ(instances[0].pid, process.pid());

    process.send("go\n");
    ASSERT_TRUE(process.readUntil("ready").has_value());

    EXPECT_FALSE(control.askToQuit(instances[0]));
    control.requestQuit();
    EXPECT_EQ(process.linesBeforePing(), std::vector<std::string>{});
}

}  // namespace

namespace {

// Leaves exactly one descriptor free: fills every free number up to the
// highest one in use, then limits the process to one more.
bool leaveOneDescriptorFree() {
    const auto open = testsupport::openDescriptors();
    const int highest = open.empty() ? 2 : *open.rbegin();
    int last = -1;
    while (last <= highest) {
        last = ::open("/dev/null", O_RDONLY);
        if (last < 0) {
            return false;
        }
    }
    ::close(last);
    const struct rlimit low { static_cast<rlim_t>(last) + 1, static_cast<rlim_t>(last) + 1 };
    return ::setrlimit(RLIMIT_NOFILE, &low) == 0;
}

// Out of descriptors in the middle of a look at /proc: the processes that
// could not be looked at may be Tavio, so Tavio counts as running. Deleting
// its files while it may run is what the check is for.
TEST_F(WorkspaceProcessControlTest, ALookThatRunsOutOfDescriptorsCountsAsRunning) {
    auto loose = startPlayer(TAVIO_PLAYER_PATH);  // a process of ours to look at
    ASSERT_FALSE(control.isRunning());
    const auto answer = testsupport::runInChild([&]() -> std::string {
        // Room for /proc itself and nothing more: each process's own entry
        // then fails to open with EMFILE.
        if (!leaveOneDescriptorFree()) {
            return "could not limit the descriptors";
        }
        return control.isRunning() ? "running" : "not running";
    });
    EXPECT_EQ(answer, "running");
}

}  // namespace
