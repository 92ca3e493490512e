// The processes of the user whose executable the kernel hides from that
// user: the agents that every desktop session runs, programs started with
// another group, programs that made themselves undumpable. Root sees every
// executable, so each test starts its processes as an ordinary user (through
// setpriv, with the group it needs) and then looks from a child that has
// become that user, as the uninstaller does on a desktop.
#include <grp.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "ChildProcess.h"
#include "ProcessFixture.h"
#include "platform/WorkspaceProcessControl.h"

namespace {

using platform::WorkspaceProcessControl;
using testsupport::joined;
using testsupport::SpawnedProcess;
using namespace std::chrono_literals;

// A user of these tests alone, with no entry in the user database (the agents
// do not need one): tests that run at the same time as "nobody" start
// players too, and a look at the user's processes must see only this test's.
constexpr uid_t kUser = 64721;
constexpr gid_t kGroup = 64721;
constexpr gid_t kOtherGroup = 100;  // users: a group the user's looks do not run with
constexpr const char* kSetpriv = "/usr/bin/setpriv";

class HiddenExecutableTest : public testsupport::ProcessFixture {
  protected:
    void SetUp() override {
        if (::getuid() != 0) {
            GTEST_SKIP() << "needs root to start processes as another user and group";
        }
        testsupport::makeDirectories(temp / "Applications");
        testsupport::makeDirectories(temp / "home/Applications");
        testsupport::makeDirectories(temp / "bin");
    }

    WorkspaceProcessControl control() const {
        return WorkspaceProcessControl(identifier,
                                       {temp / "Applications", temp / "home/Applications"});
    }

    // Starts `program` as the user, with `group` as its only group.
    static std::unique_ptr<SpawnedProcess> startAsUser(const std::string& program,
                                                       std::vector<std::string> arguments,
                                                       gid_t group = kGroup) {
        std::vector<std::string> command{"--reuid=" + std::to_string(kUser),
                                         "--regid=" + std::to_string(group), "--clear-groups", "--",
                                         program};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return std::make_unique<SpawnedProcess>(kSetpriv, command);
    }

    static std::unique_ptr<SpawnedProcess> startPlayerAsUser(const std::string& executable,
                                                             std::vector<std::string> options,
                                                             gid_t group = kGroup) {
        options.push_back("--exit-with-parent");
        auto player = startAsUser(executable, options, group);
        if (!player->readUntil("ready")) {
            throw std::runtime_error("the player at " + executable + " did not get ready");
        }
        return player;
    }

    // Runs `body` in a child that has given the test's folder to the user;
    // `body` starts what it needs as root and then becomes the user. The
    // child ends, and what it started with it, before the answer is
    // returned.
    std::string asUser(const std::function<std::string()>& body) {
        const std::string folder = temp.path();
        return testsupport::runInChild([&]() -> std::string {
                   giveTree(folder);
                   return body();
               })
            .value_or("child died");
    }

    static void giveTree(const std::string& folder) {
        const auto give = [](const std::filesystem::path& path) {
            if (::lchown(path.c_str(), kUser, kGroup) != 0) {
                throw std::runtime_error("cannot give " + path.string() + " to the user");
            }
        };
        give(folder);
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            give(entry.path());
        }
    }

    static std::string becomeUser() {
        if (::setgroups(0, nullptr) != 0 || ::setgid(kGroup) != 0 || ::setuid(kUser) != 0) {
            return "cannot become the user";
        }
        return "";
    }

    // Whether the user is refused `pid`'s executable: what makes it a test
    // of a hidden executable at all.
    static bool executableHidden(pid_t pid) {
        char target[4096];
        const std::string link = "/proc/" + std::to_string(pid) + "/exe";
        return ::readlink(link.c_str(), target, sizeof target) < 0 && errno == EACCES;
    }

    static bool stillRunning(SpawnedProcess& process) { return !process.waitUntilExited(300ms); }

