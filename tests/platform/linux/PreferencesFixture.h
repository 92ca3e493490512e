#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "Plists.h"
#include "TempDir.h"
#include "platform/linux/FilePreferencesAccess.h"
#include "target/PropertyList.h"

namespace testsupport {

using platform::FilePreferencesAccess;
using platform::PreferencesHost;

constexpr const char* kDomain = "io.tavio.Tavio";
constexpr const char* kHostID = "0123456789abcdef0123456789abcdef";

inline std::string plistBytes(const std::vector<std::string>& keys, footprint::PlistFormat format) {
    footprint::Plist root(plist_new_dict());
    for (const std::string& key : keys) {
        plist_dict_set_item(root.get(), key.c_str(), plist_new_string(("value of " + key).c_str()));
    }
    return footprint::serialize(root, format);
}

inline struct stat statOf(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        throw std::runtime_error("lstat " + path);
    }
    return st;
}

inline bool sameFileAndTime(const struct stat& a, const struct stat& b) {
    return a.st_ino == b.st_ino && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec && a.st_size == b.st_size;
}

// A home folder with an empty Library/Preferences/ByHost, and the store of
// that home with both hosts and a fixed host id.
class FilePreferencesAccessTest : public ::testing::Test {
  protected:
    testsupport::TempDir temp;
    const std::string home = temp / "home";
    const std::string preferences = home + "/Library/Preferences";
    const std::string anyHostFile = preferences + "/" + kDomain + ".plist";
    const std::string currentHostFile =
        preferences + "/ByHost/" + kDomain + "." + kHostID + ".plist";
    FilePreferencesAccess store{home,
                                {PreferencesHost::anyHost, PreferencesHost::currentHost},
                                kHostID,
                                ::getuid()};

    void SetUp() override { testsupport::makeDirectories(preferences + "/ByHost"); }

    void plant(const std::string& path,
               const std::vector<std::string>& keys,
               footprint::PlistFormat format = footprint::PlistFormat::xml) {
        writeFile(path, plistBytes(keys, format));
    }

    static std::vector<std::string> keysIn(const std::string& path) {
        auto list = target::PropertyList::parse(readFile(path));
        return list ? list->keys() : std::vector<std::string>{"<not a property list>"};
    }
};

}  // namespace testsupport
