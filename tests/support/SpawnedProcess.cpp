#include "SpawnedProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace testsupport {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

int remainingMs(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

// Waits until `fd` is readable or the deadline passes.
bool waitReadable(int fd, Clock::time_point deadline) {
    for (;;) {
        pollfd entry{fd, POLLIN, 0};
        const int ready = ::poll(&entry, 1, remainingMs(deadline));
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

}  // namespace

SpawnedProcess::SpawnedProcess(const std::string& executable,
                               const std::vector<std::string>& arguments) {
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) {
        fail("pipe2");
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(executable.c_str()));
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ < 0) {
        fail("fork");
    }
    if (pid_ == 0) {
        // dup2 clears close-on-exec on the copies, and only on them.
        if (::dup2(in[0], STDIN_FILENO) < 0 || ::dup2(out[1], STDOUT_FILENO) < 0) {
            _exit(126);
        }
        ::execv(executable.c_str(), argv.data());
        _exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    input_ = in[1];
    output_ = out[0];
    pidfd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0U));
    if (pidfd_ < 0) {
        fail("pidfd_open");
    }
}

SpawnedProcess::~SpawnedProcess() {
    if (!reaped_) {
        (void)::kill(pid_, SIGKILL);
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
    }
    for (const int fd : {pidfd_, input_, output_}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

std::optional<std::string> SpawnedProcess::readLine(std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        const std::size_t newline = buffered_.find('\n');
        if (newline != std::string::npos) {
            std::string line = buffered_.substr(0, newline);
            buffered_.erase(0, newline + 1);
            return line;
        }
        if (!waitReadable(output_, deadline)) {
            return std::nullopt;
        }
        char chunk[512];
        const ssize_t n = ::read(output_, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            ended_ = n == 0;
            return std::nullopt;
        }
        buffered_.append(chunk, static_cast<std::size_t>(n));
    }
}

std::optional<std::vector<std::string>> SpawnedProcess::readUntil(
    const std::string& line,
    std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    std::vector<std::string> before;
    for (;;) {
        const auto next = readLine(std::chrono::milliseconds(remainingMs(deadline)));
        if (!next) {
            return std::nullopt;
        }
        if (*next == line) {
            return before;
        }
        before.push_back(*next);
    }
}

std::optional<std::vector<std::string>> SpawnedProcess::readToEnd(
    std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    std::vector<std::string> lines;
    for (;;) {
        if (auto next = readLine(std::chrono::milliseconds(remainingMs(deadline)))) {
            lines.push_back(std::move(*next));
            continue;
        }
        // No line: either the output ended or time ran out.
        if (!ended_) {
            return std::nullopt;
        }
        if (!buffered_.empty()) {
            lines.push_back(std::exchange(buffered_, {}));
        }
        return lines;
    }
}

std::optional<std::vector<std::string>> SpawnedProcess::linesBeforePing(
    std::chrono::milliseconds timeout) {
    signal(SIGWINCH);
    return readUntil("ping", timeout);
}

void SpawnedProcess::send(const std::string& text) {
    if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        fail("write to child");
    }
}

void SpawnedProcess::signal(int number) {
    if (::syscall(SYS_pidfd_send_signal, pidfd_, number, nullptr, 0U) != 0) {
        fail("pidfd_send_signal");
    }
}

bool SpawnedProcess::waitUntilExited(std::chrono::milliseconds timeout) {
    // A pidfd becomes readable when its process has exited.
    return waitReadable(pidfd_, Clock::now() + timeout);
}

std::optional<int> SpawnedProcess::waitForExit(std::chrono::milliseconds timeout) {
    if (!waitUntilExited(timeout)) {
        return std::nullopt;
    }
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0) {
        if (errno != EINTR) {
            fail("waitpid");
        }
    }
    reaped_ = true;
    return status;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += (text.empty() ? "" : "|") + line;
    }
    return text;
}

}  // namespace testsupport
