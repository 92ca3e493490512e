#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "ChildProcess.h"
#include "TempDir.h"
#include "target/MainBundle.h"

// The real program, as built: its bundle layout, that it leaves no trace in
// the home folder, that it quits on a termination signal, and that a copy
// run from its own folder in the temporary folder removes that folder.
//
// Each run happens in a child that has entered its own user and mount
// namespace, where the user database is replaced by a copy that gives the
// user a fresh home in the test's temporary folder: the program finds its
// user through that database, so this is the only honest way to hand it an
// empty home without touching the real one.

extern char** environ;

namespace {

using namespace std::chrono_literals;
using testsupport::TempDir;
namespace fs = std::filesystem;

const std::string kExecutable = UNINSTALLER_PATH;

std::string bundleOf(const std::string& executable) {
    return fs::path(executable).parent_path().parent_path().parent_path().string();
}

struct Launch {
    std::string executable = kExecutable;
    std::string home;
    std::string temporary;  // TMPDIR
    std::string scratch;    // for the user database copy and the runtime folder
    int signal = SIGTERM;
    bool onXServer = false;  // a real window on Xvfb instead of the offscreen platform
};

// The user database with the current user's home replaced.
std::string passwdWithHome(uid_t uid, const std::string& home) {
    std::ifstream in("/etc/passwd");
    std::ostringstream out;
    std::string line;
    while (std::getline(in, line)) {
        std::vector<std::string> fields;
        std::stringstream split(line);
        for (std::string field; std::getline(split, field, ':');) {
            fields.push_back(field);
        }
        if (fields.size() >= 7 && fields[2] == std::to_string(uid)) {
            fields[5] = home;
            line.clear();
            for (std::size_t i = 0; i < fields.size(); ++i) {
                line += (i ? ":" : "") + fields[i];
            }
        }
        out << line << '\n';
    }
    return out.str();
}

// The environment of the program: the test's own (sanitizer options
// included), without anything that names a desktop session, with the given
// home and temporary folder and the offscreen platform.
std::vector<std::string> programEnvironment(const Launch& launch, const std::string& display) {
    std::vector<std::string> env;
    for (char** entry = environ; *entry; ++entry) {
        const std::string value = *entry;
        const std::string name = value.substr(0, value.find('='));
        if (name.rfind("XDG_", 0) != 0 && name != "HOME" && name != "TMPDIR" && name != "DISPLAY" &&
            name != "WAYLAND_DISPLAY" && name != "DBUS_SESSION_BUS_ADDRESS" &&
            name.rfind("QT_", 0) != 0 && name.rfind("QML", 0) != 0) {
            env.push_back(value);
        }
    }
    env.push_back("HOME=" + launch.home);
    env.push_back("TMPDIR=" + launch.temporary);
    env.push_back("XDG_RUNTIME_DIR=" + launch.scratch + "/runtime");
    if (display.empty()) {
        env.push_back("QT_QPA_PLATFORM=offscreen");
    } else {
        env.push_back("QT_QPA_PLATFORM=xcb");
        env.push_back("DISPLAY=" + display);
    }
    return env;
}

bool catchesSigterm(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigCgt:", 0) == 0) {
            const unsigned long long mask = std::stoull(line.substr(7), nullptr, 16);
            return (mask >> (SIGTERM - 1)) & 1U;
        }
    }
    return false;
}

// Waits up to `limit` for the child to end; "exit N", "signal N" or "".
std::string awaitExit(pid_t pid, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            return WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                     : "signal " + std::to_string(WTERMSIG(status));
        }
        std::this_thread::sleep_for(20ms);
    }
    return {};
}

// What each thread of a process that does not answer is doing, for the
// failure message: its name, state and kernel wait channel.
std::string describeThreads(pid_t pid) {
    std::string out;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    std::error_code error;
    for (const auto& task : fs::directory_iterator(tasks, error)) {
        std::ifstream stat(task.path() / "stat");
        std::ifstream wchan(task.path() / "wchan");
        std::string statLine;
        std::string channel;
        std::getline(stat, statLine);
        std::getline(wchan, channel);
        out += "\n  " + statLine.substr(0, statLine.find(')', 0) + 3) + " in " + channel;
    }
    return out;
}

