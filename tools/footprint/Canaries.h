#pragma once

#include <string>
#include <variant>
#include <vector>

#include "Files.h"

namespace footprint {

// Canaries are files that look related to Tavio, or sit right beside its
// data, but belong to the user or to other programs: the user's own .torrent
// files, downloads, movies and exports, another application's support, cache,
// log and preference files, and another app in the application folder. No
// uninstall may change or remove any of them.
//
// plantCanaries() writes them with deterministic bytes and records each one's
// SHA-256 in a manifest; checkCanaries() later compares them byte for byte.

struct CanaryCheck {
    std::vector<std::string> missing;  // absolute paths that are gone (or not regular files)
    std::vector<std::string> changed;  // absolute paths whose bytes differ

    bool passed() const { return missing.empty() && changed.empty(); }
};

// Where the manifest goes unless the caller says otherwise: a hidden file
// directly in the home folder, where no uninstall looks.
std::string defaultManifestPath(const std::string& home);

// Plants the canaries below `home` and `applications` and writes the manifest.
Error plantCanaries(const std::string& home,
                    const std::string& applications,
                    const std::string& manifestPath);

// Compares every canary of the manifest with what is on disk now. A manifest
// that cannot be read or parsed is an error, never a passed check.
std::variant<CanaryCheck, std::string> checkCanaries(const std::string& home,
                                                     const std::string& applications,
                                                     const std::string& manifestPath);

}  // namespace footprint
