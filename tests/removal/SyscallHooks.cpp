#include "SyscallHooks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace hooks {

Hook beforeFstatat;
Hook beforeOpenat;
Hook beforeUnlinkat;
Fault failOpenat;
Fault failStatx;
bool forbidFileSystem = false;

void clearHooks() {
    beforeFstatat = nullptr;
    beforeOpenat = nullptr;
    beforeUnlinkat = nullptr;
    failOpenat = nullptr;
    failStatx = nullptr;
    forbidFileSystem = false;
}

namespace {

thread_local bool inHook = false;

void run(const Hook& hook, int dirFD, const char* name) {
    if (hook && !inHook) {
        inHook = true;
        hook(dirFD, name);
        inHook = false;
    }
}

// The errno a fault hook chose for this call, or 0 to make it.
int fault(const Fault& hook, int dirFD, const char* name) {
    if (!hook || inHook) {
        return 0;
    }
    inHook = true;
    const int error = hook(dirFD, name);
    inHook = false;
    return error;
}

void refuseIfForbidden() {
    if (forbidFileSystem) {
        std::fputs("touched the file system\n", stderr);
        std::_Exit(3);
    }
}

}  // namespace
}  // namespace hooks

extern "C" {

int __real_fstatat(int, const char*, struct stat*, int);
int __real_openat(int, const char*, int, ...);
int __real_unlinkat(int, const char*, int);
int __real_open(const char*, int, ...);
int __real_lstat(const char*, struct stat*);
int __real_statx(int, const char*, int, unsigned int, struct statx*);

int __wrap_fstatat(int dirFD, const char* name, struct stat* st, int flags) {
    hooks::run(hooks::beforeFstatat, dirFD, name);
    return __real_fstatat(dirFD, name, st, flags);
}

int __wrap_openat(int dirFD, const char* name, int flags, ...) {
    hooks::refuseIfForbidden();
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list args;
        va_start(args, flags);
        mode = static_cast<mode_t>(va_arg(args, int));
        va_end(args);
    }
    hooks::run(hooks::beforeOpenat, dirFD, name);
    if (const int error = hooks::fault(hooks::failOpenat, dirFD, name)) {
        errno = error;
        return -1;
    }
    return __real_openat(dirFD, name, flags, mode);
}

int __wrap_unlinkat(int dirFD, const char* name, int flags) {
    hooks::run(hooks::beforeUnlinkat, dirFD, name);
    return __real_unlinkat(dirFD, name, flags);
}

int __wrap_open(const char* path, int flags, ...) {
    hooks::refuseIfForbidden();
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list args;
        va_start(args, flags);
        mode = static_cast<mode_t>(va_arg(args, int));
        va_end(args);
    }
    return __real_open(path, flags, mode);
}

int __wrap_statx(int dirFD, const char* name, int flags, unsigned int mask, struct statx* sx) {
    if (const int error = hooks::fault(hooks::failStatx, dirFD, name)) {
        errno = error;
        return -1;
    }
    return __real_statx(dirFD, name, flags, mask, sx);
}

int __wrap_lstat(const char* path, struct stat* st) {
    hooks::refuseIfForbidden();
    return __real_lstat(path, st);
}

}  // extern "C"
