#include "Faults.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace faults {
namespace {

constexpr std::array<const char*, kCallCount> kNames = {
    "open",
    "openat",
    "fstatat",
    "statx",
    "fstat",
    "lstat",
    "opendir",
    "fdopendir",
    "readdir",
    "unlinkat",
    "close",
    "read",
    "write",
    "fsync",
    "renameat",
    "mkdirat",
    "fchmod",
    "fcntl",
    "readlink",
    "readlinkat",
    "getrandom",
    "pidfd_open",
    "pidfd_send_signal",
    "linkat",
    "renameat2",
};

std::atomic<bool> armed{false};
std::array<std::atomic<std::uint64_t>, kCallCount> counts{};
std::optional<Fault> planned;
std::atomic<bool> reached{false};
constexpr std::size_t kLogLimit = 100'000;
std::array<LoggedCall, kLogLimit> log{};
std::atomic<std::size_t> logged{0};

}  // namespace

const char* nameOf(Call call) {
    return kNames[static_cast<std::size_t>(call)];
}

std::optional<Call> callNamed(std::string_view name) {
    for (std::size_t i = 0; i < kCallCount; ++i) {
        if (name == kNames[i]) {
            return static_cast<Call>(i);
        }
    }
    return std::nullopt;
}

std::vector<int> realisticErrors(Call call) {
    switch (call) {
        case Call::open:
        case Call::openat:
            return {EACCES, EPERM,  EROFS, EIO,   ENOMEM, EMFILE,
                    ENFILE, ENOSPC, EBUSY, EINTR, ENOENT};
        case Call::opendir:
            return {EACCES, ENOMEM, EMFILE, ENFILE, ENOENT, EIO};
        case Call::fdopendir:
            return {ENOMEM, EMFILE, ENFILE};
        case Call::fstatat:
        case Call::statx:
        case Call::lstat:
            return {EACCES, EIO, ENOMEM, ENOENT};
        case Call::fstat:
            return {EIO, ENOMEM};
        case Call::readdir:
            return {EIO, ENOENT, ENOMEM};
        case Call::unlinkat:
            return {EACCES, EPERM, EROFS, EIO, ENOMEM, EBUSY, ENOENT, ENOTEMPTY};
        case Call::close:
            return {EIO, EINTR, ENOSPC};
        case Call::read:
            return {EIO, EINTR, ENOMEM};
        case Call::write:
            return {EIO, ENOSPC, EINTR, EPERM};
        case Call::fsync:
            return {EIO, ENOSPC, EROFS};
        case Call::renameat:
            return {EACCES, EPERM, EROFS, EIO, ENOMEM, ENOSPC, EBUSY, ENOENT};
        case Call::mkdirat:
            return {EACCES, EPERM, EROFS, EIO, ENOMEM, ENOSPC, ENOENT};
        case Call::fchmod:
            return {EPERM, EROFS, EIO};
        case Call::fcntl:
            return {EMFILE};
        case Call::readlink:
        case Call::readlinkat:
            return {EACCES, EIO, ENOMEM, ENOENT};
        case Call::getrandom:
            return {EINTR, ENOMEM};
        case Call::pidfdOpen:
            return {EMFILE, ENFILE, ENOMEM};
        case Call::pidfdSendSignal:
            return {EPERM};
        case Call::linkat:
            return {EACCES, EPERM, EROFS, EIO, ENOSPC, EDQUOT, EEXIST, ENOENT};
        case Call::renameat2:
            return {EACCES, EPERM, EROFS, EIO, ENOSPC, EEXIST, ENOENT, EINVAL};
    }
    return {};
}

std::string Fault::describe() const {
    const char* errorName = error == kCrash ? "crash" : strerrorname_np(error);
    return std::string(nameOf(call)) + " #" + std::to_string(occurrence) + " " +
           (errorName != nullptr ? errorName : std::to_string(error));
}

void arm(std::optional<Fault> fault) {
    for (auto& count : counts) {
        count.store(0);
    }
    planned = fault;
    reached.store(false);
    logged.store(0);
    armed.store(true);
}

Counts countsSoFar() {
    Counts result{};
    for (std::size_t i = 0; i < kCallCount; ++i) {
        result[i] = counts[i].load();
    }
    return result;
}

Counts disarm() {
    armed.store(false);
    return countsSoFar();
}

