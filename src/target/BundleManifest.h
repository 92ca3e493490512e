#pragma once

#include <sys/stat.h>

#include <map>
#include <optional>
#include <string>

#include "target/PropertyList.h"

namespace target {

// What a verified copy of the app held when its removal began: every folder,
// regular file and link below the bundle folder, by its "/"-separated path
// relative to that folder ("Contents", "Contents/MacOS/Tavio"), files with
// the SHA-256 of their bytes and links with their target as stored. It is
// the evidence that lets a later run finish a removal that was cut off: only
// what still matches it may go, so a file added or changed since, by anyone,
// stays.
//
// It is read from the copy itself, just after the copy was verified, in the
// same way on Linux and on macOS, rather than taken from the seal's (or, on
// macOS, the code signature's) own list of resources: those leave out the
// seal or signature itself, and on macOS the main executable, whose hash
// lives in the code directory; every one of them must be on the list for the
// copy to go whole. Read a moment after the check, it vouches for no more
// than the removal that follows would delete anyway: everything below the
// verified folder.
struct BundleManifest {
    struct Entry {
        enum class Kind { folder, file, link };

        Kind kind = Kind::file;
        std::string digest;      // files: the 32 bytes of SHA-256
        std::string linkTarget;  // links: exactly as stored

        bool operator==(const Entry&) const = default;
    };

    std::map<std::string, Entry> entries;

    bool operator==(const BundleManifest&) const = default;

    // Reads the whole bundle below the open folder `bundleFD` (neither
    // closed nor moved), relative to descriptors only and following no link.
    // Nothing when any part of it cannot be read, or it holds a FIFO, socket
    // or device.
    static std::optional<BundleManifest> of(int bundleFD);

    // Whether the entry `name` in the open folder `folderFD`, found as
    // `status` by an lstat, at `path` relative to the bundle, is still what
    // the manifest lists there: a folder where a folder was, a link with the
    // same target, a regular file with the same bytes. Anything else (not
    // listed, another type, other content, unreadable) is not.
    bool stillHolds(const std::string& path,
                    int folderFD,
                    const std::string& name,
                    const struct stat& status) const;

    // The manifest as a dictionary node for a property list (owned by the
    // caller), and back. Reading is strict: any entry of an unknown shape
    // makes the whole manifest unreadable.
    plist_t toNode() const;
    static std::optional<BundleManifest> fromNode(plist_t node);
};

}  // namespace target
