#pragma once

#include <optional>
#include <string>

#include "target/AppVerifying.h"

namespace platform {

// Verifies an installed app bundle on Linux: the shared layout checks
// (target/AppBundleLayout.h), then the bundle seal (BundleSeal.h) in place of
// a code signature. Any failure of the seal is invalidSignature. Stateless;
// reads every byte of the bundle, follows no link, writes nothing.
class InstalledAppVerifier final : public target::AppVerifying {
public:
    std::optional<target::AppVerificationProblem> verify(
        const std::string& bundlePath, const std::string& expectedIdentifier) const override;
};

}  // namespace platform
