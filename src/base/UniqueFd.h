#pragma once

#include <unistd.h>

#include <utility>

namespace base {

// Owns one file descriptor and closes it when it goes out of scope. Move-only,
// so that ownership of a descriptor is always visible in the code: whoever
// holds the UniqueFd closes it, and release() is the one explicit hand-over.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    explicit operator bool() const { return valid(); }

    // Gives up ownership without closing.
    int release() { return std::exchange(fd_, -1); }

    // Closes the current descriptor (if any) and takes ownership of fd. The
    // result of close() is deliberately ignored: on Linux the descriptor is
    // gone whatever it returns, and retrying could close someone else's.
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            (void)::close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

}  // namespace base
