// macOS: every mount, a bind-like one included, has its own device number, so
// comparing st_dev with the anchor's is enough.
#include "removal/Volume.h"

namespace removal {

std::variant<VolumeIdentity, RemovalReason> volumeOf(int /*fd*/, dev_t device) {
    return VolumeIdentity{device, std::nullopt};
}

std::optional<RemovalReason> volumeProblem(int /*fd*/, dev_t device, const VolumeIdentity& anchor) {
    if (device != anchor.device) {
        return RemovalReason::crossesVolume();
    }
    return std::nullopt;
}

}  // namespace removal
