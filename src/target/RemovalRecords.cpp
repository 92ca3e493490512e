#include "target/RemovalRecords.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <ctime>

#include "base/SystemCalls.h"
#include "target/Paths.h"

namespace target {
namespace {

constexpr std::string_view kPrefix = "removal-";
constexpr std::string_view kSuffix = ".plist";
constexpr std::size_t kRandomDigits = 16;
constexpr std::size_t kMaximumRecordSize = 64 * 1024 * 1024;

bool isRecordName(const std::string& name) {
    return name.size() == kPrefix.size() + kRandomDigits + kSuffix.size() &&
           name.starts_with(kPrefix) && name.ends_with(kSuffix) &&
           std::all_of(name.begin() + kPrefix.size(), name.end() - kSuffix.size(),
                       [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

std::optional<std::string> newRecordName() {
    unsigned char random[kRandomDigits / 2] = {};
    if (sys::getrandom(random, sizeof random, 0) != sizeof random) {
        return std::nullopt;
    }
    static constexpr char kHex[] = "0123456789abcdef";
    std::string name(kPrefix);
    for (const unsigned char byte : random) {
        name += kHex[byte >> 4];
        name += kHex[byte & 15];
    }
    return name.append(kSuffix);
}

// A folder of the user's that no one else may write to or read.
bool isPrivateFolder(const struct stat& status, uid_t userID) {
    return S_ISDIR(status.st_mode) && status.st_uid == userID && (status.st_mode & 077) == 0;
}

base::UniqueFd openHome(const std::string& home) {
    return base::UniqueFd(sys::open(home.c_str(), sys::kFolderFlags & ~O_NOFOLLOW));
}

// The folder `name` in `parentFD` when it is a real folder of the user's.
base::UniqueFd openOwnedFolder(int parentFD, const std::string& name, uid_t userID) {
    base::UniqueFd folder(sys::openFolderAt(parentFD, name.c_str()));
    struct stat status {};
    if (folder && (::fstat(folder.get(), &status) != 0 || status.st_uid != userID)) {
        errno = EPERM;
        return {};
    }
    return folder;
}

}  // namespace

std::vector<std::string> RemovalRecords::componentsBelowHome() const {
    std::vector<std::string> components;
    std::string_view rest(folder);
    rest.remove_prefix(std::min(rest.size(), homeDirectory == "/" ? 1 : homeDirectory.size() + 1));
    while (!rest.empty()) {
        const std::size_t slash = std::min(rest.find('/'), rest.size());
        components.emplace_back(rest.substr(0, slash));
        rest.remove_prefix(std::min(rest.size(), slash + 1));
    }
    return components;
}

// The records' folder, reached from the home folder without following a
// link and only through folders of the user's; the folder itself must be
// private. Nothing when it is missing or not to be trusted.
base::UniqueFd RemovalRecords::openFolder() const {
    base::UniqueFd current = openHome(homeDirectory);
    for (const std::string& name : componentsBelowHome()) {
        current = current ? openOwnedFolder(current.get(), name, userID) : base::UniqueFd();
    }
    struct stat status {};
    if (!current || ::fstat(current.get(), &status) != 0 || !isPrivateFolder(status, userID)) {
        return {};
    }
    return current;
}

std::optional<RemovalRecords::Stored> RemovalRecords::read(int folderFD,
                                                           const std::string& name) const {
    base::UniqueFd file(sys::openFileAt(folderFD, name.c_str()));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_uid != userID || (status.st_mode & 077) != 0 || status.st_nlink != 1 ||
        static_cast<std::size_t>(status.st_size) > kMaximumRecordSize) {
        return std::nullopt;
    }
    std::string bytes;
    if (!sys::readAll(file.get(), bytes, kMaximumRecordSize)) {
        return std::nullopt;
    }
    auto record = RemovalRecord::parse(bytes);
    if (!record) {
        return std::nullopt;
    }
    return Stored{name, std::move(*record), status.st_dev, status.st_ino};
}

std::vector<RemovalRecords::Stored> RemovalRecords::all() const {
    std::vector<Stored> records;
    const base::UniqueFd folderFD = openFolder();
    const auto names = folderFD ? sys::namesIn(folderFD.get()) : std::nullopt;
    for (const std::string& name : names.value_or(std::vector<std::string>{})) {
        if (auto stored = isRecordName(name) ? read(folderFD.get(), name) : std::nullopt) {
            records.push_back(std::move(*stored));
        }
    }
    return records;
}

std::vector<RemovalRecords::Stored> RemovalRecords::of(const std::string& path) const {
    std::vector<Stored> records = all();
    std::erase_if(records, [&](const Stored& stored) { return stored.record.path() != path; });
    return records;
}

// The records' folder, made where it is missing (see the header for why each
// new folder's parent is synced). `created` gets the folders made.
std::variant<base::UniqueFd, int> RemovalRecords::makeFolder(
    std::vector<std::string>& created) const {
    base::UniqueFd current = openHome(homeDirectory);
    std::string relative;
    for (const std::string& name : componentsBelowHome()) {
        if (!current) {
            return errno;
        }
        relative = relative.empty() ? name : relative + "/" + name;
        base::UniqueFd next = openOwnedFolder(current.get(), name, userID);
        if (!next && errno == ENOENT) {
            if (::mkdirat(current.get(), name.c_str(), 0700) != 0 ||
                syncToDisk(current.get()) != 0) {
                return errno;
            }
            created.insert(created.begin(), relative);
            next = openOwnedFolder(current.get(), name, userID);
        }
        current = std::move(next);
    }
    struct stat status {};
    if (!current || ::fstat(current.get(), &status) != 0) {
        return errno;
    }
    return isPrivateFolder(status, userID) ? std::variant<base::UniqueFd, int>(std::move(current))
                                           : std::variant<base::UniqueFd, int>(EPERM);
}

std::variant<std::string, int> RemovalRecords::write(RemovalRecord record) const {
    auto made = makeFolder(record.createdFolders);
    int error = 0;
    std::optional<std::string> name;
    if (const int* failed = std::get_if<int>(&made)) {
        error = *failed;
    } else {
        const base::UniqueFd& folderFD = std::get<base::UniqueFd>(made);
        sweepTemporaries(folderFD.get());
        name = newRecordName();
        const auto bytes = record.serialized();
        error = !name ? errno : !bytes ? ENOMEM : writeDurably(folderFD.get(), *name, *bytes);
    }
    if (error == 0) {
        return *name;
    }
    // Nothing was written down: no folder made for it may stay either.
    for (const std::string& folder : record.createdFolders) {
        (void)removeEmptyFolder(folder);
    }
    return error;
}

void RemovalRecords::drop(const Stored& stored) const {
    const base::UniqueFd folderFD = openFolder();
    struct stat status {};
    if (!folderFD || sys::statAt(folderFD.get(), stored.fileName.c_str(), status) != 0 ||
        status.st_dev != stored.device || status.st_ino != stored.inode) {
        return;  // not the file that was read: not ours to remove
    }
    (void)sys::unlinkAt(folderFD.get(), stored.fileName.c_str());
    if (all().empty()) {
        removeEmptyFolders(stored.record.createdFolders);
    }
}

// The records' own folder goes when it is empty, and so do the folders on the
// way that were made for it; one that holds anything stays.
void RemovalRecords::removeEmptyFolders(const std::vector<std::string>& created) const {
    std::vector<std::string> components = componentsBelowHome();
    std::string own;
    for (const std::string& name : components) {
        own = own.empty() ? name : own + "/" + name;
    }
    if (!removeEmptyFolder(own)) {
        return;
    }
    for (const std::string& folder : created) {
        if (folder != own && !removeEmptyFolder(folder)) {
            return;
        }
    }
}

// Removes the folder at `relative` below the home folder when it is empty,
// reaching it through folders of the user's without following a link.
bool RemovalRecords::removeEmptyFolder(const std::string& relative) const {
    base::UniqueFd parent = openHome(homeDirectory);
    std::string_view rest(relative);
    for (std::size_t slash = rest.find('/'); parent && slash != std::string_view::npos;
         slash = rest.find('/')) {
        parent = openOwnedFolder(parent.get(), std::string(rest.substr(0, slash)), userID);
        rest.remove_prefix(slash + 1);
    }
    return parent && !rest.empty() &&
           sys::unlinkAt(parent.get(), std::string(rest).c_str(), AT_REMOVEDIR) == 0;
}

// Temporary names of a write that was cut off, in the records' own folder:
// ours by pattern and place. A minute's age keeps a write in progress safe.
void RemovalRecords::sweepTemporaries(int folderFD) {
    const auto names = sys::namesIn(folderFD);
    for (const std::string& name : names.value_or(std::vector<std::string>{})) {
        struct stat status {};
        if (name.starts_with(kTemporaryPrefix) && name.ends_with(".tmp") &&
            sys::statAt(folderFD, name.c_str(), status) == 0 && S_ISREG(status.st_mode) &&
            status.st_mtime + 60 < ::time(nullptr)) {
            (void)sys::unlinkAt(folderFD, name.c_str());
        }
    }
}

}  // namespace target
