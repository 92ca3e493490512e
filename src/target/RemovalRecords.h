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
// Folders. Whatever folders on the way are missing (".local", "state") are
// made together with the records' folder, so that a crash never leaves a
// folder that no later run knows to be ours: the missing part of the chain is
// built under a temporary name of ours beside it, ".io.tavio.Tavio.Uninstaller-
// <random>.tmp", with a file "created-folders" inside the records' folder that
// lists the folders made, and is then renamed into place, never replacing
// anything. A temporary chain left by a crash is recognised by its pattern,
// owner and place, and by holding exactly what such a chain holds: it is
// taken apart by the next run one empty folder at a time, so that anything
// else found under such a name stays where it is. The records' folder, its
// list and the folders listed go again, when empty, once no record is left.
//
// Durability. A record is the one thing that makes a later deletion
// legitimate, so it must be on the disk before the first deletion relies on
// it, and it must appear whole or not at all. In this order:
//   1. missing folders are made as above (0700); the list and each new folder
//      are synced before the rename, and the folder that receives the chain
//      after it, so the new names survive a power cut;
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
// name of step 2 is left; it is ours by pattern, owner and place and is swept
// by the next run. (A sweep that met another run's write in progress only makes that
// write fail, and that run then leaves its copy untouched.) Dropping a record needs no sync: a
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
    std::variant<std::string, int> write(const RemovalRecord& record) const;

    // Removes a record read before, when its file is still that file, and
    // then tidies up.
    void drop(const Stored& stored) const;

    // Removes what a crash left of a write (temporary names of ours) and,
    // once no record is left, the folders the program made for records.
    void tidy() const;

  private:
    base::UniqueFd openFolder() const;
    std::optional<Stored> read(int folderFD, const std::string& name) const;
    std::variant<base::UniqueFd, int> makeFolder() const;
    int makeChain(int parentFD, std::size_t first) const;
    void sweepChains() const;
    bool removeEmptyFolder(const std::string& relative) const;
    void removeChain(int parentFD, const std::string& name, std::size_t level) const;
    std::string madeList(std::size_t first) const;
    std::optional<std::size_t> removeMadeFolders(std::size_t first) const;
    std::optional<std::string> readOwnList(int folderFD, const std::string& name) const;
    bool removeListIfOurs(int folderFD, const std::string& expected) const;
    std::string relativeUpTo(std::size_t last) const;
    void retireChain(int homeFD, const std::string& name) const;
    base::UniqueFd openFolderAt(const std::string& relative) const;
    void sweepTemporaries(int folderFD) const;
    std::vector<std::string> componentsBelowHome() const;
};

// The name a record has while it is written, where the system cannot write
// it unnamed: this, random characters and ".tmp".
inline constexpr std::string_view kTemporaryPrefix = ".removal-";

// The temporary name of a chain of folders being made (see above): this,
// random characters and ".tmp"; and the list of folders made, inside the
// records' folder.
inline constexpr std::string_view kChainPrefix = ".io.tavio.Tavio.Uninstaller-";
inline constexpr std::string_view kMadeFolders = "created-folders";

// How a record's bytes reach the disk on this system: steps 2 to 4 above, in
// the open folder `folderFD`. 0, or the errno of the step that failed.
int writeDurably(int folderFD, const std::string& name, const std::string& bytes);

// Renames `from` to `to` in one folder, never replacing what is there: 0, or
// the errno.
int renameExclusive(int folderFD, const std::string& from, const std::string& to);

// Moves `from` in one folder to `to` in another, never replacing: 0, or the
// errno (EXDEV across volumes).
int renameAcross(int fromFD, const std::string& from, int toFD, const std::string& to);

// fsync on Linux, F_FULLFSYNC on macOS.
int syncToDisk(int fd);

}  // namespace target