bool fired() {
    return reached.load();
}

std::vector<LoggedCall> callLog() {
    const std::size_t count = std::min(logged.load(), kLogLimit);
    return std::vector<LoggedCall>(log.begin(), log.begin() + static_cast<std::ptrdiff_t>(count));
}

Paused::Paused() : wasArmed_(armed.exchange(false)) {}

Paused::~Paused() {
    armed.store(wasArmed_);
}

// The errno the current call must fail with, or 0 to make it. A planned
// crash ends the process here, before the call.
int decide(Call call, int fd = -1) {
    if (!armed.load(std::memory_order_relaxed)) {
        return 0;
    }
    const std::uint64_t occurrence = ++counts[static_cast<std::size_t>(call)];
    const std::size_t slot = logged.fetch_add(1);
    if (slot < kLogLimit) {
        log[slot] = LoggedCall{call, fd};
    }
    if (planned && planned->call == call && planned->occurrence == occurrence) {
        reached.store(true);
        if (planned->error == kCrash) {
            // The first process of a PID namespace is deaf to its own
            // SIGKILL; it ends the same way, with nothing flushed or closed
            // by the program itself.
            (void)::kill(::getpid(), SIGKILL);
            ::_exit(128 + SIGKILL);
        }
        return planned->error;
    }
    return 0;
}

}  // namespace faults

namespace {

// Fails the current call with `error` in the way of its kind: -1 and errno.
template <typename T = int>
T failWith(int error, T result = -1) {
    errno = error;
    return result;
}

}  // namespace

using faults::Call;
using faults::decide;

extern "C" {

int __real_open(const char*, int, ...);
int __real_openat(int, const char*, int, ...);
int __real_fstatat(int, const char*, struct stat*, int);
int __real_statx(int, const char*, int, unsigned int, struct statx*);
int __real_fstat(int, struct stat*);
int __real_lstat(const char*, struct stat*);
DIR* __real_opendir(const char*);
DIR* __real_fdopendir(int);
struct dirent* __real_readdir(DIR*);
int __real_unlinkat(int, const char*, int);
int __real_close(int);
ssize_t __real_read(int, void*, size_t);
ssize_t __real_write(int, const void*, size_t);
int __real_fsync(int);
int __real_renameat(int, const char*, int, const char*);
int __real_linkat(int, const char*, int, const char*, int);
int __real_renameat2(int, const char*, int, const char*, unsigned int);
int __real_mkdirat(int, const char*, mode_t);
int __real_fchmod(int, mode_t);
int __real_fcntl(int, int, ...);
ssize_t __real_readlink(const char*, char*, size_t);
ssize_t __real_readlinkat(int, const char*, char*, size_t);
ssize_t __real_getrandom(void*, size_t, unsigned int);
long __real_syscall(long, ...);

static mode_t modeArgument(int flags, va_list args) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(args, int)) : 0;
}

int __wrap_open(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = modeArgument(flags, args);
    va_end(args);
    if (const int error = decide(Call::open)) {
        return failWith(error);
    }
    return __real_open(path, flags, mode);
}

int __wrap_openat(int dirFD, const char* name, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = modeArgument(flags, args);
    va_end(args);
    if (const int error = decide(Call::openat, dirFD)) {
        return failWith(error);
    }
    return __real_openat(dirFD, name, flags, mode);
}

int __wrap_fstatat(int dirFD, const char* name, struct stat* st, int flags) {
    if (const int error = decide(Call::fstatat)) {
        return failWith(error);
    }
    return __real_fstatat(dirFD, name, st, flags);
}

int __wrap_statx(int dirFD, const char* name, int flags, unsigned int mask, struct statx* sx) {
    if (const int error = decide(Call::statx)) {
        return failWith(error);
    }
    return __real_statx(dirFD, name, flags, mask, sx);
}

int __wrap_fstat(int fd, struct stat* st) {
    if (const int error = decide(Call::fstat)) {
        return failWith(error);
    }
    return __real_fstat(fd, st);
}

int __wrap_lstat(const char* path, struct stat* st) {
    if (const int error = decide(Call::lstat)) {
        return failWith(error);
    }
    return __real_lstat(path, st);
}

DIR* __wrap_opendir(const char* path) {
    if (const int error = decide(Call::opendir)) {
        return failWith<DIR*>(error, nullptr);
    }
    return __real_opendir(path);
}

