#include "platform/linux/ProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"

namespace platform {
namespace {

using base::UniqueFd;

std::optional<pid_t> parsePid(std::string_view name) {
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (error != std::errc() || end != name.data() + name.size() || pid <= 0) {
        return std::nullopt;
    }
    return pid;
}

// What a failed call on a process's /proc entry means: the process went
// away (or is not ours to read), or the call failed and nothing is known.
LookFailure failureFor(int error) {
    switch (error) {
        case ENOENT:
        case ESRCH:
        case EACCES:
        case EPERM:
            return LookFailure::notAProcessOfOurs;
        default:
            return LookFailure::unknown;
    }
}

std::variant<std::string, LookFailure> readSmallFile(int directoryFD, const char* name) {
    UniqueFd fd(sys::openFileAt(directoryFD, name));
    if (!fd) {
        return failureFor(errno);
    }
    std::string content;
    if (!sys::readAll(fd.get(), content)) {
        return failureFor(errno);
    }
    return content;
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

// A kernel thread has no executable (ENOENT); a path longer than a page
// cannot be an app bundle's.
std::variant<std::string, LookFailure> readExecutableLink(int processFD) {
    std::string target(4096, '\0');
    const ssize_t n = ::readlinkat(processFD, "exe", target.data(), target.size());
    if (n < 0) {
        return failureFor(errno);
    }
    if (n == 0 || static_cast<std::size_t>(n) >= target.size()) {
        return LookFailure::notAProcessOfOurs;
    }
    target.resize(static_cast<std::size_t>(n));
    return target;
}

}  // namespace

OwnedProcesses processesOwnedBy(uid_t owner) {
    OwnedProcesses owned;
    // opendir() opens with O_CLOEXEC, and the stream owns its descriptor.
    DIR* directory = ::opendir("/proc");
    if (directory == nullptr) {
        owned.complete = false;
        return owned;
    }
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(directory);
        if (entry == nullptr) {
            owned.complete = owned.complete && errno == 0;
            break;
        }
        const auto pid = parsePid(entry->d_name);
        if (!pid) {
            continue;
        }
        struct stat st {};
        if (sys::statAt(::dirfd(directory), entry->d_name, st) != 0) {
            owned.complete = owned.complete && failureFor(errno) != LookFailure::unknown;
        } else if (st.st_uid == owner) {
            owned.pids.push_back(*pid);
        }
    }
    (void)::closedir(directory);
    std::sort(owned.pids.begin(), owned.pids.end());
    return owned;
}

std::variant<ProcessInstance, LookFailure> describeProcess(pid_t pid, uid_t owner) {
    const std::string path = "/proc/" + std::to_string(pid);
    UniqueFd processFD(sys::open(path.c_str(), sys::kFolderFlags));
    if (!processFD) {
        return failureFor(errno);
    }
    struct stat st {};
    if (::fstat(processFD.get(), &st) != 0) {
        return failureFor(errno);
    }
    if (st.st_uid != owner) {
        return LookFailure::notAProcessOfOurs;
    }
    auto statText = readSmallFile(processFD.get(), "stat");
    if (const auto* failure = std::get_if<LookFailure>(&statText)) {
        return *failure;
    }
    const auto statLine = parseStat(std::get<std::string>(statText));
    if (!statLine) {
        return LookFailure::unknown;  // the kernel's own format, unreadable
    }
    if (hasTerminated(statLine->state)) {
        return LookFailure::notAProcessOfOurs;
    }
    auto executable = readExecutableLink(processFD.get());
    if (const auto* failure = std::get_if<LookFailure>(&executable)) {
        return *failure;
    }
    struct stat executableStat {};
    if (sys::statAt(processFD.get(), "exe", executableStat, /*flags=*/0) != 0) {
        return failureFor(errno);
    }
    return ProcessInstance{pid, statLine->startTime, std::move(std::get<std::string>(executable)),
                           executableStat.st_dev, executableStat.st_ino};
}

}  // namespace platform
