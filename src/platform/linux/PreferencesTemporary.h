#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "base/UniqueFd.h"

namespace platform {

// The temporary file of a preferences file's rewrite: the new content, made
// beside the file it will replace, and what a run that was killed before
// putting it in place left behind.
//
// A temporary of the file `<file>` is named
//   .<file>.uninstall-tavio-<8 characters out of 0-9 and a-z>
// for example ".io.tavio.Tavio.plist.uninstall-tavio-k3x9a7q0". The marker
// names this program, so nothing else makes such names; the leading dot keeps
// it out of ordinary listings, and since it never ends in ".plist", nothing
// takes it for a domain's file. Only a name of exactly this form, for exactly
// this file, is ever taken for a leftover.

// Every rewrite holds an exclusive lock (flock) on its temporary from before
// the temporary has a name until it has taken the old file's place, so a
// leftover that can be locked belongs to no rewrite that still runs: the
// kernel drops the lock of a process that dies, however it dies. Such a
// leftover is removed at once.
//
// A leftover whose lock is held, or cannot be asked for, may be the
// temporary of a rewrite that another running copy is still making, and
// stays while it is younger than this. Such a rewrite holds its temporary for
// as long as writing a small file and flushing it take: a few milliseconds,
// minutes when a disk stalls (the kernel itself warns of a task stuck for
// two). And if a copy stopped in the middle longer than this had its
// temporary removed, its rename would fail and its old file stay whole: its
// rewrite is lost, never the preferences.
inline constexpr std::chrono::minutes kLeftoverTemporaryAge{60};

// A temporary being written: its name in the folder, and the descriptor that
// holds its lock until the rewrite is over.
struct Temporary {
    std::string name;
    base::UniqueFd lock;
};

// Writes `bytes` to a new file in `folder`, gives it `mode`, flushes it to
// disk and names it with a fresh temporary name of `fileName`. The caller
// keeps the returned descriptor open until the temporary has been renamed or
// removed. Nothing, and nothing left in the folder, when any step fails.
//
// The file is made without a name (O_TMPFILE) and named only once it is
// complete, so a crash while it is written leaves nothing. Where the file
// system cannot make a file without a name, it is made under its temporary
// name from the start (O_EXCL), and a crash may leave it half written.
std::optional<Temporary> writeTemporary(int folder,
                                        const std::string& fileName,
                                        const std::string& bytes,
                                        mode_t mode);

// Whether `folder` holds a leftover temporary of `fileName` of any age: an
// entry named exactly like one that is a regular file of `owner`'s with a
// single name. A link, a file with a second name or another user's file is
// no leftover of ours. A folder that cannot be listed holds none.
bool holdsLeftoverTemporary(int folder, const std::string& fileName, uid_t owner);

// Removes from `folder` every leftover temporary of `fileName` (as above)
// that no rewrite holds or that was last changed more than
// kLeftoverTemporaryAge ago, and nothing else. Each is
// looked at without following links and removed by its name in `folder`. One
// that cannot be removed stays, for holdsLeftoverTemporary() to find.
void removeLeftoverTemporaries(int folder, const std::string& fileName, uid_t owner);

}  // namespace platform
