#pragma once

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>

// The calls of the core that a signal can interrupt before they have done
// anything, retried until they answer for real: an interrupted call is never
// a failure to report. Each keeps the signature and the -1/errno answer of
// the call it wraps. close() is not among them: on Linux the descriptor is
// released whatever close() answers, so retrying could close someone else's.
namespace sys {

template <typename Call>
auto retryingInterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}

inline int openat(int dirFD, const char* name, int flags, mode_t mode = 0) {
    return retryingInterrupted([&] { return ::openat(dirFD, name, flags, mode); });
}

inline int open(const char* path, int flags, mode_t mode = 0) {
    return retryingInterrupted([&] { return ::open(path, flags, mode); });
}

inline ssize_t read(int fd, void* buffer, size_t size) {
    return retryingInterrupted([&] { return ::read(fd, buffer, size); });
}

inline ssize_t write(int fd, const void* buffer, size_t size) {
    return retryingInterrupted([&] { return ::write(fd, buffer, size); });
}

inline ssize_t getrandom(void* buffer, size_t size, unsigned int flags) {
    return retryingInterrupted([&] { return ::getrandom(buffer, size, flags); });
}

}  // namespace sys
