#include "target/BundleWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <vector>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"

namespace target {
namespace {

constexpr int kLinkHopLimit = 40;
constexpr std::string_view kContents = "Contents";

std::optional<std::string> linkTargetOf(int folderFD, const std::string& name, off_t size) {
    std::string target(static_cast<std::size_t>(std::max<off_t>(size, 0)) + 1, '\0');
    const ssize_t length = ::readlinkat(folderFD, name.c_str(), target.data(), target.size());
    if (length <= 0 || static_cast<std::size_t>(length) >= target.size()) {
        return std::nullopt;  // changed since the lstat
    }
    target.resize(static_cast<std::size_t>(length));
    return target;
}

using Visitor = std::function<bool(const VisitedEntry&)>;

bool walkFolder(int folderFD,
                const std::string& prefix,
                int depth,
                const Visitor& visit,
                BundleEntries& entries);

bool enterFolder(int folderFD,
                 const std::string& name,
                 const struct stat& status,
                 const std::string& path,
                 int depth,
                 const Visitor& visit,
                 BundleEntries& entries) {
    if (depth >= BundleWalk::kDepthLimit) {
        return false;
    }
    const base::UniqueFd child(sys::openFolderAt(folderFD, name.c_str()));
    struct stat opened {};
    if (!child || ::fstat(child.get(), &opened) != 0 || opened.st_dev != status.st_dev ||
        opened.st_ino != status.st_ino) {
        return false;
    }
    return walkFolder(child.get(), path, depth + 1, visit, entries);
}

bool walkFolder(int folderFD,
                const std::string& prefix,
                int depth,
                const Visitor& visit,
                BundleEntries& entries) {
    const auto names = sys::namesIn(folderFD);
    if (!names) {
        return false;
    }
    for (const std::string& name : *names) {
        struct stat status {};
        if (sys::statAt(folderFD, name.c_str(), status) != 0) {
            return false;
        }
        const std::string path =
            prefix.empty() ? name : std::string(prefix).append("/").append(name);
        bool ok = false;
        if (S_ISDIR(status.st_mode)) {
            entries[path] = BundleEntry{BundleEntry::Type::folder, {}};
            ok = enterFolder(folderFD, name, status, path, depth, visit, entries);
        } else if (S_ISREG(status.st_mode)) {
            entries[path] = BundleEntry{BundleEntry::Type::file, {}};
            ok = visit(VisitedEntry{path, BundleEntry::Type::file, folderFD, name, status, {}});
        } else if (S_ISLNK(status.st_mode)) {
            const auto target = linkTargetOf(folderFD, name, status.st_size);
            if (target) {
                entries[path] = BundleEntry{BundleEntry::Type::link, *target};
                ok = visit(
                    VisitedEntry{path, BundleEntry::Type::link, folderFD, name, status, *target});
            }
        }
        if (!ok) {
            return false;  // a FIFO, socket or device is never opened
        }
    }
    return true;
}

std::vector<std::string> split(const std::string& path) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t slash = std::min(path.find('/', start), path.size());
        parts.push_back(path.substr(start, slash - start));
        start = slash + 1;
    }
    return parts;
}

// The folder that holds a link, as components from the bundle's top.
std::vector<std::string> folderOfLink(const std::string& linkPath) {
    std::vector<std::string> folder = split(linkPath);
    folder.pop_back();
    folder.insert(folder.begin(), std::string(kContents));
    return folder;
}

// What lies at `components` (from the bundle's top); nothing when nothing is.
const BundleEntry* entryAt(const std::vector<std::string>& components,
                           const BundleEntries& entries) {
    static const BundleEntry contentsFolder{BundleEntry::Type::folder, {}};
    if (components.empty() || components.front() != kContents) {
        return nullptr;
    }
    if (components.size() == 1) {
        return &contentsFolder;
    }
    std::string path = components[1];
    for (std::size_t i = 2; i < components.size(); ++i) {
        path += "/" + components[i];
    }
    const auto found = entries.find(path);
    return found == entries.end() ? nullptr : &found->second;
}

// The link's target read as text, from its folder: never above the top.
bool staysInsideAsText(const std::string& linkPath, const std::string& target) {
    std::vector<std::string> at = folderOfLink(linkPath);
    for (const std::string& part : split(target)) {
        if (part == "..") {
            if (at.empty()) {
                return false;
            }
            at.pop_back();
        } else if (!part.empty() && part != ".") {
            at.push_back(part);
        }
    }
    return true;
}

// The link resolved as the system would, following the bundle's other links.
// Resolution ends harmlessly at a missing entry or at a file.
bool staysInsideResolved(const std::string& linkPath,
                         const std::string& target,
                         const BundleEntries& entries) {
    std::vector<std::string> at = folderOfLink(linkPath);
    const std::vector<std::string> first = split(target);
    std::deque<std::string> remaining(first.begin(), first.end());
    int hops = 1;
    while (!remaining.empty()) {
        const std::string part = remaining.front();
        remaining.pop_front();
        if (part.empty() || part == ".") {
            continue;
        }
        if (part == "..") {
            if (at.empty()) {
                return false;
            }
            at.pop_back();
            continue;
        }
        at.push_back(part);
        const BundleEntry* entry = entryAt(at, entries);
        if (entry == nullptr || entry->type == BundleEntry::Type::file) {
            return true;
        }
        if (entry->type == BundleEntry::Type::link) {
            if (++hops > kLinkHopLimit || entry->linkTarget.starts_with('/')) {
                return false;
            }
            at.pop_back();
            const std::vector<std::string> next = split(entry->linkTarget);
            remaining.insert(remaining.begin(), next.begin(), next.end());
        }
    }
    return true;
}

}  // namespace

bool BundleWalk::walk(int contentsFD,
                      const std::function<bool(const VisitedEntry&)>& visit,
                      BundleEntries& entries) {
    return walkFolder(contentsFD, "", 0, visit, entries);
}

bool BundleWalk::holdsOnly(int folderFD, const std::string& expected) {
    const auto names = sys::namesIn(folderFD);
    return names && names->size() == 1 && names->front() == expected;
}

bool BundleWalk::linksStayInside(const BundleEntries& entries) {
    for (const auto& [path, entry] : entries) {
        if (entry.type != BundleEntry::Type::link) {
            continue;
        }
        if (entry.linkTarget.empty() || entry.linkTarget.starts_with('/') ||
            !staysInsideAsText(path, entry.linkTarget) ||
            !staysInsideResolved(path, entry.linkTarget, entries)) {
            return false;
        }
    }
    return true;
}

}  // namespace target
