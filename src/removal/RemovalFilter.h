#pragma once

#include <sys/stat.h>

#include <string>

#include "removal/RemovalReason.h"

namespace removal {

// Decides, entry by entry, what a tree removal may delete. Without one,
// everything below the item goes; with one, an entry it does not allow stays
// and is reported with its reason, and the folders that hold it stay with it.
// Finishing a removal that was cut off uses one, so that only what an earlier
// run verified is ever deleted.
class RemovalFilter {
  public:
    virtual ~RemovalFilter() = default;

    // Whether the entry `name` in the open folder `folderFD`, found as
    // `status` by an lstat, may be deleted (a folder: entered and emptied).
    // `relativePath` names it from the item's top folder ("Contents/Info.plist").
    virtual bool mayRemove(const std::string& relativePath,
                           int folderFD,
                           const std::string& name,
                           const struct stat& status) const = 0;

    // The reason given for every entry that stays.
    virtual RemovalReason reasonToKeep() const = 0;
};

}  // namespace removal