[[noreturn]] void execProgram(const Launch& launch, const std::string& display) {
    std::vector<std::string> env = programEnvironment(launch, display);
    std::vector<char*> envp;
    for (std::string& entry : env) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    std::string program = launch.executable;
    char* argv[] = {program.data(), nullptr};
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    (void)::dup2(null, STDIN_FILENO);
    ::execve(program.c_str(), argv, envp.data());
    _exit(127);
}

// Starts the program, waits until it handles termination signals and has
// had a moment to show its window, sends the signal and reports how it
// ended.
std::string startAndStop(const Launch& launch, const std::string& display) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        execProgram(launch, display);
    }
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (!catchesSigterm(pid)) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            return "ended before it was ready, status " + std::to_string(status);
        }
        if (std::chrono::steady_clock::now() > deadline) {
            const std::string threads = describeThreads(pid);
            ::kill(pid, SIGKILL);
            (void)::waitpid(pid, nullptr, 0);
            return "never became ready:" + threads;
        }
        std::this_thread::sleep_for(20ms);
    }
    std::this_thread::sleep_for(1500ms);
    ::kill(pid, launch.signal);
    std::string ended = awaitExit(pid, 60s);
    if (ended.empty()) {
        const std::string threads = describeThreads(pid);
        ::kill(pid, SIGKILL);
        (void)::waitpid(pid, nullptr, 0);
        return "did not end after the signal:" + threads;
    }
    return ended;
}

// An X server of the test's own on a free display, or nothing when Xvfb is
// not there. It tells its display number through a pipe once it is ready.
struct XServer {
    pid_t pid = -1;
    std::string display;
};

XServer startXvfb(const Launch& launch) {
    int fds[2];
    if (::pipe(fds) != 0) {
        return {};
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        const std::string fd = std::to_string(fds[1]);
        const std::string home = "HOME=" + launch.home;
        char* env[] = {const_cast<char*>(home.c_str()), nullptr};
        const int null = ::open("/dev/null", O_RDWR);
        (void)::dup2(null, STDIN_FILENO);
        (void)::dup2(null, STDERR_FILENO);
        ::execle("/usr/bin/Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-nolisten", "tcp", "-screen",
                 "0", "1280x800x24", static_cast<char*>(nullptr), env);
        _exit(127);
    }
    ::close(fds[1]);
    std::string number;
    char c = 0;
    while (::read(fds[0], &c, 1) == 1 && c != '\n') {
        number += c;
    }
    ::close(fds[0]);
    if (number.empty()) {
        (void)::waitpid(pid, nullptr, 0);
        return {};
    }
    return {pid, ":" + number};
}

void stopXvfb(const XServer& server) {
    ::kill(server.pid, SIGTERM);
    (void)::waitpid(server.pid, nullptr, 0);
}

std::string startAndStopOnDisplay(const Launch& launch) {
    if (!launch.onXServer) {
        return startAndStop(launch, "");
    }
    const XServer server = startXvfb(launch);
    if (server.display.empty()) {
        return "skip: no X server (Xvfb) could be started";
    }
    std::string ended = startAndStop(launch, server.display);
    stopXvfb(server);
    return ended;
}

// Runs the program for `launch` in a namespace of its own; the answer is
// how it ended, or why it could not be run ("skip: …").
std::string runProgram(const Launch& launch) {
    const std::optional<std::string> answer = testsupport::runInChild([&]() -> std::string {
        const std::string problem = testsupport::enterPrivateMountNamespace();
        if (!problem.empty()) {
            return "skip: " + problem;
        }
        const std::string passwd = launch.scratch + "/passwd";
        testsupport::writeFile(passwd, passwdWithHome(::getuid(), launch.home));
        if (::mount(passwd.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) != 0) {
            return "skip: cannot replace the user database here";
        }
        const struct passwd* entry = ::getpwuid(::getuid());
        if (entry == nullptr || launch.home != entry->pw_dir) {
            return "skip: the user database is not read from /etc/passwd here";
        }
        testsupport::makeDirectories(launch.scratch + "/runtime", 0700);
        return startAndStopOnDisplay(launch);
    });
    return answer.value_or("the child gave no answer");
}

