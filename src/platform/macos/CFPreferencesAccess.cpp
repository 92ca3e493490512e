#include "platform/macos/CFPreferencesAccess.h"

#include <memory>
#include <type_traits>

namespace platform {
namespace {

// Releases what a Create or Copy call returned, on every path.
struct CFReleaser {
    void operator()(CFTypeRef object) const {
        if (object != nullptr) {
            ::CFRelease(object);
        }
    }
};
template <typename T>
using CFOwned = std::unique_ptr<std::remove_pointer_t<T>, CFReleaser>;

CFOwned<CFStringRef> makeString(const std::string& text) {
    return CFOwned<CFStringRef>(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

// The keys of (domain, current user, host). A missing answer, an answer that
// is not an array of strings and an empty array all give nothing.
CFOwned<CFArrayRef> copyKeys(CFStringRef domain, CFStringRef host) {
    CFOwned<CFArrayRef> keys(CFPreferencesCopyKeyList(domain, kCFPreferencesCurrentUser, host));
    if (!keys || CFGetTypeID(keys.get()) != CFArrayGetTypeID()) {
        return nullptr;
    }
    const CFIndex count = CFArrayGetCount(keys.get());
    if (count == 0) {
        return nullptr;
    }
    for (CFIndex i = 0; i < count; ++i) {
        const CFTypeRef key = CFArrayGetValueAtIndex(keys.get(), i);
        if (key == nullptr || CFGetTypeID(key) != CFStringGetTypeID()) {
            return nullptr;
        }
    }
    return keys;
}

}  // namespace

bool CFPreferencesAccess::hasValues(const std::string& domain) const {
    const auto name = makeString(domain);
    if (!name) {
        return false;
    }
    for (const CFStringRef host : hosts) {
        if (copyKeys(name.get(), host)) {
            return true;
        }
    }
    return false;
}

void CFPreferencesAccess::removeAll(const std::string& domain) const {
    const auto name = makeString(domain);
    if (!name) {
        return;
    }
    for (const CFStringRef host : hosts) {
        const auto keys = copyKeys(name.get(), host);
        if (!keys) {
            continue;  // nothing to remove: nothing is written
        }
        // Exactly the listed keys go, in one call; nothing is set.
        CFPreferencesSetMultiple(nullptr, keys.get(), name.get(), kCFPreferencesCurrentUser, host);
        (void)CFPreferencesSynchronize(name.get(), kCFPreferencesCurrentUser, host);
    }
}

}  // namespace platform
