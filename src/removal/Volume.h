#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <variant>

#include "removal/RemovalReason.h"

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
// Where the platform tells mounts apart by more than the device, a failure to
// learn the mount is returned as the reason instead: a volume that is only
// half known would switch the mount comparison off for a whole item.
std::variant<VolumeIdentity, RemovalReason> volumeOf(int fd, dev_t device);

// Whether `fd`, a folder inside the tree being removed, may be entered.
// Nothing when it lies on the anchor's volume. crossesVolume when it lies on
// another one: another device, another mount, or the root of a mount of its
// own. When the check itself fails, the reason for that failure: a folder
// whose volume cannot be told is never entered.
std::optional<RemovalReason> volumeProblem(int fd, dev_t device, const VolumeIdentity& anchor);

}  // namespace removal
