#include "platform/linux/PreferencesTemporary.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>
#include <vector>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"

namespace platform {
namespace {

using base::UniqueFd;

constexpr std::string_view kMarker = ".uninstall-tavio-";
constexpr std::string_view kRandomCharacters = "0123456789abcdefghijklmnopqrstuvwxyz";
constexpr std::size_t kRandomLength = 8;

std::string temporaryPrefix(const std::string& fileName) {
    return "." + fileName + std::string(kMarker);
}

bool isRandomCharacter(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z');
}

bool isTemporaryName(const std::string& name, const std::string& fileName) {
    const std::string prefix = temporaryPrefix(fileName);
    return name.size() == prefix.size() + kRandomLength && name.starts_with(prefix) &&
           std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()), name.end(),
                       isRandomCharacter);
}

// A new temporary name of `fileName`; nothing when no random bytes can be had.
std::optional<std::string> freshTemporaryName(const std::string& fileName) {
    unsigned char random[kRandomLength] = {};
    if (sys::getrandom(random, sizeof random, 0) != sizeof random) {
        return std::nullopt;
    }
    std::string name = temporaryPrefix(fileName);
    for (const unsigned char byte : random) {
        name += kRandomCharacters[byte % kRandomCharacters.size()];
    }
    return name;
}

// Calls `giveName` (true when it took the name, false with errno set when
// not) with fresh temporary names of `fileName` until one is free. The name
// taken; nothing when a name could not be taken for another reason than
// being in use, or every one tried was.
template <typename GiveName>
std::optional<std::string> underFreshName(const std::string& fileName, GiveName giveName) {
    for (int attempt = 0; attempt < 8; ++attempt) {
        auto name = freshTemporaryName(fileName);
        if (!name) {
            return std::nullopt;
        }
        if (giveName(name->c_str())) {
            return name;
        }
        if (errno != EEXIST) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

// Everything the new file needs before it may take the old one's place: all
// its bytes, the old one's permissions, and both on the disk.
bool fillAndFlush(int fd, const std::string& bytes, mode_t mode) {
    return sys::writeAll(fd, bytes) && ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0;
}

// Takes the lock that tells a later run that this temporary is being
// written. On a new file no one else can hold it but a run that took it for
// a leftover in the instant since the name was made, and which is removing it.
bool lockForWriting(int fd) {
    return sys::retryingInterrupted([&] { return ::flock(fd, LOCK_EX | LOCK_NB); }) == 0;
}

// Where files without a name cannot be made: a file made under its temporary
// name from the start, removed again when it cannot be completed.
std::optional<Temporary> writeNamedTemporary(int folder,
                                             const std::string& fileName,
                                             const std::string& bytes,
                                             mode_t mode) {
    UniqueFd fd;
    auto name = underFreshName(fileName, [&](const char* candidate) {
        fd.reset(sys::createFileAt(folder, candidate, 0600));
        return fd.valid();
    });
    if (!name) {
        return std::nullopt;
    }
    if (!lockForWriting(fd.get()) || !fillAndFlush(fd.get(), bytes, mode)) {
        (void)sys::unlinkAt(folder, name->c_str());
        return std::nullopt;
    }
    return Temporary{std::move(*name), std::move(fd)};
}

// A regular file of `owner`'s with no second name: what a rewrite of ours
// leaves, and nothing that anyone else's data could hang on.
bool isOwnLeftover(const struct stat& status, uid_t owner) {
    return S_ISREG(status.st_mode) && status.st_uid == owner && status.st_nlink == 1;
}

// Last changed more than kLeftoverTemporaryAge ago. A time in the future (the
// clock was set back) is recent.
bool isStale(const struct stat& status) {
    using std::chrono::system_clock;
    const auto changed = std::chrono::seconds(status.st_mtim.tv_sec) +
                         std::chrono::nanoseconds(status.st_mtim.tv_nsec);
    const auto now = system_clock::now().time_since_epoch();
    return changed + kLeftoverTemporaryAge < now;
}

// The leftover temporaries of `fileName` in `folder`, each with what it was
// when looked at.
std::vector<std::pair<std::string, struct stat>> leftoversIn(int folder,
                                                             const std::string& fileName,
                                                             uid_t owner) {
    std::vector<std::pair<std::string, struct stat>> found;
    const auto names = sys::namesIn(folder);
    if (!names) {
        return found;
    }
    for (const std::string& name : *names) {
        struct stat status {};
        if (isTemporaryName(name, fileName) && sys::statAt(folder, name.c_str(), status) == 0 &&
            isOwnLeftover(status, owner)) {
            found.emplace_back(name, status);
        }
    }
    return found;
}

}  // namespace

std::optional<Temporary> writeTemporary(int folder,
                                        const std::string& fileName,
                                        const std::string& bytes,
                                        mode_t mode) {
    UniqueFd fd(sys::createUnnamedFileIn(folder, 0600));
    if (!fd) {
        const bool refused = errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL;
        return refused ? writeNamedTemporary(folder, fileName, bytes, mode) : std::nullopt;
    }
    // Until it is named, the file vanishes with its descriptor, whether this
    // fails or the process dies; it is locked before it has a name.
    if (!lockForWriting(fd.get()) || !fillAndFlush(fd.get(), bytes, mode)) {
        return std::nullopt;
    }
    auto name = underFreshName(fileName, [&](const char* candidate) {
        return sys::linkDescriptorAt(fd.get(), folder, candidate) == 0;
    });
    if (!name) {
        return std::nullopt;
    }
    return Temporary{std::move(*name), std::move(fd)};
}

bool holdsLeftoverTemporary(int folder, const std::string& fileName, uid_t owner) {
    return !leftoversIn(folder, fileName, owner).empty();
}

// Removes what it can and goes on. A removal that a crash undoes is made
// again by the next run, so the folder is not flushed for it. A leftover
// that no rewrite holds is removed while its lock is held here, so that it
// is still no one's when it goes.
void removeLeftoverTemporaries(int folder, const std::string& fileName, uid_t owner) {
    for (const auto& [name, status] : leftoversIn(folder, fileName, owner)) {
        const UniqueFd fd(sys::openFileAt(folder, name.c_str()));
        struct stat now {};
        const bool unheld = fd && ::fstat(fd.get(), &now) == 0 && now.st_dev == status.st_dev &&
                            now.st_ino == status.st_ino && lockForWriting(fd.get());
        if (unheld || isStale(status)) {
            (void)sys::unlinkAt(folder, name.c_str());
        }
    }
}

}  // namespace platform
