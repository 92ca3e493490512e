#include "ProgramLauncher.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/file.h>
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

extern char** environ;

namespace programtest {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

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
    if (launch.runtimeFolder) {
        env.push_back("XDG_RUNTIME_DIR=" + launch.scratch + "/runtime");
    }
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
    std::vector<std::string> args;
    if (!launch.openedFilesLog.empty()) {
        args = {"/usr/bin/strace",
                "-f",
                "-qq",
                "-z",
                "-s4096",
                "-etrace=open,openat,openat2,execve",
                "-o" + launch.openedFilesLog,
                "--"};
    }
    args.push_back(launch.executable);
    std::vector<char*> argv;
    for (std::string& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    (void)::dup2(null, STDIN_FILENO);
    ::execve(argv.front(), argv.data(), envp.data());
    _exit(127);
}

// A field of /proc/PID/status ("Name", "PPid"), which anyone may read.
std::string statusField(pid_t pid, const std::string& name) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(name + ":\t", 0) == 0) {
            return line.substr(name.size() + 2);
        }
    }
    return {};
}

// The program itself: the child that was started, or under strace the
// tracer's child once it runs the program (and no longer the tracer's own
// code between fork and exec).
pid_t programProcess(const Launch& launch, pid_t started) {
    if (launch.openedFilesLog.empty()) {
        return started;
    }
    const std::string parent = std::to_string(started);
    for (int attempt = 0; attempt < 1000; ++attempt) {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator("/proc", error)) {
            const std::string name = entry.path().filename();
            if (name.find_first_not_of("0123456789") == std::string::npos &&
                statusField(std::stoi(name), "PPid") == parent &&
                statusField(std::stoi(name), "Name") != "strace") {
                return std::stoi(name);
            }
        }
        std::this_thread::sleep_for(10ms);
    }
    return started;
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
    const pid_t program = programProcess(launch, pid);
    while (!catchesSigterm(program)) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            return "ended before it was ready, status " + std::to_string(status);
        }
        if (std::chrono::steady_clock::now() > deadline) {
            const std::string threads =
                describeThreads(pid) + (program == pid ? "" : describeThreads(program));
            ::kill(pid, SIGKILL);
            (void)::waitpid(pid, nullptr, 0);
            return "never became ready:" + threads;
        }
        std::this_thread::sleep_for(20ms);
    }
    std::this_thread::sleep_for(1500ms);
    if (launch.whileRunning) {
        launch.whileRunning(program, display);
    }
    ::kill(program, launch.signal);
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
        // Xvfb is one of the packages scripts/setup.sh installs: its absence
        // is a broken machine, not a reason to let the test pass.
        return "no X server could be started: is Xvfb installed (scripts/setup.sh)?";
    }
    std::string ended = startAndStop(launch, server.display);
    stopXvfb(server);
    return ended;
}

}  // namespace

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

namespace {

// A folder's times change when anything is created in it or removed from
// it, even briefly, so a file made and removed again is seen too.
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

}  // namespace

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

std::string lockName(uid_t user) {
    return "io.tavio.Tavio.Uninstaller-" + std::to_string(user) + ".lock";
}

// (Without a runtime folder, Qt makes one of its own in the temporary
// folder, "runtime-<user>": not a lock, and not ours to judge.)
std::vector<std::string> locksIn(const std::string& folder) {
    std::vector<std::string> locks;
    for (const std::string& name : testsupport::listNames(folder)) {
        if (name.ends_with(".lock")) {
            locks.push_back(name);
        }
    }
    return locks;
}

ForeignLock::ForeignLock(const std::string& path) {
    testsupport::writeFile(path, "");
    if (::chown(path.c_str(), kAnotherUser, kAnotherUser) != 0 ||
        ::chmod(path.c_str(), 0666) != 0) {
        throw std::runtime_error("cannot give " + path + " to another user");
    }
    fd_ = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd_ < 0 || ::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error("cannot lock " + path);
    }
}

ForeignLock::~ForeignLock() {
    ::close(fd_);
}

}  // namespace programtest