// Everything below `root` that a program could change: type, permissions,
// owner, size and modification times, by relative path. A folder's times
// change when anything is created in it or removed from it, even briefly.
using Snapshot =
    std::map<std::string, std::tuple<unsigned, uid_t, gid_t, off_t, long, long, long, long>>;

void snapshotInto(const std::string& root, const std::string& relative, Snapshot& snapshot) {
    struct stat st {};
    const std::string path = relative.empty() ? root : root + "/" + relative;
    if (::lstat(path.c_str(), &st) != 0) {
        return;
    }
    snapshot[relative] = {st.st_mode,        st.st_uid,         st.st_gid,
                          st.st_size,        st.st_mtim.tv_sec, st.st_mtim.tv_nsec,
                          st.st_ctim.tv_sec, st.st_ctim.tv_nsec};
    if (S_ISDIR(st.st_mode)) {
        for (const std::string& name : testsupport::listNames(path)) {
            snapshotInto(root, relative.empty() ? name : relative + "/" + name, snapshot);
        }
    }
}

Snapshot snapshot(const std::string& root) {
    Snapshot result;
    snapshotInto(root, "", result);
    return result;
}

std::string describeDifference(const Snapshot& before, const Snapshot& after) {
    const auto shown = [](const std::string& path) { return path.empty() ? "." : path; };
    std::string out;
    for (const auto& [path, value] : after) {
        const auto found = before.find(path);
        if (found == before.end()) {
            out += "added: " + shown(path) + "\n";
        } else if (found->second != value) {
            out += "changed: " + shown(path) + "\n";
        }
    }
    for (const auto& [path, value] : before) {
        if (!after.contains(path)) {
            out += "removed: " + shown(path) + "\n";
        }
    }
    return out;
}

class ProgramTest : public ::testing::Test {
  protected:
    void SetUp() override {
        testsupport::makeDirectories(temp_ / "home");
        testsupport::makeDirectories(temp_ / "tmp");
        testsupport::makeDirectories(temp_ / "scratch");
    }

    Launch launch(std::string executable = kExecutable) const {
        return Launch{std::move(executable), temp_ / "home", temp_ / "tmp", temp_ / "scratch"};
    }

    // Runs `launch` and expects a clean exit; skips where namespaces are not
    // available.
    void runExpectingCleanExit(const Launch& how) {
        const std::string ended = runProgram(how);
        if (ended.rfind("skip: ", 0) == 0) {
            GTEST_SKIP() << ended.substr(6);
        }
        EXPECT_EQ(ended, "exit 0");
    }

