// Linux: a bind mount of the same file system has the same st_dev as the
// folder it covers, so the device alone would let a removal walk into, say,
// the user's documents bound inside a cache folder. statx() tells the mount a
// descriptor lies on, and whether it is the root of a mount.
//
// Every answer that cannot be had is a refusal: a statx() that fails, or a
// kernel that does not report the mount id, leaves the folder unentered.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "removal/Volume.h"

namespace removal {
namespace {

// The mount id of `fd` and whether it is a mount root, or the errno that kept
// the kernel from saying. ENOTSUP stands for a kernel too old to report the
// mount id (before Linux 5.8), where a bind mount cannot be told apart.
struct MountFacts {
    std::uint64_t mountID = 0;
    bool isMountRoot = false;
};

std::variant<MountFacts, int> mountFactsOf(int fd) {
    struct statx sx {};
    int result;
    do {
        result = ::statx(fd, "", AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW, STATX_MNT_ID, &sx);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        return errno;
    }
    if ((sx.stx_mask & STATX_MNT_ID) == 0) {
        return ENOTSUP;
    }
    return MountFacts{
        .mountID = sx.stx_mnt_id,
        .isMountRoot = (sx.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0 &&
                       (sx.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0,
    };
}

}  // namespace

std::variant<VolumeIdentity, RemovalReason> volumeOf(int fd, dev_t device) {
    auto facts = mountFactsOf(fd);
    if (const int* error = std::get_if<int>(&facts)) {
        return reasonForErrno(*error);
    }
    return VolumeIdentity{device, std::get<MountFacts>(facts).mountID};
}

std::optional<RemovalReason> volumeProblem(int fd, dev_t device, const VolumeIdentity& anchor) {
    if (device != anchor.device) {
        return RemovalReason::crossesVolume();
    }
    auto facts = mountFactsOf(fd);
    if (const int* error = std::get_if<int>(&facts)) {
        return reasonForErrno(*error);
    }
    const MountFacts& found = std::get<MountFacts>(facts);
    if (!anchor.mountID) {
        // Only a volume learnt by volumeOf() reaches here, which always has a
        // mount id on Linux; one without could not be compared.
        return reasonForErrno(ENOTSUP);
    }
    if (found.isMountRoot || found.mountID != *anchor.mountID) {
        return RemovalReason::crossesVolume();
    }
    return std::nullopt;
}

}  // namespace removal
