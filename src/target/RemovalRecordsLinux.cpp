// Where records live, and how their bytes reach the disk, on Linux.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"
#include "target/Paths.h"
#include "target/RemovalRecords.h"

namespace target {
namespace {

constexpr std::string_view kOwnFolder = "io.tavio.Tavio.Uninstaller";

// Gives the unnamed file `fd` the name `name`. linkat() with AT_EMPTY_PATH
// needs a capability that an ordinary user lacks; the link through /proc
// does the same without it.
int linkUnnamed(int fd, int folderFD, const std::string& name) {
    if (::linkat(fd, "", folderFD, name.c_str(), AT_EMPTY_PATH) == 0) {
        return 0;
    }
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    return ::linkat(AT_FDCWD, self.c_str(), folderFD, name.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0
                                                                                            : errno;
}

}  // namespace

// A file system without RENAME_NOREPLACE gets a link and an unlink for a file,
// which refuses an existing name just the same; never a plain rename, which
// would replace an empty folder or a file.
int renameExclusive(int folderFD, const std::string& from, const std::string& to) {
    if (::renameat2(folderFD, from.c_str(), folderFD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL) {
        return errno;
    }
    if (::linkat(folderFD, from.c_str(), folderFD, to.c_str(), 0) != 0) {
        return errno;
    }
    (void)sys::unlinkAt(folderFD, from.c_str());
    return 0;
}

namespace {

// Where the file system has no unnamed files: a temporary name of ours.
int writeThroughTemporary(int folderFD, const std::string& name, const std::string& bytes) {
    const std::string temporary =
        std::string(kTemporaryPrefix) + name.substr(name.find('-') + 1) + ".tmp";
    base::UniqueFd fd(sys::createFileAt(folderFD, temporary.c_str(), 0600));
    if (!fd) {
        return errno;
    }
    int error = sys::writeAll(fd.get(), bytes) ? 0 : errno;
    error = error != 0 ? error : (syncToDisk(fd.get()) == 0 ? 0 : errno);
    error = error != 0 ? error : renameExclusive(folderFD, temporary, name);
    if (error != 0) {
        (void)sys::unlinkAt(folderFD, temporary.c_str());
    }
    return error;
}

}  // namespace

std::string RemovalRecords::folderFor(const std::string& homeDirectory) {
    // $XDG_STATE_HOME is honoured only where it lies inside the home folder:
    // records are the user's own state and stay with the home folder.
    const char* configured = std::getenv("XDG_STATE_HOME");
    std::string state = configured != nullptr ? withoutTrailingSlashes(configured) : std::string();
    const std::string prefix = homeDirectory == "/" ? "/" : homeDirectory + "/";
    const bool dotted = state.find("/./") != std::string::npos ||
                        state.find("/../") != std::string::npos || state.ends_with("/.") ||
                        state.ends_with("/..");
    if (!state.starts_with(prefix) || state.size() == prefix.size() || dotted) {
        state = appendingPathComponent(appendingPathComponent(homeDirectory, ".local"), "state");
    }
    return appendingPathComponent(state, kOwnFolder);
}

int renameAcross(int fromFD, const std::string& from, int toFD, const std::string& to) {
    return ::renameat2(fromFD, from.c_str(), toFD, to.c_str(), RENAME_NOREPLACE) == 0 ? 0 : errno;
}

int syncToDisk(int fd) {
    return ::fsync(fd);
}

int writeDurably(int folderFD, const std::string& name, const std::string& bytes) {
    int error = 0;
    base::UniqueFd fd(sys::openat(folderFD, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (fd) {
        error = sys::writeAll(fd.get(), bytes) ? 0 : errno;
        error = error != 0 ? error : (syncToDisk(fd.get()) == 0 ? 0 : errno);
        error = error != 0 ? error : linkUnnamed(fd.get(), folderFD, name);
    } else if (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL) {
        error = writeThroughTemporary(folderFD, name, bytes);
    } else {
        error = errno;
    }
    return error != 0 ? error : (syncToDisk(folderFD) == 0 ? 0 : errno);
}

}  // namespace target