    // A copy of the built bundle at `folder`/Uninstall Tavio.app; returns
    // its executable.
    std::string copyBundleInto(const std::string& folder) const {
        testsupport::makeDirectories(folder);
        const fs::path bundle = bundleOf(kExecutable);
        const fs::path copy = fs::path(folder) / bundle.filename();
        fs::copy(bundle, copy, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        return (copy / fs::relative(kExecutable, bundle)).string();
    }

    TempDir temp_;
};

// Runs the program and, where it could not run at all, ends the test there.
#define RUN_EXPECTING_CLEAN_EXIT(how)      \
    do {                                   \
        runExpectingCleanExit(how);        \
        if (IsSkipped() || HasFailure()) { \
            return;                        \
        }                                  \
    } while (false)

TEST_F(ProgramTest, IsLaidOutAsAnAppBundleNamingItsTarget) {
    const std::string bundle = bundleOf(kExecutable);
    EXPECT_EQ(fs::path(bundle).filename(), "Uninstall Tavio.app");
    EXPECT_EQ(fs::path(kExecutable).parent_path().filename(), "MacOS");
    EXPECT_TRUE(testsupport::isDirectory(bundle + "/Contents/Resources"));
    const auto info = target::MainBundle::load(bundle + "/Contents/Info.plist");
    EXPECT_EQ(info.targetString("TavioTargetBundleIdentifier", ""), "io.tavio.Tavio");
    EXPECT_EQ(info.targetString("TavioTargetAppName", ""), "Tavio.app");
    EXPECT_EQ(info.targetString("CFBundleExecutable", ""), fs::path(kExecutable).filename());
    EXPECT_EQ(info.targetString("CFBundleIdentifier", ""), "io.tavio.Tavio.Uninstaller");
    EXPECT_EQ(info.targetString("CFBundlePackageType", ""), "APPL");
}

TEST_F(ProgramTest, LeavesTheHomeFolderExactlyAsItWas) {
    const std::string home = temp_ / "home";
    testsupport::writeFile(home + "/.profile", "# mine\n");
    testsupport::makeDirectories(home + "/Downloads");
    testsupport::writeFile(home + "/Downloads/film.torrent", "d8:announce0:e");
    testsupport::makeDirectories(home + "/Library/Preferences");
    testsupport::writeFile(home + "/Library/Preferences/other.app.plist", "<plist/>");
    const Snapshot before = snapshot(home);

    RUN_EXPECTING_CLEAN_EXIT(launch());
    EXPECT_EQ(describeDifference(before, snapshot(home)), "");
}

// With a real window on an X server and no session bus, which is when
// graphics drivers and the bus library are most tempted to keep something.
TEST_F(ProgramTest, LeavesTheHomeFolderExactlyAsItWasOnAnXServer) {
    const std::string home = temp_ / "home";
    testsupport::writeFile(home + "/.profile", "# mine\n");
    const Snapshot before = snapshot(home);

    Launch how = launch();
    how.onXServer = true;
    RUN_EXPECTING_CLEAN_EXIT(how);
    EXPECT_EQ(describeDifference(before, snapshot(home)), "");
}

TEST_F(ProgramTest, LeavesAnEmptyHomeFolderEmpty) {
    const Snapshot before = snapshot(temp_ / "home");
    RUN_EXPECTING_CLEAN_EXIT(launch());
    EXPECT_EQ(describeDifference(before, snapshot(temp_ / "home")), "");
}

TEST_F(ProgramTest, QuitsOnEachTerminationSignal) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        Launch how = launch();
        how.signal = signal;
        SCOPED_TRACE(signal);
        RUN_EXPECTING_CLEAN_EXIT(how);
    }
}

TEST_F(ProgramTest, ACopyInItsOwnTemporaryFolderRemovesThatFolder) {
    const std::string folder = temp_ / "tmp/io.tavio.Tavio.uninstaller-K3x9";
    RUN_EXPECTING_CLEAN_EXIT(launch(copyBundleInto(folder)));
    EXPECT_FALSE(testsupport::exists(folder));
    EXPECT_TRUE(testsupport::isDirectory(temp_ / "tmp"));
}

TEST_F(ProgramTest, ACopyOneLevelDeeperIsLeftAlone) {
    const std::string folder = temp_ / "tmp/outer/io.tavio.Tavio.uninstaller-K3x9";
    const std::string executable = copyBundleInto(folder);
    RUN_EXPECTING_CLEAN_EXIT(launch(executable));
    EXPECT_TRUE(testsupport::exists(executable));
}

TEST_F(ProgramTest, ACopyWithoutThePrefixIsLeftAlone) {
    const std::string executable = copyBundleInto(temp_ / "tmp/uninstaller-K3x9");
    RUN_EXPECTING_CLEAN_EXIT(launch(executable));
    EXPECT_TRUE(testsupport::exists(executable));
}

TEST_F(ProgramTest, TheTemporaryFolderIsComparedWithLinksResolved) {
    testsupport::makeDirectories(temp_ / "real-tmp");
    testsupport::makeLink(temp_ / "real-tmp", temp_ / "tmp-link");
    const std::string folder = temp_ / "real-tmp/io.tavio.Tavio.uninstaller-K3x9";
    Launch how = launch(copyBundleInto(folder));
    how.temporary = temp_ / "tmp-link";
    RUN_EXPECTING_CLEAN_EXIT(how);
    EXPECT_FALSE(testsupport::exists(folder));
}

}  // namespace
