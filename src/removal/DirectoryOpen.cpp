#include "removal/DirectoryOpen.h"

#include <sys/stat.h>

#include <cerrno>

#include "base/SystemCalls.h"

namespace removal {

std::variant<base::UniqueFd, RemovalReason> openDirectory(int parentFD, const char* name) {
    base::UniqueFd fd(sys::openFolderAt(parentFD, name));
    if (fd) {
        return fd;
    }
    const int error = errno;
    if (error == ENOTDIR) {
        struct stat st {};
        if (sys::statAt(parentFD, name, st) == 0 && S_ISLNK(st.st_mode)) {
            return RemovalReason::symbolicLinkInPath();
        }
    }
    return reasonForErrno(error);
}

}  // namespace removal
