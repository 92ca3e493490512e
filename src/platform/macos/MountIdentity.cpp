// macOS: every mount, a bind-like one included, has its own device number, so
// comparing st_dev with the anchor's is enough.
#include "removal/Volume.h"

namespace removal {

VolumeIdentity volumeOf(int /*fd*/, dev_t device) {
    return VolumeIdentity{device, std::nullopt};
}

bool isOtherVolume(int /*fd*/, dev_t device, const VolumeIdentity& anchor) {
    return device != anchor.device;
}

}  // namespace removal
