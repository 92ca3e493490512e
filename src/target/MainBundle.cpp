#include "target/MainBundle.h"

#include <fcntl.h>

#include <string>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"

namespace target {
namespace {

constexpr std::string_view kInfoPropertyList = "Info.plist";

// The folder part of a path ("" for a bare name, "/" for a name in the root).
std::string_view folderOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) {
        return {};
    }
    return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

std::string_view nameOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::string MainBundle::infoPropertyListPath(std::string_view executablePath) {
    if (!executablePath.starts_with('/')) {
        return {};  // never look in whatever the working folder happens to be
    }
    const std::string_view macOS = folderOf(executablePath);
    const std::string_view contents = folderOf(macOS);
    const std::string_view bundle = folderOf(contents);
    const bool inBundle = nameOf(macOS) == "MacOS" && nameOf(contents) == "Contents" &&
                          nameOf(bundle).size() > 4 && nameOf(bundle).ends_with(".app");
    std::string path(inBundle ? contents : macOS);
    if (path.back() != '/') {
        path += '/';
    }
    return path + std::string(kInfoPropertyList);
}

MainBundle MainBundle::load(const std::string& path) {
    const std::string folderPath(folderOf(path));
    const std::string name(nameOf(path));
    if (!path.starts_with('/') || name.empty() || name == "." || name == "..") {
        return MainBundle(std::nullopt);
    }
    const base::UniqueFd folderFD(sys::open(folderPath.c_str(), sys::kFolderFlags & ~O_NOFOLLOW));
    if (!folderFD) {
        return MainBundle(std::nullopt);
    }
    PropertyList::ReadResult result = PropertyList::readAt(folderFD.get(), name);
    if (auto* list = std::get_if<PropertyList>(&result)) {
        return MainBundle(std::move(*list));
    }
    return MainBundle(std::nullopt);
}

const MainBundle& MainBundle::main() {
    static const MainBundle bundle = load(infoPropertyListPath(runningExecutablePath()));
    return bundle;
}

std::string MainBundle::targetString(std::string_view key, std::string_view fallback) const {
    if (info_) {
        std::optional<std::string> value = info_->stringValue(key);
        if (value && !value->empty()) {
            return *value;
        }
    }
    return std::string(fallback);
}

}  // namespace target
