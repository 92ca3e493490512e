#include "removal/TreeRemoval.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"
#include "removal/DirectoryOpen.h"

namespace removal {
namespace {

// At most this many folder descriptors of one tree are held open at a time.
// Deeper trees close the descriptors of their outermost folders and reach them
// again through ".." on the way back up, checking that each is still the same
// object. This keeps a 128-level tree within a small descriptor limit.
constexpr std::size_t kHeldDescriptors = 16;

std::string childPath(const std::string& path, const std::string& name) {
    return path.back() == '/' ? path + name : path + '/' + name;
}

// One entry of a listing, with the type readdir reported (DT_UNKNOWN when the
// file system does not say).
struct Entry {
    std::string name;
    unsigned char type;
};

// One folder being emptied: its complete listing, taken before anything in it
// is deleted, and how far the deletion has got.
struct Level {
    std::string name;
    std::string path;
    base::UniqueFd fd;  // closed for outer levels when the descriptor budget is spent
    FileIdentity identity;
    std::vector<Entry> entries;
    std::size_t next = 0;
    bool failed = false;
};

class TreeRemoval {
  public:
    TreeRemoval(int parentFD,
                const VolumeIdentity& anchorVolume,
                std::vector<RemovalFailure>& failures,
                const RemovalFilter* filter)
        : parentFD_(parentFD), anchorVolume_(anchorVolume), failures_(failures), filter_(filter) {}

    void run(const std::string& name,
             const std::string& path,
             const std::optional<FileIdentity>& identity);

  private:
    bool enter(int parentFD,
               const std::string& name,
               const std::string& path,
               const std::optional<FileIdentity>& identity);
    bool list(int fd, std::vector<Entry>& entries, const std::string& path);
    void removeEntry(Level& level, const Entry& entry);
    bool keptByFilter(Level& level,
                      const Entry& entry,
                      const std::string& path,
                      const struct stat& st);
    bool unlinkKnownNonDirectory(Level& level, const Entry& entry, const std::string& path);
    void leave();
    int reachParent();
    bool reopenThroughDotDot(const Level& done, Level& parent);
    bool reopenFromAbove(std::size_t index);
    void giveUpFrom(std::size_t index, RemovalReason reason);
    void releaseOuterDescriptors();

    void report(const std::string& path, RemovalReason reason) {
        failures_.push_back({path, std::move(reason)});
    }

    int parentFD_;
    VolumeIdentity anchorVolume_;
    std::vector<RemovalFailure>& failures_;
    const RemovalFilter* filter_;
    std::vector<Level> stack_;
    std::size_t firstHeld_ = 0;  // levels below this index have closed descriptors
};

void TreeRemoval::run(const std::string& name,
                      const std::string& path,
                      const std::optional<FileIdentity>& identity) {
    if (!enter(parentFD_, name, path, identity)) {
        return;
    }
    while (!stack_.empty()) {
        if (!stack_.back().fd && !reopenFromAbove(stack_.size() - 1)) {
            continue;  // what could not be reached was reported and given up
        }
        Level& top = stack_.back();
        if (top.next < top.entries.size()) {
            const Entry entry = top.entries[top.next++];
            removeEntry(top, entry);
        } else {
            leave();
        }
    }
}

// Opens, checks and lists one folder, and pushes it. Reports and returns false
// when the folder cannot be entered; nothing inside it is touched then.
bool TreeRemoval::enter(int parentFD,
                        const std::string& name,
                        const std::string& path,
                        const std::optional<FileIdentity>& identity) {
    auto opened = openDirectory(parentFD, name.c_str());
    if (auto* reason = std::get_if<RemovalReason>(&opened)) {
        // A link swapped in is a refused link; a vanished folder is ENOENT.
        report(path, std::move(*reason));
        return false;
    }
    base::UniqueFd fd = std::move(std::get<base::UniqueFd>(opened));
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0) {
        report(path, reasonForErrno(errno));
        return false;
    }
    const FileIdentity found{st.st_dev, st.st_ino};
    if (identity && *identity != found) {
        report(path, RemovalReason::changedSinceVerification());
        return false;
    }
    if (auto problem = volumeProblem(fd.get(), st.st_dev, anchorVolume_)) {
        report(path, std::move(*problem));
        return false;
    }
    std::vector<Entry> entries;
    if (!list(fd.get(), entries, path)) {
        return false;
    }
    stack_.push_back(Level{name, path, std::move(fd), found, std::move(entries)});
    releaseOuterDescriptors();
    return true;
}

// Reads the whole folder before anything in it is deleted: deleting while
// reading could make readdir skip or repeat entries.
bool TreeRemoval::list(int fd, std::vector<Entry>& entries, const std::string& path) {
    // The stream gets its own descriptor, close-on-exec like every other.
    base::UniqueFd duplicate(sys::duplicate(fd));
    if (!duplicate) {
        report(path, reasonForErrno(errno));
        return false;
    }
    DIR* dir = ::fdopendir(duplicate.get());
    if (dir == nullptr) {
        report(path, reasonForErrno(errno));
        return false;
    }
    (void)duplicate.release();  // the stream owns it now and closedir closes it
    int error = 0;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir);
        if (entry == nullptr) {
            error = errno;
            break;
        }
        const std::string_view entryName(entry->d_name);
        if (entryName != "." && entryName != "..") {
            entries.push_back({std::string(entryName), entry->d_type});
        }
    }
    (void)::closedir(dir);
    if (error != 0) {
        report(path, reasonForErrno(error));
        return false;
    }
    return true;
}

