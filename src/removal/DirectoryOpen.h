#pragma once

#include <fcntl.h>

#include <variant>

#include "base/UniqueFd.h"
#include "removal/RemovalReason.h"

namespace removal {

// Opens the folder `name` relative to `parentFD` (or AT_FDCWD) without
// following a link in its place, close-on-exec. On failure, the reason.
//
// A link that was swapped in after the folder was examined must read as a
// refused link. Some systems say ELOOP for it; Linux says ENOTDIR when
// O_DIRECTORY and O_NOFOLLOW meet a link, so an ENOTDIR is looked at once more
// (without following) to tell a link from a file that took the folder's place.
std::variant<base::UniqueFd, RemovalReason> openDirectory(int parentFD, const char* name);

}  // namespace removal
