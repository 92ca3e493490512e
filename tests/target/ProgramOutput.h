#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace testprogram {

// Runs `path` with `arguments` (no shell) and returns what it wrote on its
// standard output, or nothing when it did not exit with status 0.
inline std::optional<std::string> outputOf(const std::string& path,
                                           const std::vector<std::string>& arguments = {}) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = ::posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    std::string output;
    char buffer[4096];
    ssize_t n = 0;
    while (spawned == 0 &&
           ((n = ::read(fds[0], buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR))) {
        if (n > 0) {
            output.append(buffer, static_cast<std::size_t>(n));
        }
    }
    ::close(fds[0]);
    if (spawned != 0) {
        return std::nullopt;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return std::nullopt;
    }
    return output;
}

}  // namespace testprogram
