#include "platform/linux/FilePreferencesAccess.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "base/SystemCalls.h"
#include "base/Trap.h"
#include "base/UniqueFd.h"
#include "platform/linux/PreferencesTemporary.h"
#include "target/PropertyList.h"

namespace platform {
namespace {

using base::UniqueFd;
using target::PropertyList;

bool isPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

void checkDomain(const std::string& domain) {
    if (!isPlainName(domain)) {
        base::trap("a preference domain must be usable as a single file name");
    }
}

// Opens `name` inside `parent` only when it is a real folder (never a link)
// owned by `owner`.
UniqueFd openOwnedFolder(int parent, const char* name, uid_t owner) {
    UniqueFd folder(sys::openFolderAt(parent, name));
    struct stat st {};
    if (!folder || ::fstat(folder.get(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != owner) {
        return UniqueFd();
    }
    return folder;
}

// An open preferences file: the folder it lies in, its name there, what it
// was when opened, and its content.
struct StoredFile {
    UniqueFd folder;
    std::string name;
    struct stat status {};
    PropertyList list;
};

bool isSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether `name` in `folder` is still the very file that was read: a file
// replaced by someone else meanwhile is left to them.
bool stillThere(const StoredFile& file) {
    struct stat now {};
    return sys::statAt(file.folder.get(), file.name.c_str(), now) == 0 &&
           isSameFile(now, file.status);
}

// Puts the new content in place of the old file: written in full to a
// temporary beside it, flushed, then renamed over it; the old file is never
// opened for writing, so until the rename it stays whole. The temporary is
// removed on every failure.
void replaceAtomically(const StoredFile& file, const std::string& bytes) {
    const int folder = file.folder.get();
    const auto temporary = writeTemporary(folder, file.name, bytes, file.status.st_mode & 07777);
    if (!temporary) {
        return;
    }
    const char* name = temporary->name.c_str();
    if (!stillThere(file) || sys::renameAt(folder, name, folder, file.name.c_str()) != 0) {
        (void)sys::unlinkAt(folder, name);
        return;
    }
    // Makes the temporary's name and the rename durable.
    (void)::fsync(folder);
}

// The folder of one host's files, reached from the home folder one level at
// a time. Links above the home folder are followed as anywhere else; from
// Library down, nothing is.
UniqueFd openPreferencesFolder(const std::string& home, uid_t owner, bool byHost) {
    UniqueFd homeFD(sys::open(home.c_str(), sys::kFolderFlags & ~O_NOFOLLOW));
    UniqueFd folder = homeFD ? openOwnedFolder(homeFD.get(), "Library", owner) : UniqueFd();
    folder = folder ? openOwnedFolder(folder.get(), "Preferences", owner) : UniqueFd();
    if (byHost && folder) {
        folder = openOwnedFolder(folder.get(), "ByHost", owner);
    }
    return folder;
}

// Reads `name` in `folder`; nothing when it is missing, not a regular file,
// unreadable or not a dictionary.
std::optional<StoredFile> readStored(UniqueFd folder, std::string name) {
    // Non-blocking, so that a FIFO in the file's place cannot hold us up.
    const UniqueFd fd(sys::openFileAt(folder.get(), name.c_str()));
    struct stat status {};
    if (!fd || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    auto read = PropertyList::readFrom(fd.get());
    auto* list = std::get_if<PropertyList>(&read);
    if (list == nullptr || !list->isDictionary()) {
        return std::nullopt;
    }
    return StoredFile{std::move(folder), std::move(name), status, std::move(*list)};
}

// The folder of the domain's file on one host, and the file's name there.
struct HostFolder {
    UniqueFd folder;
    std::string fileName;
};

std::optional<HostFolder> openHost(const FilePreferencesAccess& store,
                                   const std::string& domain,
                                   PreferencesHost host) {
    checkDomain(domain);
    const bool byHost = host == PreferencesHost::currentHost;
    if (byHost && !isPlainName(store.hostID)) {
        return std::nullopt;
    }
    UniqueFd folder = openPreferencesFolder(store.homeDirectory, store.userID, byHost);
    if (!folder) {
        return std::nullopt;
    }
    return HostFolder{std::move(folder), domain + (byHost ? "." + store.hostID : "") + ".plist"};
}

// The domain's file of one host, when it can be read and is a dictionary.
std::optional<StoredFile> readHost(const FilePreferencesAccess& store,
                                   const std::string& domain,
                                   PreferencesHost host) {
    auto place = openHost(store, domain, host);
    return place ? readStored(std::move(place->folder), std::move(place->fileName)) : std::nullopt;
}

// Like readHost(), but first removes the old leftovers of the host's file
// that a killed rewrite left: every change to a host starts with them.
std::optional<StoredFile> readHostAfterLeftovers(const FilePreferencesAccess& store,
                                                 const std::string& domain,
                                                 PreferencesHost host) {
    auto place = openHost(store, domain, host);
    if (!place) {
        return std::nullopt;
    }
    removeLeftoverTemporaries(place->folder.get(), place->fileName, store.userID);
    return readStored(std::move(place->folder), std::move(place->fileName));
}

// Whether one host holds the domain's keys, or a leftover temporary of its
// file: a leftover holds the domain's settings too, so until it is removed
// they are not gone.
bool hostHasValues(const FilePreferencesAccess& store,
                   const std::string& domain,
                   PreferencesHost host) {
    auto place = openHost(store, domain, host);
    if (!place) {
        return false;
    }
    if (holdsLeftoverTemporary(place->folder.get(), place->fileName, store.userID)) {
        return true;
    }
    const auto file = readStored(std::move(place->folder), std::move(place->fileName));
    return file && !file->list.keys().empty();
}

// Removes the keys that are there of `keys` from `file`: rewrites it when
// others are left, removes it when none is.
void removeFrom(StoredFile& file, const std::vector<std::string>& keys) {
    if (file.list.removeKeys(keys) == 0) {
        return;
    }
    if (!file.list.keys().empty()) {
        if (const auto bytes = file.list.serialized()) {
            replaceAtomically(file, *bytes);
        }
        return;
    }
    if (stillThere(file) && sys::unlinkAt(file.folder.get(), file.name.c_str()) == 0) {
        (void)::fsync(file.folder.get());
    }
}

}  // namespace

FilePreferencesAccess::FilePreferencesAccess(std::string homeDirectory)
    : FilePreferencesAccess(std::move(homeDirectory),
                            {PreferencesHost::anyHost, PreferencesHost::currentHost},
                            machineID(),
                            ::getuid()) {}

std::string FilePreferencesAccess::machineID() {
    UniqueFd fd(sys::open("/etc/machine-id", sys::kFileReadFlags & ~O_NOFOLLOW));
    if (!fd) {
        return {};
    }
    char buffer[128] = {};
    const ssize_t n = sys::read(fd.get(), buffer, sizeof buffer - 1);
    std::string id(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
    while (!id.empty() && (id.back() == '\n' || id.back() == ' ' || id.back() == '\t')) {
        id.pop_back();
    }
    return id;
}

std::vector<std::string> FilePreferencesAccess::keys(const std::string& domain,
                                                     PreferencesHost host) const {
    const auto file = readHost(*this, domain, host);
    return file ? file->list.keys() : std::vector<std::string>{};
}

void FilePreferencesAccess::removeKeys(const std::string& domain,
                                       PreferencesHost host,
                                       const std::vector<std::string>& keys) const {
    if (auto file = readHostAfterLeftovers(*this, domain, host)) {
        removeFrom(*file, keys);
    }
}

bool FilePreferencesAccess::hasValues(const std::string& domain) const {
    checkDomain(domain);
    for (const PreferencesHost host : hosts) {
        if (hostHasValues(*this, domain, host)) {
            return true;
        }
    }
    return false;
}

void FilePreferencesAccess::removeAll(const std::string& domain) const {
    checkDomain(domain);
    for (const PreferencesHost host : hosts) {
        if (auto file = readHostAfterLeftovers(*this, domain, host)) {
            removeFrom(*file, file->list.keys());
        }
    }
}

}  // namespace platform
