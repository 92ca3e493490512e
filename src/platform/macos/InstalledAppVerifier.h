#pragma once

#include <optional>
#include <string>

#include "target/AppVerifying.h"

namespace platform {

// Verifies an installed app bundle on macOS: the shared layout checks
// (target/AppBundleLayout.h), then the code signature through the Security
// framework, checked against a requirement that is the identifier clause
// alone, with nested code validated under strict validation. Stateless; safe
// from any thread; blocks while the signature is validated.
class InstalledAppVerifier final : public target::AppVerifying {
public:
    std::optional<target::AppVerificationProblem> verify(
        const std::string& bundlePath, const std::string& expectedIdentifier) const override;
};

}  // namespace platform
