// Linux: a bind mount of the same file system has the same st_dev as the
// folder it covers, so the device alone would let a removal walk into, say,
// the user's documents bound inside a cache folder. statx() tells the mount a
// descriptor lies on, and whether it is the root of a mount.
#include <fcntl.h>
#include <sys/stat.h>

#include "removal/Volume.h"

namespace removal {
namespace {

bool statxOf(int fd, struct statx& sx) {
    return ::statx(fd, "", AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW, STATX_MNT_ID, &sx) == 0;
}

}  // namespace

VolumeIdentity volumeOf(int fd, dev_t device) {
    VolumeIdentity volume{device, std::nullopt};
    struct statx sx {};
    if (statxOf(fd, sx) && (sx.stx_mask & STATX_MNT_ID) != 0) {
        volume.mountID = sx.stx_mnt_id;
    }
    return volume;
}

bool isOtherVolume(int fd, dev_t device, const VolumeIdentity& anchor) {
    if (device != anchor.device) {
        return true;
    }
    struct statx sx {};
    if (!statxOf(fd, sx)) {
        return false;  // no more to learn than the device told
    }
    if ((sx.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0 &&
        (sx.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
        return true;
    }
    return anchor.mountID && (sx.stx_mask & STATX_MNT_ID) != 0 && sx.stx_mnt_id != *anchor.mountID;
}

}  // namespace removal
