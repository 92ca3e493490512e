#include "target/AppBundleLayout.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>

#include "base/SystemCalls.h"
#include "target/PropertyList.h"

namespace target {
namespace {

// What a failed look at the layout means: nothing there, or something of
// another kind (a file, a link), is no app bundle; a refusal of the system
// (an I/O error, no descriptor left, no permission) says nothing of what is
// there, only that it could not be read.
AppVerificationProblem problemFor(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP
               ? AppVerificationProblem::notAnAppBundle()
               : AppVerificationProblem::unreadable();
}

// The folder `name` inside `parentFD`, when it is a real folder (an lstat
// first, then an open that refuses links and must find the same folder).
// Otherwise nothing, with errno saying why (ENOTDIR for another kind of
// entry, or another folder found by the open).
base::UniqueFd openRealFolder(int parentFD, const char* name) {
    struct stat seen {};
    if (sys::statAt(parentFD, name, seen) != 0) {
        return {};
    }
    if (!S_ISDIR(seen.st_mode)) {
        errno = ENOTDIR;
        return {};
    }
    base::UniqueFd folder(sys::openFolderAt(parentFD, name));
    struct stat opened {};
    if (!folder || ::fstat(folder.get(), &opened) != 0) {
        return {};
    }
    if (opened.st_dev != seen.st_dev || opened.st_ino != seen.st_ino) {
        errno = ENOTDIR;
        return {};
    }
    return folder;
}

bool isRegularFile(int folderFD, const std::string& name) {
    struct stat status {};
    return sys::statAt(folderFD, name.c_str(), status) == 0 && S_ISREG(status.st_mode);
}

// Checks 2 and 3: the property list, or why it is not one. The read itself
// tells a missing or wrong kind of entry (no app bundle) from a refusal of
// the system (unreadable).
std::variant<PropertyList, AppVerificationProblem> readInfo(int contentsFD) {
    PropertyList::ReadResult read = PropertyList::readAt(contentsFD, "Info.plist");
    if (const auto* failure = std::get_if<PropertyList::ReadFailure>(&read)) {
        return *failure == PropertyList::ReadFailure::unreadable
                   ? AppVerificationProblem::unreadable()
                   : AppVerificationProblem::notAnAppBundle();
    }
    if (!std::get<PropertyList>(read).isDictionary()) {
        return AppVerificationProblem::notAnAppBundle();
    }
    return std::move(std::get<PropertyList>(read));
}

bool isUsableName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// Checks 2 to 8 on the open "Contents" folder.
std::optional<AppVerificationProblem> checkContents(int contentsFD,
                                                    const std::string& expectedIdentifier) {
    auto read = readInfo(contentsFD);
    if (auto* problem = std::get_if<AppVerificationProblem>(&read)) {
        return std::move(*problem);
    }
    const auto* info = &std::get<PropertyList>(read);
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
        return problemFor(errno);
    }
    base::UniqueFd contents = openRealFolder(bundle.get(), "Contents");
    if (!contents) {
        return problemFor(errno);
    }
    if (auto problem = checkContents(contents.get(), expectedIdentifier)) {
        return *std::move(problem);
    }
    return AppBundleLayout(std::move(bundle), std::move(contents));
}

}  // namespace target
