#include "removal/SafeRemover.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/SystemCalls.h"
#include "base/Trap.h"
#include "removal/DirectoryOpen.h"
#include "removal/TreeRemoval.h"

namespace removal {
namespace {

bool isDirectory(const struct stat& st) {
    return S_ISDIR(st.st_mode);
}

void checkComponents(const Components& components) {
    if (components.empty()) {
        base::trap("an item must have at least one path component");
    }
    for (const std::string& component : components) {
        if (component.empty()) {
            base::trap("a path component is empty");
        }
        if (component.find('/') != std::string::npos) {
            base::trap("a path component contains \"/\"");
        }
        if (component == ".") {
            base::trap("a path component is \".\"");
        }
        if (component == "..") {
            base::trap("a path component is \"..\"");
        }
    }
}

}  // namespace

std::string SafeRemover::displayPath(const Components& components, std::size_t count) const {
    std::string path = anchor;
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (path.empty() || path.back() != '/') {
            path += '/';
        }
        path += components[i];
    }
    return path;
}

// Opens the folder `name` relative to `parentFD`, whose lstat is `st`, if it
// may be entered on the way to an item: a link in its place is refused, and
// so is anything that is not a folder, and a folder of another user when the
// anchor must be owned. The open itself refuses a link swapped in since.
std::variant<base::UniqueFd, RemovalReason> SafeRemover::enterFolder(int parentFD,
                                                                     const char* name,
                                                                     const struct stat& st) const {
    if (S_ISLNK(st.st_mode)) {
        return RemovalReason::symbolicLinkInPath();
    }
    if (!isDirectory(st)) {
        return RemovalReason::notADirectory();
    }
    if (requiresOwnedAnchor && st.st_uid != userID) {
        return RemovalReason::notOwnedByCurrentUser();
    }
    return openDirectory(parentFD, name);
}

// Opens the anchor itself. Links above the anchor are followed (the lstat and
// open take the whole path), but the anchor must be a folder that may be
// entered (enterFolder).
std::variant<base::UniqueFd, RemovalFailure> SafeRemover::openAnchor(
    struct stat& anchorStat) const {
    const std::string anchorPath = displayPath({}, 0);
    if (::lstat(anchorPath.c_str(), &anchorStat) != 0) {
        const int error = errno;
        if (error == ENOENT) {
            // A missing anchor means a missing item; /dev/null keeps the walk's
            // shape (there is always an anchor descriptor) without a special case.
            anchorStat = {};
            return base::UniqueFd(sys::open("/dev/null", O_RDONLY | O_CLOEXEC));
        }
        return RemovalFailure{anchorPath, reasonForErrno(error)};
    }
    auto opened = enterFolder(AT_FDCWD, anchorPath.c_str(), anchorStat);
    if (auto* reason = std::get_if<RemovalReason>(&opened)) {
        return RemovalFailure{anchorPath, std::move(*reason)};
    }
    return std::move(std::get<base::UniqueFd>(opened));
}

// Descends one component at a time, each relative to the folder before it.
// A missing component (or a file where a folder was expected, ENOTDIR) ends
// the walk successfully with no leaf: the item is absent. Every folder on the
// way must be one that may be entered (enterFolder).
std::variant<SafeRemover::Walked, RemovalFailure> SafeRemover::walk(
    const Components& components) const {
    Walked walked;
    struct stat anchorStat {};
    auto anchorOrFailure = openAnchor(anchorStat);
    if (auto* failure = std::get_if<RemovalFailure>(&anchorOrFailure)) {
        return std::move(*failure);
    }
    walked.anchorFD = std::move(std::get<base::UniqueFd>(anchorOrFailure));
    if (!walked.anchorFD) {
        return RemovalFailure{displayPath({}, 0), reasonForErrno(errno)};
    }
    if (!isDirectory(anchorStat)) {  // the anchor is missing: so is the item
        return walked;
    }
    walked.anchorDevice = anchorStat.st_dev;

    for (std::size_t i = 0; i < components.size(); ++i) {
        const std::string& name = components[i];
        struct stat st {};
        if (sys::statAt(walked.parentFD(), name.c_str(), st) != 0) {
            const int error = errno;
            if (error == ENOENT || error == ENOTDIR) {
                return walked;
            }
            return RemovalFailure{displayPath(components, i + 1), reasonForErrno(error)};
        }
        if (i + 1 == components.size()) {
            walked.leafStat = st;
            return walked;
        }
        auto next = enterFolder(walked.parentFD(), name.c_str(), st);
        if (auto* reason = std::get_if<RemovalReason>(&next)) {
            return RemovalFailure{displayPath(components, i + 1), std::move(*reason)};
        }
        walked.openedDirectories.push_back(std::move(std::get<base::UniqueFd>(next)));
    }
    return walked;
}

