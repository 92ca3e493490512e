// The store's folders are reached like every removable item: no link is
// followed from Library down, and every folder must be the user's. And a
// rewrite that is cut short leaves the old file whole.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include "ChildProcess.h"
#include "PreferencesFixture.h"

namespace {

using platform::FilePreferencesAccess;
using platform::PreferencesHost;
using testsupport::FilePreferencesAccessTest;
using testsupport::kDomain;
using testsupport::kHostID;
using testsupport::readFile;
using testsupport::sameFileAndTime;
using testsupport::statOf;

class PreferencesLinkTest : public FilePreferencesAccessTest {
  protected:
    // A real folder elsewhere, holding the product's files for both hosts,
    // which the link under test points to.
    const std::string elsewhere = temp / "elsewhere";

    void SetUp() override {
        FilePreferencesAccessTest::SetUp();
        testsupport::makeDirectories(elsewhere + "/Library/Preferences/ByHost");
    }

    std::string elsewhereFile(const std::string& relative) const {
        return elsewhere + "/Library/Preferences/" + relative;
    }

    // Plants the product's files in the folder the link leads to, then checks
    // that the store neither sees them nor changes them.
    void expectRefused() {
        const std::string anyHost = elsewhereFile(std::string(kDomain) + ".plist");
        const std::string currentHost =
            elsewhereFile("ByHost/" + std::string(kDomain) + "." + kHostID + ".plist");
        plant(anyHost, {"Volume"});
        plant(currentHost, {"DisplayScale"});
        const struct stat anyBefore = statOf(anyHost);
        const struct stat currentBefore = statOf(currentHost);

        EXPECT_FALSE(store.hasValues(kDomain));
        store.removeAll(kDomain);

        EXPECT_TRUE(sameFileAndTime(statOf(anyHost), anyBefore));
        EXPECT_TRUE(sameFileAndTime(statOf(currentHost), currentBefore));
    }