void TreeRemoval::removeEntry(Level& level, const Entry& entry) {
    const std::string path = childPath(level.path, entry.name);
    if (filter_ == nullptr && unlinkKnownNonDirectory(level, entry, path)) {
        return;
    }
    const char* name = entry.name.c_str();
    struct stat st {};
    if (sys::statAt(level.fd.get(), name, st) != 0) {
        if (errno != ENOENT) {  // gone already: someone else removed it
            report(path, reasonForErrno(errno));
            level.failed = true;
        }
        return;
    }
    if (keptByFilter(level, entry, path, st)) {
        return;
    }
    if (S_ISDIR(st.st_mode)) {
        const int depth = static_cast<int>(stack_.size());
        if (depth >= kTreeDepthLimit) {
            report(path, RemovalReason::tooDeep());
            level.failed = true;
        } else if (!enter(level.fd.get(), entry.name, path, std::nullopt)) {
            level.failed = true;  // enter() pushed nothing, so `level` is still valid
        }
        return;
    }
    // Files, links, sockets, pipes and devices are unlinked, never opened.
    if (sys::unlinkAt(level.fd.get(), name) != 0 && errno != ENOENT) {
        report(path, reasonForErrno(errno));
        level.failed = true;
    }
}

// Whether the filter, if any, keeps the entry; one it keeps is reported and
// keeps its folder.
bool TreeRemoval::keptByFilter(Level& level,
                               const Entry& entry,
                               const std::string& path,
                               const struct stat& st) {
    if (filter_ == nullptr) {
        return false;
    }
    const std::string& top = stack_.front().path;
    const std::string relative = path.substr(std::min(path.size(), top.size() + 1));
    if (filter_->mayRemove(relative, level.fd.get(), entry.name, st)) {
        return false;
    }
    report(path, filter_->reasonToKeep());
    level.failed = true;
    return true;
}

// Most entries are files whose type the listing already gave: they go with
// one unlink and no status call, which keeps a large tree close to the cost of
// `rm -rf`. An unlink without AT_REMOVEDIR never follows a link and never
// removes a folder, so a stale type is harmless: an entry that became a folder
// answers EISDIR and is looked at again by the careful path. Returns false
// when the entry still needs that path.
bool TreeRemoval::unlinkKnownNonDirectory(Level& level,
                                          const Entry& entry,
                                          const std::string& path) {
    if (entry.type == DT_DIR || entry.type == DT_UNKNOWN) {
        return false;
    }
    if (sys::unlinkAt(level.fd.get(), entry.name.c_str()) == 0 || errno == ENOENT) {
        return true;
    }
    if (errno == EISDIR) {
        return false;
    }
    report(path, reasonForErrno(errno));
    level.failed = true;
    return true;
}

