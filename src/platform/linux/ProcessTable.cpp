#include "platform/linux/ProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
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

// Only the kernel can say that a process is gone: a /proc entry that could
// not be read because it vanished (ENOENT, ESRCH) counts as gone when a
// signal-less kill() finds no process by that id. A process that is still
// there, or a failure of any other kind (EACCES or EPERM on a process of the
// owner's, EIO, ENOMEM, EMFILE, …), leaves the look unknown: it may be Tavio.
LookFailure failureFor(pid_t pid, int error) {
    if (error != ENOENT && error != ESRCH) {
        return LookFailure::unknown;
    }
    return ::kill(pid, 0) != 0 && errno == ESRCH ? LookFailure::notAProcessOfOurs
                                                 : LookFailure::unknown;
}

std::variant<std::string, LookFailure> readSmallFile(pid_t pid, int directoryFD, const char* name) {
    UniqueFd fd(sys::openFileAt(directoryFD, name));
    if (!fd) {
        return failureFor(pid, errno);
    }
    std::string content;
    if (!sys::readAll(fd.get(), content)) {
        return failureFor(pid, errno);
    }
    return content;
}

struct StatLine {
    char state = '?';
    unsigned long flags = 0;
    std::uint64_t startTime = 0;
};

// The kernel's flags of a task (field 9 of its stat line) that matter here.
constexpr unsigned long kExiting = 0x4;            // PF_EXITING
constexpr unsigned long kKernelThread = 0x200000;  // PF_KTHREAD

std::optional<unsigned long> numberAt(const std::string& text, std::size_t position) {
    unsigned long value = 0;
    const char* begin = text.data() + position;
    const auto [end, error] = std::from_chars(begin, text.data() + text.size(), value);
    if (error != std::errc() || end == begin) {
        return std::nullopt;
    }
    return value;
}

// /proc/<pid>/stat is "pid (comm) state ppid ... flags ... starttime ...":
// the command name may hold spaces and parentheses, so the fields are
// counted from the last ")". The state is field 3, the flags field 9 and the
// start time field 22.
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
        if (field + 1 == 9) {
            const auto flags = numberAt(text, position);
            if (!flags) {
                return std::nullopt;
            }
            line.flags = *flags;
        }
    }
    const auto startTime = numberAt(text, position);
    if (!startTime) {
        return std::nullopt;
    }
    line.startTime = *startTime;
    return line;
}

// A zombie or dead process has terminated. So has one that has begun to
// exit: it has given up its memory, runs none of its own code again and has
// no executable left to read, though the kernel may list it as running for a
// moment more.
bool hasTerminated(const StatLine& line) {
    return line.state == 'Z' || line.state == 'X' || line.state == 'x' ||
           (line.flags & kExiting) != 0;
}

// A path longer than a page cannot be an app bundle's. Only root can be
// refused a process of its own: it sees every undumpable process as its own
// (the kernel hands their entries to root), and in a container the init of
// a user namespace above its own, whose executable it may not read. For any
// other user a refusal is a failed look.
std::variant<std::string, LookFailure> readExecutableLink(pid_t pid, int processFD, uid_t owner) {
    std::string target(4096, '\0');
    const ssize_t n = ::readlinkat(processFD, "exe", target.data(), target.size());
    if (n < 0 && owner == 0 && (errno == EACCES || errno == EPERM)) {
        return LookFailure::notAProcessOfOurs;
    }
    if (n < 0) {
        return failureFor(pid, errno);
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
            owned.complete = owned.complete && failureFor(*pid, errno) != LookFailure::unknown;
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
        return failureFor(pid, errno);
    }
    struct stat st {};
    if (::fstat(processFD.get(), &st) != 0) {
        return failureFor(pid, errno);
    }
    if (st.st_uid != owner) {
        return LookFailure::notAProcessOfOurs;
    }
    auto statText = readSmallFile(pid, processFD.get(), "stat");
    if (const auto* failure = std::get_if<LookFailure>(&statText)) {
        return *failure;
    }
    const auto statLine = parseStat(std::get<std::string>(statText));
    if (!statLine) {
        return LookFailure::unknown;  // the kernel's own format, unreadable
    }
    // A kernel thread runs no program (it has no executable to read).
    if (hasTerminated(*statLine) || (statLine->flags & kKernelThread) != 0) {
        return LookFailure::notAProcessOfOurs;
    }
    auto executable = readExecutableLink(pid, processFD.get(), owner);
    if (const auto* failure = std::get_if<LookFailure>(&executable)) {
        return *failure;
    }
    struct stat executableStat {};
    if (sys::statAt(processFD.get(), "exe", executableStat, /*flags=*/0) != 0) {
        return failureFor(pid, errno);
    }
    return ProcessInstance{pid, statLine->startTime, std::move(std::get<std::string>(executable)),
                           executableStat.st_dev, executableStat.st_ino};
}

}  // namespace platform
