#include <variant>

#include "platform/InstalledAppVerifier.h"
#include "platform/linux/BundleSeal.h"
#include "target/AppBundleLayout.h"

namespace platform {

std::optional<target::AppVerificationProblem> InstalledAppVerifier::verify(
    const std::string& bundlePath,
    const std::string& expectedIdentifier) const {
    auto layout = target::AppBundleLayout::open(bundlePath, expectedIdentifier);
    if (auto* problem = std::get_if<target::AppVerificationProblem>(&layout)) {
        return *problem;
    }
    const auto& bundle = std::get<target::AppBundleLayout>(layout);
    if (!sealIsValid(bundle.bundleFD(), bundle.contentsFD(), expectedIdentifier)) {
        return target::AppVerificationProblem::invalidSignature();
    }
    return std::nullopt;
}

}  // namespace platform
