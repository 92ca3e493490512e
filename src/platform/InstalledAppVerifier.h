#pragma once

#include <optional>
#include <string>

#include "target/AppVerifying.h"

namespace platform {

// Verifies an installed app bundle: the shared layout checks
// (target/AppBundleLayout.h), then the system's own proof that the bundle is
// the one its maker shipped. Stateless; safe from any thread; blocks while it
// reads the bundle. One implementation per system:
// - Linux: the bundle seal (linux/BundleSeal.h) in place of a code signature;
//   any failure of the seal is invalidSignature. Reads every byte of the
//   bundle, follows no link, writes nothing.
// - macOS: the code signature through the Security framework, checked against
//   a requirement that is the identifier clause alone, with nested code
//   validated under strict validation.
class InstalledAppVerifier final : public target::AppVerifying {
  public:
    std::optional<target::AppVerificationProblem> verify(
        const std::string& bundlePath,
        const std::string& expectedIdentifier) const override;
};

}  // namespace platform
