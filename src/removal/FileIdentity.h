#pragma once

#include <sys/types.h>

#include <cstdint>

namespace removal {

// Which file-system object a path named when it was examined: its device and
// inode. A folder renamed into the same place has another identity.
struct FileIdentity {
    dev_t device = 0;
    std::uint64_t inode = 0;

    bool operator==(const FileIdentity&) const = default;
};

}  // namespace removal