DIR* __wrap_fdopendir(int fd) {
    if (const int error = decide(Call::fdopendir)) {
        return failWith<DIR*>(error, nullptr);
    }
    return __real_fdopendir(fd);
}

struct dirent* __wrap_readdir(DIR* dir) {
    if (const int error = decide(Call::readdir)) {
        return failWith<struct dirent*>(error, nullptr);
    }
    return __real_readdir(dir);
}

int __wrap_unlinkat(int dirFD, const char* name, int flags) {
    if (const int error = decide(Call::unlinkat, dirFD)) {
        return failWith(error);
    }
    return __real_unlinkat(dirFD, name, flags);
}

// Linux releases the descriptor whatever close() answers, EINTR and EIO
// included, so the injected failure comes after the real call.
int __wrap_close(int fd) {
    const int error = decide(Call::close);
    const int result = __real_close(fd);
    return error != 0 ? failWith(error) : result;
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
    if (const int error = decide(Call::read)) {
        return failWith<ssize_t>(error);
    }
    return __real_read(fd, buffer, size);
}

ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
    if (const int error = decide(Call::write, fd)) {
        return failWith<ssize_t>(error);
    }
    return __real_write(fd, buffer, size);
}

int __wrap_fsync(int fd) {
    if (const int error = decide(Call::fsync, fd)) {
        return failWith(error);
    }
    return __real_fsync(fd);
}

int __wrap_linkat(int fromFD, const char* from, int toFD, const char* to, int flags) {
    if (const int error = decide(Call::linkat, toFD)) {
        return failWith(error);
    }
    return __real_linkat(fromFD, from, toFD, to, flags);
}

int __wrap_renameat2(int fromFD, const char* from, int toFD, const char* to, unsigned int flags) {
    if (const int error = decide(Call::renameat2, toFD)) {
        return failWith(error);
    }
    return __real_renameat2(fromFD, from, toFD, to, flags);
}

int __wrap_renameat(int fromFD, const char* from, int toFD, const char* to) {
    if (const int error = decide(Call::renameat)) {
        return failWith(error);
    }
    return __real_renameat(fromFD, from, toFD, to);
}

int __wrap_mkdirat(int dirFD, const char* name, mode_t mode) {
    if (const int error = decide(Call::mkdirat, dirFD)) {
        return failWith(error);
    }
    return __real_mkdirat(dirFD, name, mode);
}

int __wrap_fchmod(int fd, mode_t mode) {
    if (const int error = decide(Call::fchmod)) {
        return failWith(error);
    }
    return __real_fchmod(fd, mode);
}

int __wrap_fcntl(int fd, int command, ...) {
    va_list args;
    va_start(args, command);
    const long argument = va_arg(args, long);
    va_end(args);
    if (const int error = decide(Call::fcntl)) {
        return failWith(error);
    }
    return __real_fcntl(fd, command, argument);
}

ssize_t __wrap_readlink(const char* path, char* buffer, size_t size) {
    if (const int error = decide(Call::readlink)) {
        return failWith<ssize_t>(error);
    }
    return __real_readlink(path, buffer, size);
}

ssize_t __wrap_readlinkat(int dirFD, const char* path, char* buffer, size_t size) {
    if (const int error = decide(Call::readlinkat)) {
        return failWith<ssize_t>(error);
    }
    return __real_readlinkat(dirFD, path, buffer, size);
}

ssize_t __wrap_getrandom(void* buffer, size_t size, unsigned int flags) {
    if (const int error = decide(Call::getrandom)) {
        return failWith<ssize_t>(error);
    }
    return __real_getrandom(buffer, size, flags);
}

// syscall() is variadic; on the ABIs we build for, passing six long
// arguments on is what the C library itself does.
long __wrap_syscall(long number, ...) {
    va_list args;
    va_start(args, number);
    long a[6];
    for (long& argument : a) {
        argument = va_arg(args, long);
    }
    va_end(args);
    int error = 0;
    if (number == SYS_pidfd_open) {
        error = decide(Call::pidfdOpen);
    } else if (number == SYS_pidfd_send_signal) {
        error = decide(Call::pidfdSendSignal);
    }
    if (error != 0) {
        return failWith<long>(error);
    }
    return __real_syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

}  // extern "C"