// The top folder is empty (or kept because of a failure below): remove it
// from its parent, or tell the parent that it must stay too.
void TreeRemoval::leave() {
    const int parentFD = reachParent();
    if (parentFD < 0) {
        return;  // the levels that could not be reached were reported and given up
    }
    Level& done = stack_.back();
    bool kept = done.failed;
    if (!kept && sys::unlinkAt(parentFD, done.name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
        report(done.path, reasonForErrno(errno));
        kept = true;
    }
    stack_.pop_back();
    firstHeld_ = std::min(firstHeld_, stack_.size());
    if (kept && !stack_.empty()) {
        stack_.back().failed = true;  // a folder that stays keeps its parent too
    }
}

// The descriptor of the folder that holds the top level, or -1 when it cannot
// be reached any more (reported, and the unreachable levels given up).
int TreeRemoval::reachParent() {
    if (stack_.size() == 1) {
        return parentFD_;
    }
    const std::size_t parentIndex = stack_.size() - 2;
    if (!stack_[parentIndex].fd && !reopenThroughDotDot(stack_.back(), stack_[parentIndex]) &&
        !reopenFromAbove(parentIndex)) {
        return -1;
    }
    return stack_[parentIndex].fd.get();
}

// The cheap way back up, when the budget closed the parent's descriptor: "..",
// trusted only when it leads back to the very folder that was listed. Reports
// nothing: a way that fails is followed by the careful one.
bool TreeRemoval::reopenThroughDotDot(const Level& done, Level& parent) {
    base::UniqueFd reopened(sys::openFolderAt(done.fd.get(), ".."));
    struct stat st {};
    if (!reopened || ::fstat(reopened.get(), &st) != 0 ||
        FileIdentity{st.st_dev, st.st_ino} != parent.identity) {
        return false;
    }
    parent.fd = std::move(reopened);
    firstHeld_ = stack_.size() - 2;
    return true;
}

// The careful way to a level whose descriptor was closed: down again from the
// nearest open folder above it (at worst the item's parent), by name, refusing
// links, each folder checked to be the object that was listed. When a level
// on the way cannot be reached, that failure is reported at its path, which
// names everything it still holds, and it and every level below it are given
// up; the folder above keeps it and goes on with its other entries.
bool TreeRemoval::reopenFromAbove(std::size_t index) {
    int from = parentFD_;
    base::UniqueFd opened;
    for (std::size_t i = 0; i <= index; ++i) {
        Level& level = stack_[i];
        if (level.fd) {
            from = level.fd.get();
            opened.reset();
            continue;
        }
        auto next = openDirectory(from, level.name.c_str());
        if (auto* reason = std::get_if<RemovalReason>(&next)) {
            giveUpFrom(i, std::move(*reason));
            return false;
        }
        base::UniqueFd fd = std::move(std::get<base::UniqueFd>(next));
        struct stat st {};
        if (::fstat(fd.get(), &st) != 0) {
            giveUpFrom(i, reasonForErrno(errno));
            return false;
        }
        if (FileIdentity{st.st_dev, st.st_ino} != level.identity) {
            giveUpFrom(i, RemovalReason::changedSinceVerification());
            return false;
        }
        opened = std::move(fd);
        from = opened.get();
    }
    stack_[index].fd = std::move(opened);
    firstHeld_ = index;
    return true;
}

void TreeRemoval::giveUpFrom(std::size_t index, RemovalReason reason) {
    report(stack_[index].path, std::move(reason));
    stack_.erase(stack_.begin() + static_cast<std::ptrdiff_t>(index), stack_.end());
    firstHeld_ = std::min(firstHeld_, stack_.size());
    if (!stack_.empty()) {
        stack_.back().failed = true;
    }
}

void TreeRemoval::releaseOuterDescriptors() {
    while (stack_.size() - firstHeld_ > kHeldDescriptors) {
        stack_[firstHeld_].fd.reset();
        ++firstHeld_;
    }
}

}  // namespace

void removeTree(int parentFD,
                const std::string& name,
                const std::string& path,
                const VolumeIdentity& anchorVolume,
                const std::optional<FileIdentity>& identity,
                std::vector<RemovalFailure>& failures,
                const RemovalFilter* filter) {
    TreeRemoval(parentFD, anchorVolume, failures, filter).run(name, path, identity);
}

}  // namespace removal
