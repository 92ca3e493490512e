#include "platform/linux/ProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string>
#include <string_view>

#include "removal/UniqueFd.h"

namespace platform {
namespace {

using removal::UniqueFd;

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

std::optional<pid_t> parsePid(std::string_view name) {
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (error != std::errc() || end != name.data() + name.size() || pid <= 0) {
        return std::nullopt;
    }
    return pid;
}

std::optional<std::string> readSmallFile(int directoryFD, const char* name) {
    UniqueFd fd(::openat(directoryFD, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) {
        return std::nullopt;
    }
    std::string content;
    char buffer[1024];
    for (;;) {
        const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n == 0) {
            return content;
        }
        if (n < 0) {
            return std::nullopt;
        }
        content.append(buffer, static_cast<std::size_t>(n));
    }
}

struct StatLine {
    char state = '?';
    std::uint64_t startTime = 0;
};

// /proc/<pid>/stat is "pid (comm) state ppid ... starttime ...": the command
// name may hold spaces and parentheses, so the fields are counted from the
// last ")". The state is field 3 and the start time field 22.
std::optional<StatLine> parseStat(const std::string& text) {
    const std::size_t close = text.rfind(')');
    if (close == std::string::npos || close + 2 >= text.size()) {
        return std::nullopt;
    }
    StatLine line;
    line.state = text[close + 2];
    std::size_t position = close + 2;
    for (int field = 3; field < 22; ++field) {
        position = text.find(' ', position);
        if (position == std::string::npos) {
            return std::nullopt;
        }
        ++position;
    }
    const char* begin = text.data() + position;
    const auto [end, error] = std::from_chars(begin, text.data() + text.size(), line.startTime);
    if (error != std::errc() || end == begin) {
        return std::nullopt;
    }
    return line;
}

bool hasTerminated(char state) {
    return state == 'Z' || state == 'X' || state == 'x';
}

std::optional<std::string> readExecutableLink(int processFD) {
    std::string target(4096, '\0');
    const ssize_t n = ::readlinkat(processFD, "exe", target.data(), target.size());
    if (n <= 0 || static_cast<std::size_t>(n) >= target.size()) {
        return std::nullopt;
    }
    target.resize(static_cast<std::size_t>(n));
    return target;
}

}  // namespace

std::vector<pid_t> processesOwnedBy(uid_t owner) {
    std::vector<pid_t> pids;
    // opendir() opens with O_CLOEXEC, and the stream owns its descriptor.
    DIR* directory = ::opendir("/proc");
    if (directory == nullptr) {
        return pids;
    }
    while (const dirent* entry = ::readdir(directory)) {
        const auto pid = parsePid(entry->d_name);
        struct stat st {};
        if (pid && ::fstatat(::dirfd(directory), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
            st.st_uid == owner) {
            pids.push_back(*pid);
        }
    }
    (void)::closedir(directory);
    std::sort(pids.begin(), pids.end());
    return pids;
}

std::optional<ProcessInstance> describeProcess(pid_t pid, uid_t owner) {
    const std::string path = "/proc/" + std::to_string(pid);
    UniqueFd processFD(::open(path.c_str(), kDirectoryFlags | O_NOFOLLOW));
    struct stat st {};
    if (!processFD || ::fstat(processFD.get(), &st) != 0 || st.st_uid != owner) {
        return std::nullopt;
    }
    const auto statText = readSmallFile(processFD.get(), "stat");
    const auto statLine = statText ? parseStat(*statText) : std::nullopt;
    if (!statLine || hasTerminated(statLine->state)) {
        return std::nullopt;
    }
    auto executable = readExecutableLink(processFD.get());
    struct stat executableStat {};
    if (!executable || ::fstatat(processFD.get(), "exe", &executableStat, 0) != 0) {
        return std::nullopt;
    }
    return ProcessInstance{pid, statLine->startTime, std::move(*executable), executableStat.st_dev,
                           executableStat.st_ino};
}

}  // namespace platform
