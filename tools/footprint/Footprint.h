#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "Files.h"

namespace footprint {

// What to plant: a realistic trace of Tavio in one user's account, as the
// player leaves it after some weeks of use.
struct FootprintOptions {
    std::string home;          // the user's home folder; created when missing
    std::string applications;  // the folder that receives the app; created when missing
    std::string identifier = "io.tavio.Tavio";
    std::string appName = "Tavio.app";
    std::string executableName = "Tavio";
    std::string playerPath;  // copied in as the app's executable
    std::string hostID;      // names the per-host preferences file
    std::size_t appSizeMB = 8;
    std::size_t cacheFiles = 2000;    // small cache files (thumbnails)
    std::size_t largeCacheFiles = 3;  // partial stream downloads
    std::size_t largeCacheFileMB = 4;
    std::size_t torrentCopies = 12;
    bool app = true;
    bool seal = true;  // seal the app for the identifier, as it ships
};

// What was planted: the product's locations (absolute paths, in the order in
// which an uninstall lists them, the per-host preferences file and the app
// last) and how much.
struct PlantedFootprint {
    std::vector<std::string> locations;
    std::size_t files = 0;
    std::uint64_t bytes = 0;
};

// Plants everything FootprintOptions describes. Deterministic: the same
// options give the same bytes. Stops at the first problem.
std::variant<PlantedFootprint, std::string> plantFootprint(const FootprintOptions& options);

// Plants only the app bundle <applications>/<appName>: Info.plist with the
// identifier and the executable's name, the player as that executable, a
// small framework with version links, resources padded to about
// options.appSizeMB, and (unless options.seal is false) the bundle seal for
// the identifier. Its one location
// is the bundle's path.
std::variant<PlantedFootprint, std::string> plantAppBundle(const FootprintOptions& options);

// This machine's id (/etc/machine-id), which names the per-host preferences
// file; empty when it cannot be read.
std::string currentHostID();

}  // namespace footprint