    // In the child, once it has started what it needs: becomes the user,
    // makes sure that each of `pids` hides its executable from the user, and
    // asks, as the user, whether Tavio runs and to quit it. "running" or
    // "not running", or what went wrong.
    std::string lookAndAskAsUser(const std::vector<pid_t>& pids) const {
        if (const std::string failed = becomeUser(); !failed.empty()) {
            return failed;
        }
        for (const pid_t pid : pids) {
            if (!executableHidden(pid)) {
                return "the executable of " + std::to_string(pid) + " is not hidden";
            }
        }
        const auto control = this->control();
        const bool running = control.isRunning();
        control.requestQuit();
        return running ? "running" : "not running";
    }

    // Makes a folder root's, which the user may pass through but not list.
    static void closeToUser(const std::string& folder) {
        if (::chown(folder.c_str(), 0, 0) != 0 || ::chmod(folder.c_str(), 0711) != 0) {
            throw std::runtime_error("cannot close " + folder);
        }
    }

    static std::string signalsSeen(SpawnedProcess& player) {
        return "[" + joined(player.linesBeforePing().value_or(std::vector<std::string>{"none"})) +
               "]";
    }
};

TEST_F(HiddenExecutableTest, AgentsOfADesktopSessionAreNotTavioAndAreNeverSignalled) {
    installBundle(temp / "Applications", identifier);  // installed, not running
    testsupport::makeDirectories(temp / "gnupg", 0700);
    const auto answer = asUser([&]() -> std::string {
        auto ssh = startAsUser("/usr/bin/ssh-agent", {"-D", "-a", temp / "agent.sock"});
        auto gpg =
            startAsUser("/usr/bin/gpg-agent", {"--quiet", "--homedir", temp / "gnupg", "--server"});
        if (!ssh->readLine(10s) || !gpg->readUntil("OK Pleased to meet you", 10s)) {
            return "an agent did not start";
        }
        return lookAndAskAsUser({ssh->pid(), gpg->pid()}) +
               (stillRunning(*ssh) ? " ssh-agent alive" : " ssh-agent gone") +
               (stillRunning(*gpg) ? " gpg-agent alive" : " gpg-agent gone");
    });
    EXPECT_EQ(answer, "not running ssh-agent alive gpg-agent alive");
}

TEST_F(HiddenExecutableTest, ProgramsWithAnotherGroupOrUndumpableAreNotTavioAndAreNeverSignalled) {
    installBundle(temp / "Applications", identifier);
    installProgram(TAVIO_PLAYER_PATH, temp / "bin/player");
    const auto answer = asUser([&]() -> std::string {
        auto grouped = startPlayerAsUser(temp / "bin/player", {}, kOtherGroup);
        auto undumpable = startPlayerAsUser(temp / "bin/player", {"--undumpable"});
        return lookAndAskAsUser({grouped->pid(), undumpable->pid()}) + " " + signalsSeen(*grouped) +
               " " + signalsSeen(*undumpable);
    });
    EXPECT_EQ(answer, "not running [] []");
}

// A copy of Tavio that hides its executable is still found, asked to quit,
// and waited for.
class HiddenTavioTest : public HiddenExecutableTest,
                        public ::testing::WithParamInterface<const char*> {
  protected:
    std::unique_ptr<SpawnedProcess> startHidden(const std::string& executable) {
        if (std::string(GetParam()) == "another group") {
            return startPlayerAsUser(executable, {"--quit-delay-ms", "50"}, kOtherGroup);
        }
        return startPlayerAsUser(executable, {"--quit-delay-ms", "50", "--undumpable"});
    }

    std::string findAskAndWait(const std::string& executable) {
        return asUser([&]() -> std::string {
            auto player = startHidden(executable);
            const std::string found = lookAndAskAsUser({player->pid()});
            const auto status = player->waitForExit();
            const bool quit = status && WIFEXITED(*status) && WEXITSTATUS(*status) == 0;
            return found + (quit ? ", quit" : ", did not quit") +
                   (control().isRunning() ? ", still running" : ", gone");
        });
    }
};

