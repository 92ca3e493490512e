#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <string>

#include "platform/linux/FilePreferencesAccess.h"
#include "target/ItemState.h"

// What a fault case's home is made of and how the test reads it back: the
// identifiers planted, the user the case runs as, and the looks at the disk
// and the preferences store that the set-up and the checks share.
namespace faulttest {

// A product identifier of this test process's own: the process adapter looks
// at every process of the user, and test programs run side by side.
inline const std::string kId = "io.tavio.Tavio.fault" + std::to_string(::getpid());
inline constexpr const char* kHostID = "0123456789abcdef0123456789abcdef";

// The user whose home a case plants and who runs it: people do not run the
// uninstaller as root, and root is spared the refusals (EACCES, EPERM) that a
// failing call gives everyone else. Run as root, the test hands the planted
// tree to nobody and each case drops to nobody once its process table is
// set up; run as anyone else, it is that user's own.
uid_t caseUser();

// In a child: from here on the case runs as its user.
void becomeCaseUser();

// An item state as a case writes it: "present", "absent" or "skipped".
const char* stateName(target::ItemState::Kind kind);

// Adds `path` and, when it is a folder (never through a link), everything
// below it.
void collect(const std::string& path, std::set<std::string>& into);

// The store as the program makes it, for this home.
std::shared_ptr<platform::FilePreferencesAccess> storeFor(const std::string& home);

}  // namespace faulttest
