#pragma once

#include <optional>
#include <string>

#include "target/AppVerificationProblem.h"

namespace target {

// Checks that an app bundle found in an application folder really is the
// target product before it may be listed for removal: a well-formed bundle
// declaring the expected identifier, with its main executable, and with a
// valid signature for that identifier.
//
// Implementations are stateless, change nothing on disk, never follow a
// symbolic link inside the bundle, and may be called from any thread. A check
// blocks for as long as reading the whole bundle takes.
class AppVerifying {
  public:
    virtual ~AppVerifying() = default;

    // Nothing when the bundle at `bundlePath` (absolute) passes every check;
    // otherwise the first problem found.
    virtual std::optional<AppVerificationProblem> verify(
        const std::string& bundlePath,
        const std::string& expectedIdentifier) const = 0;

  protected:
    AppVerifying() = default;
    AppVerifying(const AppVerifying&) = default;
    AppVerifying& operator=(const AppVerifying&) = default;
};

}  // namespace target
