#pragma once

#include <optional>
#include <string>
#include <vector>

#include "removal/FileIdentity.h"
#include "removal/RemovalFailure.h"
#include "removal/RemovalFilter.h"
#include "removal/Volume.h"

namespace removal {

// Folders nested deeper than this below an item's top folder are not entered:
// the top folder is depth 0, and a folder at depth 128 is reported as too deep.
inline constexpr int kTreeDepthLimit = 128;

// Deletes the folder `name` inside the open folder `parentFD`, and everything
// below it, relative to open descriptors only. It never follows a link (a link
// inside the tree is unlinked itself), never enters a folder on another volume
// than `anchorVolume` (another device, another mount, a bind mount) nor one
// whose volume cannot be told, and never goes deeper than kTreeDepthLimit. When `identity` is
// given, the top folder must still be that object, or nothing is touched.
//
// Error policy: collect and go on. Each problem is appended to `failures` with
// the most specific path (`path` is the top folder's absolute path); siblings
// of a failed entry are still removed, and only a folder whose whole content
// went away is itself removed, so every ancestor of a leftover stays. When a
// folder deep in the tree can no longer be reached, its failure names it and
// the removal goes on with everything above and beside it.
// An entry that vanished meanwhile (ENOENT) is not a failure, except for the
// top folder itself.
//
// With a `filter`, every entry below the top folder is looked at and asked
// about before it is deleted or entered; one it keeps is reported with the
// filter's reason and stays, with every folder that holds it.
//
// `parentFD` is neither closed nor kept.
void removeTree(int parentFD,
                const std::string& name,
                const std::string& path,
                const VolumeIdentity& anchorVolume,
                const std::optional<FileIdentity>& identity,
                std::vector<RemovalFailure>& failures,
                const RemovalFilter* filter = nullptr);

}  // namespace removal