TEST_P(HiddenTavioTest, CopyInAnApplicationFolderIsFoundAskedToQuitAndGone) {
    EXPECT_EQ(findAskAndWait(installBundle(temp / "Applications", identifier)),
              "running, quit, gone");
}

// Outside the application folders, the path it was started by leads to a
// bundle that declares Tavio, whatever its executable's name.
TEST_P(HiddenTavioTest, CopyAnywhereElseIsFoundByThePathItWasStartedBy) {
    const std::string executable = installBundle(temp / "Downloads", identifier, TAVIO_PLAYER_PATH,
                                                 "Player Copy.app", "player-copy");
    EXPECT_EQ(findAskAndWait(executable), "running, quit, gone");
}

// Started through a link elsewhere, it is known by the name that a bundle in
// an application folder gives its executable.
TEST_P(HiddenTavioTest, CopyStartedThroughALinkIsFoundByItsExecutablesName) {
    const std::string executable = installBundle(temp / "home/Applications", identifier,
                                                 TAVIO_PLAYER_PATH, "Tavio Beta.app", "TavioBeta");
    testsupport::makeLink(executable, temp / "bin/TavioBeta");
    EXPECT_EQ(findAskAndWait(temp / "bin/TavioBeta"), "running, quit, gone");
}

INSTANTIATE_TEST_SUITE_P(Hidden,
                         HiddenTavioTest,
                         ::testing::Values("another group", "undumpable"),
                         [](const auto& info) {
                             return std::string(info.param) == "another group" ? "AnotherGroup"
                                                                               : "Undumpable";
                         });

// A hidden process on a path through a bundle that the user cannot read may
// be Tavio: the check refuses, and still signals no one.
TEST_F(HiddenExecutableTest, HiddenProcessInABundleThatCannotBeReadCountsAsRunningUnsignalled) {
    const std::string executable = installBundle(temp / "Downloads", "io.example.Closed",
                                                 TAVIO_PLAYER_PATH, "Closed.app", "closed");
    const std::string contents = temp / "Downloads/Closed.app/Contents";
    const auto answer = asUser([&]() -> std::string {
        auto player = startPlayerAsUser(executable, {"--undumpable"});
        closeToUser(contents);  // its Info.plist cannot be read
        return lookAndAskAsUser({player->pid()}) + " " + signalsSeen(*player);
    });
    EXPECT_EQ(answer, "running []");
}

// An application folder that cannot be listed may hold a Tavio whose
// executable's name is not known: a hidden process then counts as running.
TEST_F(HiddenExecutableTest, ApplicationFolderThatCannotBeListedMakesAHiddenProcessCount) {
    installProgram(TAVIO_PLAYER_PATH, temp / "bin/player");
    const auto answer = asUser([&]() -> std::string {
        auto player = startPlayerAsUser(temp / "bin/player", {"--undumpable"});
        closeToUser(temp / "Applications");
        return lookAndAskAsUser({player->pid()});
    });
    EXPECT_EQ(answer, "running");
}

// Whatever is mounted at /proc must be the kernel's process table of our own
// namespace: an empty folder there lists no process at all, which must never
// read as "Tavio is not running".
TEST_F(HiddenExecutableTest, SomethingElseAtProcCountsAsRunning) {
    const auto answer = testsupport::runInChild([&]() -> std::string {
        if (const std::string why = testsupport::enterPrivateMountNamespace(); !why.empty()) {
            return why;
        }
        if (::mount("none", "/proc", "tmpfs", 0, nullptr) != 0) {
            return "cannot mount over /proc";
        }
        const auto control = this->control();
        const bool cannotTell =
            control.lookForCopies() == WorkspaceProcessControl::Running::cannotTell;
        return std::string(control.isRunning() ? "running" : "not running") +
               (cannotTell ? ", cannot tell" : ", told");
    });
    EXPECT_EQ(answer.value_or("child died"), "running, cannot tell");
}

}  // namespace
