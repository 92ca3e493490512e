#include "ChildProcess.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace testsupport {

bool writeAll(int fd, const std::string& data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

std::string readToEnd(int fd) {
    std::string data;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) {
            data.append(buffer, static_cast<std::size_t>(n));
        } else if (n == 0 || errno != EINTR) {
            return data;
        }
    }
}

namespace {

bool writeProcFile(const char* path, const std::string& content) {
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool ok = writeAll(fd, content);
    ::close(fd);
    return ok;
}

void waitFor(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
}

// Process 1 of the new namespace: mounts its own /proc, runs the body in a
// child of its own and passes the answer on. When it exits, the kernel ends
// whatever else still runs in the namespace.
[[noreturn]] void beInit(const std::function<std::string()>& body, int answerFD) {
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        (void)writeAll(answerFD,
                       std::string("!cannot mount a private /proc: ") + std::strerror(errno));
        _exit(1);
    }
    const pid_t worker = ::fork();
    if (worker == 0) {
        std::string answer;
        try {
            answer = "=" + body();
        } catch (const std::exception& e) {
            answer = std::string("!exception in child: ") + e.what();
        }
        _exit(writeAll(answerFD, answer) ? 0 : 1);
    }
    ::close(answerFD);
    if (worker > 0) {
        waitFor(worker);
    }
    _exit(0);
}

}  // namespace

std::optional<std::string> inPrivateProcessTable(const std::function<std::string()>& body) {
    int flags = CLONE_NEWPID | CLONE_NEWNS;
    const bool root = ::geteuid() == 0;
    const uid_t uid = ::getuid();
    const gid_t gid = ::getgid();
    if (::unshare(root ? flags : flags | CLONE_NEWUSER) != 0) {
        throw std::runtime_error(std::string("pid and mount namespaces are not available: ") +
                                 std::strerror(errno));
    }
    if (!root) {
        (void)writeProcFile("/proc/self/setgroups", "deny");
        if (!writeProcFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
            !writeProcFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1")) {
            throw std::runtime_error("cannot map the user into the namespace");
        }
    }
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    const pid_t init = ::fork();
    if (init == 0) {
        ::close(fds[0]);
        beInit(body, fds[1]);
    }
    ::close(fds[1]);
    const std::string answer = init > 0 ? readToEnd(fds[0]) : std::string();
    ::close(fds[0]);
    if (init < 0) {
        throw std::runtime_error("fork failed");
    }
    waitFor(init);
    if (answer.empty()) {
        return std::nullopt;
    }
    if (answer[0] != '=') {
        throw std::runtime_error(answer.substr(1));
    }
    return answer.substr(1);
}

std::optional<std::string> runInChild(const std::function<std::string()>& body) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    const pid_t pid = ::fork();
    if (pid < 0) {
        ::close(fds[0]);
        ::close(fds[1]);
        throw std::runtime_error("fork failed");
    }
    if (pid == 0) {
        ::close(fds[0]);
        std::string answer;
        try {
            answer = "=" + body();
        } catch (const std::exception& e) {
            answer = std::string("!exception in child: ") + e.what();
        }
        _exit(writeAll(fds[1], answer) ? 0 : 1);
    }
    ::close(fds[1]);
    std::string answer;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n > 0) {
            answer.append(buffer, static_cast<std::size_t>(n));
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    ::close(fds[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (answer.empty() || answer[0] != '=') {
        if (!answer.empty()) {
            throw std::runtime_error(answer.substr(1));
        }
        return std::nullopt;
    }
    return answer.substr(1);
}

std::string enterPrivateMountNamespace() {
    const uid_t uid = ::getuid();
    const gid_t gid = ::getgid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return std::string("user and mount namespaces are not available: ") + std::strerror(errno);
    }
    (void)writeProcFile("/proc/self/setgroups", "deny");
    if (!writeProcFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
        !writeProcFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1")) {
        return std::string("cannot map the user into the namespace: ") + std::strerror(errno);
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return std::string("cannot make mounts private: ") + std::strerror(errno);
    }
    return {};
}

}  // namespace testsupport
