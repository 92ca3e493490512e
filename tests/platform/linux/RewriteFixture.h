#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "PreferencesFixture.h"
#include "platform/linux/PreferencesTemporary.h"

namespace testsupport {

// Whether `name` is a temporary of the preferences file `fileName`:
// "." + fileName + ".uninstall-tavio-" + eight characters out of 0-9 and a-z.
// Written out here rather than taken from the code, because a later run must
// recognise what an earlier version left: changing the pattern has to be a
// decision, not a side effect.
inline bool isTemporaryOf(const std::string& name, const std::string& fileName) {
    const std::string prefix = "." + fileName + ".uninstall-tavio-";
    const auto isRandom = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z'); };
    return name.size() == prefix.size() + 8 && name.starts_with(prefix) &&
           std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()), name.end(),
                       isRandom);
}

// Sets both times of `path` itself (a link is not followed) to `age` before
// now; a negative age sets them in the future.
inline void setAge(const std::string& path, std::chrono::seconds age) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const timespec then{now.tv_sec - static_cast<time_t>(age.count()), now.tv_nsec};
    const timespec times[2] = {then, then};
    if (::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
        throw std::runtime_error("utimensat " + path);
    }
}

// Older than the bound after which a leftover is removed, and younger.
inline constexpr std::chrono::seconds kStale =
    platform::kLeftoverTemporaryAge + std::chrono::minutes(1);
inline constexpr std::chrono::seconds kRecent =
    platform::kLeftoverTemporaryAge - std::chrono::minutes(1);

// The preferences fixture, with the names of both hosts' files and of their
// folders.
class PreferencesRewriteTest : public FilePreferencesAccessTest {
  protected:
    const std::string byHost = preferences + "/ByHost";
    const std::string anyHostName = std::string(kDomain) + ".plist";
    const std::string currentHostName = std::string(kDomain) + "." + kHostID + ".plist";

    // The path of a temporary of `fileName` in `folder` with `random` for its
    // eight random characters.
    static std::string temporary(const std::string& folder,
                                 const std::string& fileName,
                                 const std::string& random) {
        return folder + "/." + fileName + ".uninstall-tavio-" + random;
    }

    // The names in `folder` other than `keep`.
    static std::vector<std::string> namesBut(const std::string& folder,
                                             const std::vector<std::string>& keep) {
        std::vector<std::string> names = listNames(folder);
        std::erase_if(names, [&](const std::string& name) {
            return std::find(keep.begin(), keep.end(), name) != keep.end();
        });
        return names;
    }
};

}  // namespace testsupport
