#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>

#include <variant>

#include "platform/InstalledAppVerifier.h"
#include "target/AppBundleLayout.h"

namespace platform {
namespace {

// kSecCSCheckNestedCode | kSecCSStrictValidate: frameworks and helpers inside
// the bundle are validated too, strictly.
constexpr SecCSFlags kValidityFlags = 24;

// Releases a Core Foundation object on every path out of a scope.
template <typename Ref>
class Owned {
  public:
    Owned() = default;
    explicit Owned(Ref ref) : ref_(ref) {}
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() {
        if (ref_ != nullptr) {
            CFRelease(ref_);
        }
    }

    Ref get() const { return ref_; }
    Ref* receive() { return &ref_; }  // for a "create" call's out-parameter

  private:
    Ref ref_ = nullptr;
};

// The requirement text: the identifier clause and nothing else, with the
// identifier quoted as the requirement language quotes strings.
std::string requirementText(const std::string& identifier) {
    std::string text = "identifier \"";
    for (const char c : identifier) {
        if (c == '"' || c == '\\') {
            text += '\\';
        }
        text += c;
    }
    return text + "\"";
}

bool signatureIsValid(const std::string& bundlePath, const std::string& identifier) {
    const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bundlePath.data()),
        static_cast<CFIndex>(bundlePath.size()), true));
    if (url.get() == nullptr) {
        return false;
    }
    Owned<SecStaticCodeRef> code;
    if (SecStaticCodeCreateWithPath(url.get(), kSecCSDefaultFlags, code.receive()) !=
            errSecSuccess ||
        code.get() == nullptr) {
        return false;
    }
    const std::string text = requirementText(identifier);
    const Owned<CFStringRef> requirementString(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
    if (requirementString.get() == nullptr) {
        return false;
    }
    Owned<SecRequirementRef> requirement;
    if (SecRequirementCreateWithString(requirementString.get(), kSecCSDefaultFlags,
                                       requirement.receive()) != errSecSuccess ||
        requirement.get() == nullptr) {
        return false;
    }
    return SecStaticCodeCheckValidity(code.get(), kValidityFlags, requirement.get()) ==
           errSecSuccess;
}

}  // namespace

std::optional<target::AppVerificationProblem> InstalledAppVerifier::verify(
    const std::string& bundlePath,
    const std::string& expectedIdentifier) const {
    auto layout = target::AppBundleLayout::open(bundlePath, expectedIdentifier);
    if (auto* problem = std::get_if<target::AppVerificationProblem>(&layout)) {
        return *problem;
    }
    if (!signatureIsValid(bundlePath, expectedIdentifier)) {
        return target::AppVerificationProblem::invalidSignature();
    }
    return std::nullopt;
}

}  // namespace platform
