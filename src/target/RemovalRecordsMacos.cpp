// Where records live, and how their bytes reach the disk, on macOS: there are
// no unnamed files, so a record is written under a temporary name of ours,
// flushed past the disk's cache with F_FULLFSYNC (a plain fsync stops short
// of it there), and moved to its name with renameatx_np(RENAME_EXCL), which
// never replaces; the folder is then flushed the same way.
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"
#include "target/Paths.h"
#include "target/RemovalRecords.h"

namespace target {
namespace {}  // namespace

std::string RemovalRecords::folderFor(const std::string& homeDirectory) {
    const std::string library = appendingPathComponent(homeDirectory, "Library");
    return appendingPathComponent(appendingPathComponent(library, "Application Support"),
                                  "io.tavio.Tavio.Uninstaller");
}

int renameExclusive(int folderFD, const std::string& from, const std::string& to) {
    return ::renameatx_np(folderFD, from.c_str(), folderFD, to.c_str(), RENAME_EXCL) == 0 ? 0
                                                                                          : errno;
}

int renameAcross(int fromFD, const std::string& from, int toFD, const std::string& to) {
    return ::renameatx_np(fromFD, from.c_str(), toFD, to.c_str(), RENAME_EXCL) == 0 ? 0 : errno;
}

int syncToDisk(int fd) {
    return ::fcntl(fd, F_FULLFSYNC) == 0 ? 0 : ::fsync(fd);
}

int writeDurably(int folderFD, const std::string& name, const std::string& bytes) {
    const std::string temporary =
        std::string(kTemporaryPrefix) + name.substr(name.find('-') + 1) + ".tmp";
    base::UniqueFd fd(sys::createFileAt(folderFD, temporary.c_str(), 0600));
    if (!fd) {
        return errno;
    }
    int error = sys::writeAll(fd.get(), bytes) ? 0 : errno;
    error = error != 0 ? error : (syncToDisk(fd.get()) == 0 ? 0 : errno);
    if (error == 0 &&
        ::renameatx_np(folderFD, temporary.c_str(), folderFD, name.c_str(), RENAME_EXCL) != 0) {
        error = errno;
    }
    if (error != 0) {
        (void)sys::unlinkAt(folderFD, temporary.c_str());
        return error;
    }
    return syncToDisk(folderFD) == 0 ? 0 : errno;
}

}  // namespace target
