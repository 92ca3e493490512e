#include "platform/linux/BundleDeclarations.h"

#include <cerrno>
#include <variant>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"
#include "target/PropertyList.h"

namespace platform {
namespace {

using base::UniqueFd;

Declares declarationOf(int error) {
    return error == ENOTDIR || error == ELOOP ? Declares::no : Declares::unknown;
}

Declares declarationOf(target::PropertyList::ReadFailure failure) {
    using ReadFailure = target::PropertyList::ReadFailure;
    switch (failure) {
        case ReadFailure::notARegularFile:
        case ReadFailure::tooLarge:
        case ReadFailure::malformed:
            return Declares::no;
        case ReadFailure::missing:
        case ReadFailure::unreadable:
            return Declares::unknown;
    }
    return Declares::unknown;
}

Declares read(const std::string& bundle, const std::string& identifier) {
    UniqueFd bundleFD(sys::open(bundle.c_str(), sys::kFolderFlags));
    if (!bundleFD) {
        return declarationOf(errno);
    }
    UniqueFd contentsFD(sys::openFolderAt(bundleFD.get(), "Contents"));
    if (!contentsFD) {
        return declarationOf(errno);
    }
    const auto read = target::PropertyList::readAt(contentsFD.get(), "Info.plist");
    if (const auto* failure = std::get_if<target::PropertyList::ReadFailure>(&read)) {
        return declarationOf(*failure);
    }
    const auto declared = std::get<target::PropertyList>(read).stringValue("CFBundleIdentifier");
    return declared && *declared == identifier ? Declares::yes : Declares::no;
}

}  // namespace

Declares BundleDeclarations::of(const std::string& bundle) {
    auto [entry, inserted] = answers_.try_emplace(bundle, Declares::no);
    if (inserted) {
        entry->second = read(bundle, identifier_);
    }
    return entry->second;
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? std::string() : path.substr(0, slash);
}

std::string lastComponent(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::optional<std::string> enclosingBundle(const std::string& executable) {
    const std::string macOS = parentOf(executable);
    const std::string contents = parentOf(macOS);
    const std::string bundle = parentOf(contents);
    const std::string bundleName = lastComponent(bundle);
    if (lastComponent(macOS) != "MacOS" || lastComponent(contents) != "Contents" ||
        bundleName.size() <= 4 || !bundleName.ends_with(".app")) {
        return std::nullopt;
    }
    return bundle;
}

}  // namespace platform
