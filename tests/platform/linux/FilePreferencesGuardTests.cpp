// The store's folders are reached like every removable item: no link is
// followed from Library down, and every folder must be the user's. (A
// rewrite that is cut short: PreferencesRewriteTests.cpp.)
#include "PreferencesFixture.h"

namespace {

using platform::FilePreferencesAccess;
using platform::PreferencesHost;
using testsupport::FilePreferencesAccessTest;
using testsupport::kDomain;
using testsupport::kHostID;
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

}  // namespace
