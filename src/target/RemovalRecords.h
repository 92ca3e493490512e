#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/UniqueFd.h"
#include "target/RemovalRecord.h"
#include "target/UninstallContext.h"

namespace target {

// The program's own folder of removal records (RemovalRecord.h), below the
// user's home, in the place each system keeps a program's state:
//   Linux: $XDG_STATE_HOME/io.tavio.Tavio.Uninstaller, or
//          ~/.local/state/io.tavio.Tavio.Uninstaller
//   macOS: ~/Library/Application Support/io.tavio.Tavio.Uninstaller
// The folder is the user's, mode 0700; each record is a file of the user's,
// mode 0600, with one link, named "removal-<16 hex digits>.plist". Only such
// a file in such a folder is trusted: anything else there, or a record that
// does not parse, is never taken for evidence, and never changed or removed.
//
// Durability. A record is the one thing that makes a later deletion
// legitimate, so it must be on the disk before the first deletion relies on
// it, and it must appear whole or not at all. In this order:
//   1. each folder on the way that is missing is made (0700), and the folder
//      that holds it is synced, so the new name survives a power cut;
//   2. the record is written into an unnamed file (Linux: O_TMPFILE; where
//      the file system has none, and on macOS, a temporary name
//      ".removal-<random>.tmp" made with O_EXCL), and the file is synced
//      (macOS: F_FULLFSYNC, since fsync there stops at the disk's cache);
//   3. the file gets its name: linkat() of the unnamed file, or a rename
//      that never replaces (renameat2 RENAME_NOREPLACE; renameatx_np
//      RENAME_EXCL on macOS);
//   4. the records' folder is synced. Only then does the removal begin.
// A power cut before 4 completes leaves either no record (nothing has been
// deleted yet, and the copy still verifies as it did) or the whole record,
// since its bytes were synced before its name existed. At most a temporary
// name of step 2 is left; it is ours by pattern and place and is swept by a
// later write once older than a minute. Dropping a record needs no sync: a
// record brought back by a power cut describes a copy that is gone, and the
// next run drops it again.
class RemovalRecords {
  public:
    // A trusted record and the file it was read from.
    struct Stored {
        std::string fileName;
        RemovalRecord record;
        dev_t device = 0;  // of the record's file
        ino_t inode = 0;
    };

    std::string homeDirectory;
    std::string folder;  // absolute; below homeDirectory
    uid_t userID = 0;

    // The records of the context's user.
    static RemovalRecords forUser(const UninstallContext& context) {
        return {context.homeDirectory, context.stateDirectory, context.userID};
    }

    // The records' folder for a home folder, as described above.
    static std::string folderFor(const std::string& homeDirectory);

    // Every trusted record, in file-name order. Reads only.
    std::vector<Stored> all() const;

    // The trusted records of the copy at `path`.
    std::vector<Stored> of(const std::string& path) const;

    // Writes `record` as described above. Its name, or the errno of the step
    // that failed (nothing deleted may rely on it then).
    std::variant<std::string, int> write(RemovalRecord record) const;

    // Removes a record read before, when its file is still that file, and
    // then, once no record is left, the folders the program made for them.
    void drop(const Stored& stored) const;

  private:
    base::UniqueFd openFolder() const;
    std::optional<Stored> read(int folderFD, const std::string& name) const;
    std::variant<base::UniqueFd, int> makeFolder(std::vector<std::string>& created) const;
    void removeEmptyFolders(const std::vector<std::string>& created) const;
    bool removeEmptyFolder(const std::string& relative) const;
    static void sweepTemporaries(int folderFD);
    std::vector<std::string> componentsBelowHome() const;
};

// The name a record has while it is written, where the system cannot write
// it unnamed: this, random characters and ".tmp".
inline constexpr std::string_view kTemporaryPrefix = ".removal-";

// How a record's bytes reach the disk on this system: steps 2 to 4 above, in
// the open folder `folderFD`. 0, or the errno of the step that failed.
int writeDurably(int folderFD, const std::string& name, const std::string& bytes);

// fsync on Linux, F_FULLFSYNC on macOS.
int syncToDisk(int fd);

}  // namespace target
