#include "target/AppBundleLayout.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>

#include "base/SystemCalls.h"
#include "target/PropertyList.h"

namespace target {
namespace {

// The folder `name` inside `parentFD`, when it is a real folder (an lstat
// first, then an open that refuses links and must find the same folder).
base::UniqueFd openRealFolder(int parentFD, const char* name) {
    struct stat seen {};
    if (sys::statAt(parentFD, name, seen) != 0 || !S_ISDIR(seen.st_mode)) {
        return {};
    }
    base::UniqueFd folder(sys::openFolderAt(parentFD, name));
    struct stat opened {};
    if (!folder || ::fstat(folder.get(), &opened) != 0 || opened.st_dev != seen.st_dev ||
        opened.st_ino != seen.st_ino) {
        return {};
    }
    return folder;
}

bool isRegularFile(int folderFD, const std::string& name) {
    struct stat status {};
    return sys::statAt(folderFD, name.c_str(), status) == 0 && S_ISREG(status.st_mode);
}

bool isUsableName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// Checks 2 to 8 on the open "Contents" folder.
std::optional<AppVerificationProblem> checkContents(int contentsFD,
                                                    const std::string& expectedIdentifier) {
    if (!isRegularFile(contentsFD, "Info.plist")) {
        return AppVerificationProblem::notAnAppBundle();
    }
    PropertyList::ReadResult read = PropertyList::readAt(contentsFD, "Info.plist");
    const auto* info = std::get_if<PropertyList>(&read);
    if (info == nullptr || !info->isDictionary()) {
        return AppVerificationProblem::notAnAppBundle();
    }
    const std::optional<std::string> identifier = info->stringValue("CFBundleIdentifier");
    if (!identifier) {
        return AppVerificationProblem::missingIdentifier();
    }
    if (*identifier != expectedIdentifier) {
        return AppVerificationProblem::identifierMismatch(*identifier);
    }
    const std::optional<std::string> executable = info->stringValue("CFBundleExecutable");
    if (!executable || !isUsableName(*executable)) {
        return AppVerificationProblem::missingExecutable();
    }
    const base::UniqueFd macOS = openRealFolder(contentsFD, "MacOS");
    if (!macOS || !isRegularFile(macOS.get(), *executable)) {
        return AppVerificationProblem::missingExecutable();
    }
    return std::nullopt;
}

}  // namespace

std::variant<AppBundleLayout, AppVerificationProblem> AppBundleLayout::open(
    const std::string& bundlePath,
    const std::string& expectedIdentifier) {
    base::UniqueFd bundle(sys::open(bundlePath.c_str(), sys::kFolderFlags));
    if (!bundle) {
        return AppVerificationProblem::notAnAppBundle();
    }
    base::UniqueFd contents = openRealFolder(bundle.get(), "Contents");
    if (!contents) {
        return AppVerificationProblem::notAnAppBundle();
    }
    if (auto problem = checkContents(contents.get(), expectedIdentifier)) {
        return *std::move(problem);
    }
    return AppBundleLayout(std::move(bundle), std::move(contents));
}

}  // namespace target
