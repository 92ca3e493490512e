#include "target/RemovalRecords.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <sstream>

#include "base/SystemCalls.h"
#include "removal/TreeRemoval.h"
#include "removal/Volume.h"
#include "target/Paths.h"

namespace target {
namespace {

constexpr std::string_view kPrefix = "removal-";
constexpr std::string_view kSuffix = ".plist";
constexpr std::size_t kRandomDigits = 16;
constexpr std::size_t kMaximumRecordSize = std::size_t{64} * 1024 * 1024;

bool isRecordName(const std::string& name) {
    return name.size() == kPrefix.size() + kRandomDigits + kSuffix.size() &&
           name.starts_with(kPrefix) && name.ends_with(kSuffix) &&
           std::all_of(name.begin() + kPrefix.size(), name.end() - kSuffix.size(),
                       [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

// `prefix`, 16 random hexadecimal digits and `suffix`.
std::optional<std::string> randomName(std::string_view prefix, std::string_view suffix) {
    unsigned char random[kRandomDigits / 2] = {};
    if (sys::getrandom(random, sizeof random, 0) != sizeof random) {
        return std::nullopt;
    }
    static constexpr char kHex[] = "0123456789abcdef";
    std::string name(prefix);
    for (const unsigned char byte : random) {
        name += kHex[byte >> 4];
        name += kHex[byte & 15];
    }
    return name.append(suffix);
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

std::string RemovalRecords::relativeUpTo(std::size_t last) const {
    const std::vector<std::string> components = componentsBelowHome();
    std::string relative;
    for (std::size_t i = 0; i <= last && i < components.size(); ++i) {
        relative += (relative.empty() ? "" : "/") + components[i];
    }
    return relative;
}

// The records' folder, with whatever is missing on the way made as one chain
// (see the header). A chain that someone else put in place first is simply
// used, if it can be trusted.
std::variant<base::UniqueFd, int> RemovalRecords::makeFolder() const {
    sweepChains();
    const std::vector<std::string> components = componentsBelowHome();
    for (int attempt = 0; attempt < 2; ++attempt) {
        base::UniqueFd current = openHome(homeDirectory);
        std::size_t reached = 0;
        for (; current && reached < components.size(); ++reached) {
            base::UniqueFd next = openOwnedFolder(current.get(), components[reached], userID);
            if (!next && errno == ENOENT) {
                const int error = makeChain(current.get(), reached);
                if (error != 0 && error != EEXIST) {
                    return error;
                }
                break;  // look again from the top
            }
            current = std::move(next);
        }
        if (!current) {
            return errno;
        }
        struct stat status {};
        if (reached == components.size()) {
            return ::fstat(current.get(), &status) == 0 && isPrivateFolder(status, userID)
                       ? std::variant<base::UniqueFd, int>(std::move(current))
                       : std::variant<base::UniqueFd, int>(EPERM);
        }
    }
    return EEXIST;
}

// Builds the folders from components[first] down under a temporary name in
// `parentFD`, with the list of what it made, and renames it into place.
int RemovalRecords::makeChain(int parentFD, std::size_t first) const {
    const std::vector<std::string> components = componentsBelowHome();
    const auto temporary = randomName(kChainPrefix, ".tmp");
    if (!temporary || ::mkdirat(parentFD, temporary->c_str(), 0700) != 0) {
        return temporary ? errno : EIO;
    }
    base::UniqueFd top(sys::openFolderAt(parentFD, temporary->c_str()));
    base::UniqueFd current = top ? base::UniqueFd(sys::duplicate(top.get())) : base::UniqueFd();
    int error = current ? 0 : errno;
    for (std::size_t i = first + 1; error == 0 && i < components.size(); ++i) {
        const char* name = components[i].c_str();
        error =
            ::mkdirat(current.get(), name, 0700) == 0 && syncToDisk(current.get()) == 0 ? 0 : errno;
        current =
            error == 0 ? base::UniqueFd(sys::openFolderAt(current.get(), name)) : base::UniqueFd();
        error = error != 0 ? error : (current ? 0 : errno);
    }
    std::string made;
    for (std::size_t i = components.size() - 1; i-- > first;) {
        made += relativeUpTo(i) + "\n";
    }
    if (error == 0 && !made.empty()) {
        error = writeDurably(current.get(), std::string(kMadeFolders), made);
    }
    error = error != 0 ? error : (syncToDisk(current.get()) == 0 ? 0 : errno);
    error = error != 0 ? error : renameExclusive(parentFD, *temporary, components[first]);
    error = error != 0 ? error : (syncToDisk(parentFD) == 0 ? 0 : errno);
    if (error != 0) {
        removeChain(parentFD, *temporary);
    }
    return error;
}

std::variant<std::string, int> RemovalRecords::write(const RemovalRecord& record) const {
    auto made = makeFolder();
    if (const int* failed = std::get_if<int>(&made)) {
        return *failed;
    }
    const base::UniqueFd& folderFD = std::get<base::UniqueFd>(made);
    sweepTemporaries(folderFD.get());
    const auto name = randomName(kPrefix, kSuffix);
    const auto bytes = record.serialized();
    const int error = !name ? EIO : !bytes ? ENOMEM : writeDurably(folderFD.get(), *name, *bytes);
    if (error == 0) {
        return *name;
    }
    tidy();  // nothing was written down: no folder made for it may stay
    return error;
}

void RemovalRecords::drop(const Stored& stored) const {
    const base::UniqueFd folderFD = openFolder();
    struct stat status {};
    if (folderFD && sys::statAt(folderFD.get(), stored.fileName.c_str(), status) == 0 &&
        status.st_dev == stored.device && status.st_ino == stored.inode) {
        (void)sys::unlinkAt(folderFD.get(), stored.fileName.c_str());
    }
    tidy();
}

void RemovalRecords::tidy() const {
    sweepChains();
    const base::UniqueFd folderFD = openFolder();
    if (!folderFD) {
        return;
    }
    sweepTemporaries(folderFD.get());
    const auto names = sys::namesIn(folderFD.get());
    if (!names || std::any_of(names->begin(), names->end(),
                              [](const std::string& name) { return name != kMadeFolders; })) {
        return;  // a record, or something that is not ours to judge, is still there
    }
    const std::size_t depth = componentsBelowHome().size();
    if (names->empty()) {
        (void)removeEmptyFolder(relativeUpTo(depth - 1));  // nothing on the way was ours
        return;
    }
    // The folder, with its list, moves to the home folder under a temporary
    // name first: if the run is cut off before the folders on the way are
    // gone, the next run still finds the list there.
    const auto retired = randomName(kChainPrefix, ".tmp");
    const base::UniqueFd home = openHome(homeDirectory);
    const base::UniqueFd parent =
        depth > 1 ? openFolderAt(relativeUpTo(depth - 2)) : base::UniqueFd();
    if (!retired || !home || depth < 2 || !parent ||
        renameAcross(parent.get(), componentsBelowHome().back(), home.get(), *retired) != 0) {
        return;
    }
    retireChain(home.get(), *retired);
}

// A records' folder moved aside by tidy(): the folders its list names go when
// empty, deepest first and only those on the way to it, and then the folder.
void RemovalRecords::retireChain(int homeFD, const std::string& name) const {
    const std::size_t depth = componentsBelowHome().size();
    std::string text;
    {
        const base::UniqueFd chain(sys::openFolderAt(homeFD, name.c_str()));
        const base::UniqueFd list(
            chain ? sys::openFileAt(chain.get(), std::string(kMadeFolders).c_str()) : -1);
        if (list && !sys::readAll(list.get(), text, std::size_t{64} * 1024)) {
            text.clear();
        }
    }
    std::istringstream lines(text);
    std::vector<std::string> made;
    for (std::string line; std::getline(lines, line);) {
        made.push_back(line);
    }
    for (std::size_t i = depth - 1; i-- > 0;) {
        if (std::find(made.begin(), made.end(), relativeUpTo(i)) == made.end() ||
            !removeEmptyFolder(relativeUpTo(i))) {
            break;
        }
    }
    removeChain(homeFD, name);
}

// The folder at `relative` below the home folder, through folders of the
// user's and no link.
base::UniqueFd RemovalRecords::openFolderAt(const std::string& relative) const {
    base::UniqueFd current = openHome(homeDirectory);
    std::string_view rest(relative);
    while (current && !rest.empty()) {
        const std::size_t slash = std::min(rest.find('/'), rest.size());
        current = openOwnedFolder(current.get(), std::string(rest.substr(0, slash)), userID);
        rest.remove_prefix(std::min(rest.size(), slash + 1));
    }
    return current;
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
    // One already gone counts as removed: a run cut off half-way through
    // leaves the rest to the next.
    return parent && !rest.empty() &&
           (sys::unlinkAt(parent.get(), std::string(rest).c_str(), AT_REMOVEDIR) == 0 ||
            errno == ENOENT);
}

// The whole temporary chain `name` in `parentFD`, through the guarded
// removal: it follows no link and stays on its volume.
void RemovalRecords::removeChain(int parentFD, const std::string& name) const {
    struct stat parent {};
    struct stat status {};
    if (::fstat(parentFD, &parent) != 0 || sys::statAt(parentFD, name.c_str(), status) != 0 ||
        !S_ISDIR(status.st_mode) || status.st_uid != userID) {
        return;
    }
    const auto volume = removal::volumeOf(parentFD, parent.st_dev);
    if (const auto* identity = std::get_if<removal::VolumeIdentity>(&volume)) {
        std::vector<removal::RemovalFailure> failures;
        removal::removeTree(parentFD, name, name, *identity,
                            removal::FileIdentity{status.st_dev, status.st_ino}, failures);
    }
}

// Chains that a crash left half built, on the way to the records' folder.
void RemovalRecords::sweepChains() const {
    base::UniqueFd current = openHome(homeDirectory);
    const std::vector<std::string> components = componentsBelowHome();
    for (std::size_t i = 0; current && i < components.size(); ++i) {
        const auto names = sys::namesIn(current.get());
        for (const std::string& name : names.value_or(std::vector<std::string>{})) {
            // Only a folder of the user's can be a chain of ours, and only its
            // list can say which folders on the way the program made.
            struct stat chain {};
            if (!name.starts_with(kChainPrefix) || !name.ends_with(".tmp") ||
                sys::statAt(current.get(), name.c_str(), chain) != 0 || !S_ISDIR(chain.st_mode) ||
                chain.st_uid != userID) {
                continue;
            }
            struct stat list {};
            const std::string listPath = name + "/" + std::string(kMadeFolders);
            if (i == 0 && sys::statAt(current.get(), listPath.c_str(), list) == 0) {
                retireChain(current.get(), name);
            } else {
                removeChain(current.get(), name);
            }
        }
        current = openOwnedFolder(current.get(), components[i], userID);
    }
}

// Temporary names of a record write that was cut off, in the records' own
// folder: ours by pattern, place and owner.
void RemovalRecords::sweepTemporaries(int folderFD) const {
    const auto names = sys::namesIn(folderFD);
    for (const std::string& name : names.value_or(std::vector<std::string>{})) {
        struct stat status {};
        if (name.starts_with(kTemporaryPrefix) && name.ends_with(".tmp") &&
            sys::statAt(folderFD, name.c_str(), status) == 0 && S_ISREG(status.st_mode) &&
            status.st_uid == userID) {
            (void)sys::unlinkAt(folderFD, name.c_str());
        }
    }
}

}  // namespace target