Presence SafeRemover::presence(const Components& components) const {
    auto result = walk(components);
    if (auto* failure = std::get_if<RemovalFailure>(&result)) {
        return Presence::unknown(failure->reason);
    }
    return std::get<Walked>(result).leafStat ? Presence::present() : Presence::absent();
}

std::optional<FileIdentity> SafeRemover::identity(const Components& components) const {
    auto result = walk(components);
    auto* walked = std::get_if<Walked>(&result);
    if (walked == nullptr || !walked->leafStat || !isDirectory(*walked->leafStat)) {
        return std::nullopt;
    }
    return FileIdentity{walked->leafStat->st_dev, walked->leafStat->st_ino};
}

RemovalOutcome SafeRemover::removeFolder(const Walked& walked,
                                         const Components& components,
                                         const std::optional<FileIdentity>& expecting,
                                         const RemovalFilter* filter) const {
    const std::string path = displayPath(components);
    if (requiresOwnedAnchor && walked.leafStat->st_uid != userID) {
        return RemovalOutcome::failed({{path, RemovalReason::notOwnedByCurrentUser()}});
    }
    // The anchor's volume is what every folder of the tree is compared with;
    // when it cannot be learnt, no folder could be checked, so the item is
    // not entered at all.
    auto volume = volumeOf(walked.anchorFD.get(), walked.anchorDevice);
    if (auto* reason = std::get_if<RemovalReason>(&volume)) {
        return RemovalOutcome::failed({{path, std::move(*reason)}});
    }
    std::vector<RemovalFailure> failures;
    removeTree(walked.parentFD(), components.back(), path, std::get<VolumeIdentity>(volume),
               expecting, failures, filter);
    return failures.empty() ? RemovalOutcome::removed()
                            : RemovalOutcome::failed(std::move(failures));
}

RemovalOutcome SafeRemover::remove(const Components& components,
                                   const std::optional<FileIdentity>& expecting,
                                   const RemovalFilter* filter) const {
    checkComponents(components);
    auto result = walk(components);
    if (auto* failure = std::get_if<RemovalFailure>(&result)) {
        return RemovalOutcome::failed({std::move(*failure)});
    }
    const Walked& walked = std::get<Walked>(result);
    if (!walked.leafStat) {
        return RemovalOutcome::alreadyAbsent();
    }
    const std::string path = displayPath(components);
    const std::string& name = components.back();
    const struct stat& leaf = *walked.leafStat;

    if (isDirectory(leaf)) {
        return removeFolder(walked, components, expecting, filter);
    }
    // A folder was expected: whatever took its place is not what was checked.
    if (expecting || filter != nullptr) {
        return RemovalOutcome::failed({{path, RemovalReason::changedSinceVerification()}});
    }
    // A link or a file of any other type goes with one unlink relative to its
    // parent: a link is removed itself, and its target is never touched.
    if (sys::unlinkAt(walked.parentFD(), name.c_str()) != 0) {
        return RemovalOutcome::failed({{path, reasonForErrno(errno)}});
    }
    return S_ISLNK(leaf.st_mode) ? RemovalOutcome::linkRemoved() : RemovalOutcome::removed();
}

}  // namespace removal
