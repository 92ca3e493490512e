#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The system calls the program makes on files and folders, in one place.
//
// Interruption: the calls that a signal can interrupt before they have done
// anything (open, openat, read, write, getrandom) are retried until they
// answer for real: an interrupted call is never a failure to report. The
// others are not retried: fstatat(), unlinkat(), linkat() and renameat() do
// not wait for anything a signal breaks off, so an EINTR from them is
// reported like any other error;
// fcntl(F_DUPFD_CLOEXEC) cannot block; and close() is not among these at all,
// because on Linux the descriptor is released whatever close() answers, so a
// retry could close someone else's.
//
// Each keeps the -1/errno answer of the call it wraps; Every descriptor they make is close-on-exec,
// and the folder and file opens below never follow a link in the final component.
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

// How a folder is opened to be read or descended into: no link in its place
// is followed, and it is never anyone's controlling terminal or a FIFO to
// wait on (a FIFO in its place fails as not a folder).
inline constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

// How a new file is made: only if nothing of that name is there yet, a link
// included.
inline constexpr int kFileCreateFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

// How a file is opened to be read: a FIFO or a device in its place never
// blocks the open, and a terminal never becomes the controlling one.
inline constexpr int kFileReadFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

inline int openat(int dirFD, const char* name, int flags, mode_t mode = 0) {
    return retryingInterrupted([&] { return ::openat(dirFD, name, flags, mode); });
}

inline int open(const char* path, int flags, mode_t mode = 0) {
    return retryingInterrupted([&] { return ::open(path, flags, mode); });
}

// The folder `name` relative to `dirFD` (or AT_FDCWD), with kFolderFlags.
inline int openFolderAt(int dirFD, const char* name) {
    return sys::openat(dirFD, name, kFolderFlags);
}

// The file `name` relative to `dirFD` (or AT_FDCWD), for reading, with
// kFileReadFlags.
inline int openFileAt(int dirFD, const char* name) {
    return sys::openat(dirFD, name, kFileReadFlags);
}

// Makes the new file `name` relative to `dirFD`, with kFileCreateFlags.
inline int createFileAt(int dirFD, const char* name, mode_t mode) {
    return sys::openat(dirFD, name, kFileCreateFlags, mode);
}

// How a file without a name is made in a folder: it is written through its
// descriptor alone, and vanishes with its last descriptor (or, after a crash,
// when the file system is next mounted) unless linkDescriptorAt() names it.
inline constexpr int kUnnamedFileFlags = O_TMPFILE | O_WRONLY | O_CLOEXEC;

// Makes a new file without a name in the folder `dirFD`, with
// kUnnamedFileFlags. A file system that cannot make one answers EOPNOTSUPP; a
// kernel older than unnamed files answers EISDIR or EINVAL.
inline int createUnnamedFileIn(int dirFD, mode_t mode) {
    return sys::openat(dirFD, ".", kUnnamedFileFlags, mode);
}

// Gives `fromName` relative to `fromDirFD` the second name `toName` relative
// to `toDirFD`. Never replaces an entry that is there already (EEXIST).
inline int linkAt(int fromDirFD, const char* fromName, int toDirFD, const char* toName, int flags) {
    return ::linkat(fromDirFD, fromName, toDirFD, toName, flags);
}

// Gives the open file `fd` (a file without a name, typically) the name
// `toName` relative to `toDirFD`, never replacing an entry (EEXIST). Naming a
// descriptor directly takes a capability that an ordinary user lacks on many
// kernels, which then answer ENOENT or EPERM; the file is then named through
// its entry in /proc/self/fd, which needs none (but needs /proc).
inline int linkDescriptorAt(int fd, int toDirFD, const char* toName) {
    if (linkAt(fd, "", toDirFD, toName, AT_EMPTY_PATH) == 0) {
        return 0;
    }
    if (errno != ENOENT && errno != EPERM) {
        return -1;
    }
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    return linkAt(AT_FDCWD, path.c_str(), toDirFD, toName, AT_SYMLINK_FOLLOW);
}

// Moves `fromName` relative to `fromDirFD` to `toName` relative to `toDirFD`,
// replacing what is there in one step.
inline int renameAt(int fromDirFD, const char* fromName, int toDirFD, const char* toName) {
    return ::renameat(fromDirFD, fromName, toDirFD, toName);
}

// A second descriptor for what `fd` refers to, close-on-exec (dup() would
// drop that flag).
inline int duplicate(int fd) {
    return ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
}

// What `name` relative to `dirFD` is; a link in its place is described
// itself, not followed, unless `flags` is 0.
inline int statAt(int dirFD,
                  const char* name,
                  struct stat& status,
                  int flags = AT_SYMLINK_NOFOLLOW) {
    return ::fstatat(dirFD, name, &status, flags);
}

// Removes the entry `name` relative to `dirFD`: a file or a link with no
// flags, an empty folder with AT_REMOVEDIR.
inline int unlinkAt(int dirFD, const char* name, int flags = 0) {
    return ::unlinkat(dirFD, name, flags);
}

inline ssize_t read(int fd, void* buffer, size_t size) {
    return retryingInterrupted([&] { return ::read(fd, buffer, size); });
}

// Appends what is left to read from `fd` to `bytes`, stopping at the end of
// the file or as soon as `bytes` holds more than `limit` bytes (so that a file
// over a limit is recognised without reading all of it). False, with errno
// set, on a read error; what was read until then stays in `bytes`.
inline bool readAll(int fd,
                    std::string& bytes,
                    std::size_t limit = std::numeric_limits<std::size_t>::max()) {
    char buffer[64 * 1024];
    while (bytes.size() <= limit) {
        const ssize_t n = sys::read(fd, buffer, sizeof buffer);
        if (n < 0) {
            return false;
        }
        if (n == 0) {
            break;
        }
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    return true;
}

inline ssize_t write(int fd, const void* buffer, size_t size) {
    return retryingInterrupted([&] { return ::write(fd, buffer, size); });
}

// Writes every byte to `fd`, going on after short writes and interruptions.
// False on the first real error, with errno set (EIO when the system wrote
// nothing and gave no error): the caller then drops the half-written file
// instead of naming it.
inline bool writeAll(int fd, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = sys::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) {
            if (n == 0) {
                errno = EIO;
            }
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

// The names in the open folder `folderFD` but "." and "..", sorted, read
// from its start through a descriptor of its own (`folderFD` is neither
// closed nor moved). Nothing, with errno set, when it cannot be listed to
// its end.
inline std::optional<std::vector<std::string>> namesIn(int folderFD) {
    const int copy = duplicate(folderFD);
    if (copy < 0) {
        return std::nullopt;
    }
    DIR* folder = ::fdopendir(copy);
    if (folder == nullptr) {
        const int error = errno;
        (void)::close(copy);
        errno = error;
        return std::nullopt;
    }
    ::rewinddir(folder);  // the copy shares the original's position
    std::vector<std::string> names;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(folder);
        if (entry == nullptr) {
            break;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
    const int error = errno;
    (void)::closedir(folder);  // closes the copy
    if (error != 0) {
        errno = error;
        return std::nullopt;
    }
    std::sort(names.begin(), names.end());
    return names;
}

inline ssize_t getrandom(void* buffer, size_t size, unsigned int flags) {
    return retryingInterrupted([&] { return ::getrandom(buffer, size, flags); });
}

}  // namespace sys
