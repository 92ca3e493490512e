#include "target/RemovalRecords.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>

#include "base/SystemCalls.h"
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
    const std::string made = madeList(first);
    if (error == 0 && !made.empty()) {
        error = writeDurably(current.get(), std::string(kMadeFolders), made);
    }
    error = error != 0 ? error : (syncToDisk(current.get()) == 0 ? 0 : errno);
    error = error != 0 ? error : renameExclusive(parentFD, *temporary, components[first]);
    error = error != 0 ? error : (syncToDisk(parentFD) == 0 ? 0 : errno);
    if (error != 0) {
        removeChain(parentFD, *temporary, first);
    }
    return error;
}

// What makeChain() lists in a chain that stands for components[first]: the
// folders it makes on the way to the records' folder, deepest first.
std::string RemovalRecords::madeList(std::size_t first) const {
    std::string made;
    for (std::size_t i = componentsBelowHome().size() - 1; i-- > first;) {
        made += relativeUpTo(i) + "\n";
    }
    return made;
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

// A records' folder moved aside by tidy(): it holds the list of the folders
// made for it and nothing else. Those folders go when empty, deepest first,
// and then the folder. A list that says anything but what some chain of ours
// lists is not ours, and neither is the folder: nothing is touched.
void RemovalRecords::retireChain(int homeFD, const std::string& name) const {
    const std::size_t depth = componentsBelowHome().size();
    const base::UniqueFd chain = openOwnedFolder(homeFD, name, userID);
    const auto text = chain ? readOwnList(chain.get(), std::string(kMadeFolders)) : std::nullopt;
    std::optional<std::size_t> first;
    for (std::size_t level = 0; text && level + 1 < depth && !first; ++level) {
        first = madeList(level) == *text ? std::optional(level) : std::nullopt;
    }
    const auto kept = first ? removeMadeFolders(*first) : std::nullopt;
    if (kept && removeListIfOurs(chain.get(), *text)) {
        (void)sys::unlinkAt(homeFD, name.c_str(), AT_REMOVEDIR);
    }
}

// Removes the folders made on the way to the records' folder, from
// components[first] down, deepest first. A folder that holds something now
// is no longer the program's to remove: it stays, with those above it. The
// list may go once every folder removed is seen to be gone (without it, no
// later run would know them to be ours): then the number of folders that
// stay; nothing while one could not be removed or looked at.
std::optional<std::size_t> RemovalRecords::removeMadeFolders(std::size_t first) const {
    std::size_t i = componentsBelowHome().size() - 1;
    while (i-- > first) {
        if (removeEmptyFolder(relativeUpTo(i))) {
            continue;
        }
        const base::UniqueFd folder = openFolderAt(relativeUpTo(i));
        const auto names = folder ? sys::namesIn(folder.get()) : std::nullopt;
        if (!names || names->empty()) {
            return std::nullopt;
        }
        const std::size_t stay = i + 1 - first;
        if (i + 1 == componentsBelowHome().size() - 1) {
            return stay;  // none was removed
        }
        return openFolderAt(relativeUpTo(i + 1)) || errno != ENOENT ? std::nullopt
                                                                    : std::optional(stay);
    }
    return openFolderAt(relativeUpTo(first)) || errno != ENOENT ? std::nullopt
                                                                : std::optional<std::size_t>(0);
}

// The list of folders made, `name` in `folderFD`: a regular file of the
// user's with one link, read whole. Nothing when it is anything else.
std::optional<std::string> RemovalRecords::readOwnList(int folderFD,
                                                       const std::string& name) const {
    const base::UniqueFd list(sys::openFileAt(folderFD, name.c_str()));
    struct stat status {};
    std::string text;
    if (!list || ::fstat(list.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_uid != userID || status.st_nlink != 1 ||
        !sys::readAll(list.get(), text, std::size_t{64} * 1024)) {
        return std::nullopt;
    }
    return text;
}

// Removes the list of folders made from the last folder of a chain of ours
// when the folder holds nothing else and the list says `expected`; or the
// temporary it was being written under (where files cannot be made without
// a name), cut off anywhere, when it holds the start of `expected`. Whether
// the folder is empty now.
bool RemovalRecords::removeListIfOurs(int folderFD, const std::string& expected) const {
    const auto names = sys::namesIn(folderFD);
    if (!names || names->empty()) {
        return names.has_value();
    }
    // The temporary name of a record write, as writeDurably() makes it from
    // the list's name.
    const std::string listName(kMadeFolders);
    const std::string temporary =
        std::string(kTemporaryPrefix) + listName.substr(listName.find('-') + 1) + ".tmp";
    const std::string& name = names->front();
    const auto text = names->size() == 1 && (name == listName || name == temporary)
                          ? readOwnList(folderFD, name)
                          : std::nullopt;
    const bool ours = text && (name == listName ? *text == expected : expected.starts_with(*text));
    return ours && sys::unlinkAt(folderFD, name.c_str()) == 0;
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
    // One already gone, or whose parent is, counts as removed: a run cut off
    // half-way through leaves the rest to the next.
    if (!parent) {
        return errno == ENOENT;
    }
    return !rest.empty() &&
           (sys::unlinkAt(parent.get(), std::string(rest).c_str(), AT_REMOVEDIR) == 0 ||
            errno == ENOENT);
}

// A chain that stands for components[level], cut off while it was made:
// it holds at most the folders on the way, one inside the other, and in the
// last of them the list of folders made. It goes only when it holds exactly
// that and nothing else, one part at a time, each folder with rmdir, which
// never removes content: whatever else is found under such a name stays,
// and every folder of it with it.
void RemovalRecords::removeChain(int parentFD, const std::string& name, std::size_t level) const {
    const std::vector<std::string> components = componentsBelowHome();
    std::vector<std::string> names{name};
    std::vector<base::UniqueFd> folders;
    folders.push_back(openOwnedFolder(parentFD, name, userID));
    for (std::size_t j = level + 1; folders.back() && j < components.size(); ++j) {
        names.push_back(components[j]);
        folders.push_back(openOwnedFolder(folders.back().get(), components[j], userID));
    }
    if (!folders.back()) {
        folders.pop_back();
        names.pop_back();
    }
    // Nothing goes unless the whole of it is exactly that shape.
    for (std::size_t k = 0; k + 1 < folders.size(); ++k) {
        if (sys::namesIn(folders[k].get()) != std::vector<std::string>{names[k + 1]}) {
            return;
        }
    }
    const bool whole = folders.size() == components.size() - level;
    const auto inLast = folders.empty() ? std::nullopt : sys::namesIn(folders.back().get());
    if (!inLast ||
        (whole ? !removeListIfOurs(folders.back().get(), madeList(level)) : !inLast->empty())) {
        return;
    }
    for (std::size_t k = folders.size(); k-- > 0;) {
        const int parent = k == 0 ? parentFD : folders[k - 1].get();
        if (sys::unlinkAt(parent, names[k].c_str(), AT_REMOVEDIR) != 0) {
            return;
        }
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
                removeChain(current.get(), name, i);
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