    void replaceWithLink(const std::string& path, const std::string& target) {
        testsupport::removeAll(path);
        testsupport::makeLink(target, path);
    }
};

TEST_F(PreferencesLinkTest, LibraryThatIsALinkIsRefused) {
    replaceWithLink(home + "/Library", elsewhere + "/Library");
    expectRefused();
}

TEST_F(PreferencesLinkTest, PreferencesFolderThatIsALinkIsRefused) {
    replaceWithLink(preferences, elsewhere + "/Library/Preferences");
    expectRefused();
}

TEST_F(PreferencesLinkTest, ByHostFolderThatIsALinkIsRefused) {
    replaceWithLink(preferences + "/ByHost", elsewhere + "/Library/Preferences/ByHost");
    const std::string linked =
        elsewhereFile("ByHost/" + std::string(kDomain) + "." + kHostID + ".plist");
    plant(linked, {"DisplayScale"});
    const struct stat before = statOf(linked);
    plant(anyHostFile, {"Volume"});

    EXPECT_TRUE(store.keys(kDomain, PreferencesHost::currentHost).empty());
    store.removeAll(kDomain);

    EXPECT_TRUE(sameFileAndTime(statOf(linked), before));
    // Only the linked folder is refused: the any-host file is handled.
    EXPECT_FALSE(testsupport::exists(anyHostFile));
    EXPECT_FALSE(store.hasValues(kDomain));
}

TEST_F(PreferencesLinkTest, PreferencesFileThatIsALinkIsRefused) {
    const std::string anyHost = elsewhereFile(std::string(kDomain) + ".plist");
    const std::string currentHost =
        elsewhereFile("ByHost/" + std::string(kDomain) + "." + kHostID + ".plist");
    plant(anyHost, {"Volume"});
    plant(currentHost, {"DisplayScale"});
    testsupport::makeLink(anyHost, anyHostFile);
    testsupport::makeLink(currentHost, currentHostFile);
    const struct stat anyBefore = statOf(anyHost);
    const struct stat currentBefore = statOf(currentHost);

    EXPECT_FALSE(store.hasValues(kDomain));
    store.removeAll(kDomain);

    EXPECT_TRUE(sameFileAndTime(statOf(anyHost), anyBefore));
    EXPECT_TRUE(sameFileAndTime(statOf(currentHost), currentBefore));
    EXPECT_TRUE(testsupport::isLink(anyHostFile));
    EXPECT_TRUE(testsupport::isLink(currentHostFile));
}

TEST_F(FilePreferencesAccessTest, FoldersOwnedBySomeoneElseAreRefused) {
    plant(anyHostFile, {"Volume"});
    plant(currentHostFile, {"DisplayScale"});
    const struct stat anyBefore = statOf(anyHostFile);
    const struct stat currentBefore = statOf(currentHostFile);
    // The same folders, seen by a store for another user.
    const FilePreferencesAccess otherUser(
        home, {PreferencesHost::anyHost, PreferencesHost::currentHost}, kHostID, ::getuid() + 1);

    EXPECT_FALSE(otherUser.hasValues(kDomain));
    otherUser.removeAll(kDomain);

    EXPECT_TRUE(sameFileAndTime(statOf(anyHostFile), anyBefore));
    EXPECT_TRUE(sameFileAndTime(statOf(currentHostFile), currentBefore));
}

// Installs a filter that kills this process the moment it tries to rename
// anything: the crash lands exactly between writing the new file and putting
// it in place.
bool dieOnRename() {
    std::vector<sock_filter> program{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const long call : {
#ifdef __NR_rename
             static_cast<long>(__NR_rename),
#endif
#ifdef __NR_renameat
             static_cast<long>(__NR_renameat),
#endif
             static_cast<long>(__NR_renameat2)}) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<__u32>(call), 0, 1));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    const rlimit noCore{0, 0};
    return ::setrlimit(RLIMIT_CORE, &noCore) == 0 &&
           ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST_F(FilePreferencesAccessTest, CrashBetweenWriteAndRenameLeavesTheOldFileWhole) {
    plant(anyHostFile, {"Volume", "SubtitleLanguage", "ShowPlaylist"});
    const std::string oldBytes = readFile(anyHostFile);
    const struct stat before = statOf(anyHostFile);

    const auto answer = testsupport::runInChild([&]() -> std::string {
        if (!dieOnRename()) {
            return "no filter";
        }
        store.removeKeys(kDomain, PreferencesHost::anyHost, {"SubtitleLanguage"});
        return "survived";
    });

    ASSERT_FALSE(answer.has_value()) << *answer;  // killed at the rename
    EXPECT_EQ(readFile(anyHostFile), oldBytes);
    EXPECT_TRUE(sameFileAndTime(statOf(anyHostFile), before));
    // The new content had been written in full beside it.
    const auto names = testsupport::listNames(preferences);
    ASSERT_EQ(names.size(), 3u) << testing::PrintToString(names);
    const std::string leftover = preferences + "/" + names[2];
    ASSERT_TRUE(names[2].starts_with(std::string(kDomain) + ".plist.")) << names[2];
    EXPECT_EQ(keysIn(leftover), (std::vector<std::string>{"Volume", "ShowPlaylist"}));

    // The leftover is never taken for the preferences, and does not get in
    // the way of the next rewrite.
    EXPECT_EQ(store.keys(kDomain, PreferencesHost::anyHost),
              (std::vector<std::string>{"Volume", "SubtitleLanguage", "ShowPlaylist"}));
    store.removeKeys(kDomain, PreferencesHost::anyHost, {"Volume"});
    EXPECT_EQ(keysIn(anyHostFile), (std::vector<std::string>{"SubtitleLanguage", "ShowPlaylist"}));
    store.removeAll(kDomain);
    EXPECT_FALSE(store.hasValues(kDomain));
    EXPECT_TRUE(testsupport::exists(leftover));
}

}  // namespace
