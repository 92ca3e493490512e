#include "platform/linux/ProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <limits>
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

// At most a little over `limit` bytes of the file are read.
std::variant<std::string, LookFailure> readSmallFile(
    pid_t pid,
    int directoryFD,
    const char* name,
    std::size_t limit = std::numeric_limits<std::size_t>::max()) {
    UniqueFd fd(sys::openFileAt(directoryFD, name));
    if (!fd) {
        return failureFor(pid, errno);
    }
    std::string content;
    if (!sys::readAll(fd.get(), content, limit)) {
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

// The target of /proc/<pid>/exe; an empty string when the kernel hides it
// from this user (EACCES or EPERM: see ProcessInstance::executableHidden()),
// root included, whom it refuses the executable of a process in a user
// namespace above its own. A path longer than a page cannot be an app
// bundle's.
std::variant<std::string, LookFailure> readExecutableLink(pid_t pid, int processFD) {
    std::string target(4096, '\0');
    const ssize_t n = ::readlinkat(processFD, "exe", target.data(), target.size());
    if (n < 0 && (errno == EACCES || errno == EPERM)) {
        return std::string();
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

// The command name of a stat line: between the first "(" and the last ")",
// since the name itself may hold either.
std::string commandNameOf(const std::string& statText) {
    const std::size_t open = statText.find('(');
    const std::size_t close = statText.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) {
        return std::string();
    }
    return statText.substr(open + 1, close - open - 1);
}

// What a process whose executable is hidden says of itself. The command line
// is readable whatever the process's ids; only its first word is kept. A
// first word longer than a path can be is no path and no name the kernel
// kept, and so says nothing: the look fails.
std::optional<LookFailure> describeHidden(ProcessInstance& instance,
                                          int processFD,
                                          const std::string& statText) {
    constexpr std::size_t kLongestPath = 4096;
    auto commandLine = readSmallFile(instance.pid, processFD, "cmdline", kLongestPath);
    if (const auto* failure = std::get_if<LookFailure>(&commandLine)) {
        return *failure;
    }
    const std::string& words = std::get<std::string>(commandLine);
    const std::size_t end = words.find('\0');
    if (end == std::string::npos && words.size() > kLongestPath) {
        return LookFailure::unknown;
    }
    instance.firstArgument = words.substr(0, end);
    instance.commandName = commandNameOf(statText);
    return std::nullopt;
}

// Whether the folder is the kernel's process table of our own process-id
// namespace. Anything else at /proc (nothing mounted there, a copy, the table
// of another namespace) would list too little, and a look that sees nothing
// must never read as "Tavio is not running".
bool isOurProcessTable(int folderFD, bool listedOurselves) {
    struct statfs fs {};
    return listedOurselves && ::fstatfs(folderFD, &fs) == 0 && fs.f_type == PROC_SUPER_MAGIC;
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
    const pid_t self = ::getpid();
    bool listedOurselves = false;
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
        listedOurselves = listedOurselves || *pid == self;
        struct stat st {};
        if (sys::statAt(::dirfd(directory), entry->d_name, st) != 0) {
            owned.complete = owned.complete && failureFor(*pid, errno) != LookFailure::unknown;
        } else if (st.st_uid == owner) {
            owned.pids.push_back(*pid);
        }
    }
    owned.complete = owned.complete && isOurProcessTable(::dirfd(directory), listedOurselves);
    (void)::closedir(directory);
    std::sort(owned.pids.begin(), owned.pids.end());
    return owned;
}

namespace {

// The program a live process of ours runs, read through its /proc folder.
std::variant<ProcessInstance, LookFailure> describeProgram(pid_t pid,
                                                           int processFD,
                                                           const StatLine& statLine,
                                                           const std::string& statText) {
    auto executable = readExecutableLink(pid, processFD);
    if (const auto* failure = std::get_if<LookFailure>(&executable)) {
        return *failure;
    }
    ProcessInstance instance;
    instance.pid = pid;
    instance.startTime = statLine.startTime;
    if (std::get<std::string>(executable).empty()) {
        if (const auto failure = describeHidden(instance, processFD, statText)) {
            return *failure;
        }
        return instance;
    }
    struct stat executableStat {};
    if (sys::statAt(processFD, "exe", executableStat, /*flags=*/0) != 0) {
        return failureFor(pid, errno);
    }
    instance.executable = std::move(std::get<std::string>(executable));
    instance.executableDevice = executableStat.st_dev;
    instance.executableInode = executableStat.st_ino;
    return instance;
}

}  // namespace

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
    const auto statRead = readSmallFile(pid, processFD.get(), "stat");
    if (const auto* failure = std::get_if<LookFailure>(&statRead)) {
        return *failure;
    }
    const std::string& statText = std::get<std::string>(statRead);
    const auto statLine = parseStat(statText);
    if (!statLine) {
        return LookFailure::unknown;  // the kernel's own format, unreadable
    }
    // A kernel thread runs no program (it has no executable to read).
    if (hasTerminated(*statLine) || (statLine->flags & kKernelThread) != 0) {
        return LookFailure::notAProcessOfOurs;
    }
    return describeProgram(pid, processFD.get(), *statLine, statText);
}

}  // namespace platform
