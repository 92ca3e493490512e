#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/SystemCalls.h"

namespace platform {

// Writes every byte to `fd`, going on after short writes and interruptions.
// False on the first real error: the caller then drops the half-written file
// instead of renaming it into place.
inline bool writeAll(int fd, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = sys::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace platform
