#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace removal {

// Which mounted file system a folder belongs to. The device number alone does
// not tell a bind mount of the same file system from the folder it was
// mounted on; where the platform can tell which mount a descriptor lies on,
// mountID says so too.
struct VolumeIdentity {
    dev_t device = 0;
    std::optional<std::uint64_t> mountID;

    bool operator==(const VolumeIdentity&) const = default;
};

// The volume of the open folder `fd`, whose fstat() device is `device`.
VolumeIdentity volumeOf(int fd, dev_t device);

// True when `fd`, a folder inside the tree being removed, lies on another
// volume than the anchor: another device, another mount, or the root of a
// mount of its own. Such a folder is never entered.
bool isOtherVolume(int fd, dev_t device, const VolumeIdentity& anchor);

}  // namespace removal
