#pragma once

#include <sys/stat.h>

#include <functional>
#include <map>
#include <string>

namespace target {

// What one entry below a bundle's "Contents" folder is.
struct BundleEntry {
    enum class Type { folder, file, link };

    Type type = Type::file;
    std::string linkTarget;  // links only, exactly as stored

    bool operator==(const BundleEntry&) const = default;
};

// Every entry below "Contents", keyed by its "/"-separated path relative to
// it ("MacOS/Tavio", "Frameworks/TavioCore.framework/Versions/Current").
using BundleEntries = std::map<std::string, BundleEntry>;

// A regular file or a link, as the walk meets it, for the caller to examine
// while the folder that holds it is open.
struct VisitedEntry {
    const std::string& path;  // relative to "Contents"
    BundleEntry::Type type;
    int folderFD;                   // the open folder that holds it
    const std::string& name;        // its name in that folder
    const struct stat& status;      // from the walk's lstat
    const std::string& linkTarget;  // links only
};

// Walks a bundle's "Contents" folder relative to open descriptors only: every
// folder is opened with O_NOFOLLOW and checked to be the folder that was
// examined, links are read and never followed, and nothing is opened for
// writing. A FIFO, socket or device anywhere makes the walk fail without it
// ever being opened, so a walk can never block on one.
class BundleWalk {
  public:
    // Folders nested deeper than this below "Contents" are refused.
    static constexpr int kDepthLimit = 64;

    // Calls `visit` for each regular file and link below `contentsFD`, in
    // name order within each folder, and records every entry. False when a
    // refused type, an entry that cannot be examined, a folder too deep or a
    // visitor that returns false stops it. `contentsFD` is neither closed
    // nor moved.
    static bool walk(int contentsFD,
                     const std::function<bool(const VisitedEntry&)>& visit,
                     BundleEntries& entries);

    // True when the names in the open folder `folderFD` are exactly
    // `expected` (a bundle's top level holds nothing but "Contents").
    static bool holdsOnly(int folderFD, const std::string& expected);

    // True when every link among `entries` has a relative target that stays
    // inside the bundle, the folder around "Contents": both read as plain
    // text and resolved the way the system would, through the other links
    // of the bundle. A chain of more than 40 links is refused too.
    static bool linksStayInside(const BundleEntries& entries);
};

}  // namespace target
