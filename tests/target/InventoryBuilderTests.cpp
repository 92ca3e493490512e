#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ChildProcess.h"
#include "FakeAdapters.h"
#include "TempDir.h"
#include "removal/RemovalReason.h"
#include "target/InventoryBuilder.h"

using target::Inventory;
using target::InventoryBuilder;
using target::InventoryItem;
using target::ItemCategory;
using target::ItemState;
using target::ItemTarget;
using namespace testsupport;

namespace {

constexpr const char* kId = "io.tavio.Tavio";

// A temporary home with its own two application folders: a stand-in for
// /Applications outside the home, and the home's own Applications.
class InventoryBuilderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        makeDirectories(home());
        makeDirectories(systemApps());
        context_ = target::UninstallContext::make(::getuid(), {home(), "alice"}, kId);
        context_.applicationDirectories = {systemApps(), home() + "/Applications"};
    }

    std::string home() const { return temp_ / "alice"; }
    std::string systemApps() const { return temp_ / "Applications"; }
    std::string library() const { return home() + "/Library"; }

    Inventory build(const std::string& appName = "Tavio.app") const {
        return InventoryBuilder{context_, verifier_, preferences_, appName}.build();
    }

    // A folder that is enough for the builder: verification is faked here.
    void makeBundle(const std::string& directory, const std::string& name = "Tavio.app") {
        makeDirectories(directory + "/" + name + "/Contents/MacOS");
    }

    TempDir temp_;
    target::UninstallContext context_;
    std::shared_ptr<FakeVerifier> verifier_ = std::make_shared<FakeVerifier>();
    std::shared_ptr<FakePreferences> preferences_ = std::make_shared<FakePreferences>();
};

std::vector<std::string> ids(const Inventory& inventory) {
    std::vector<std::string> result;
    for (const InventoryItem& item : inventory.items) {
        result.push_back(item.id);
    }
    return result;
}

TEST_F(InventoryBuilderTest, HomeWithoutATraceGivesTenAbsentItemsInOrder) {
    const Inventory inventory = build();
    const std::string lib = library();
    EXPECT_EQ(ids(inventory),
              (std::vector<std::string>{
                  std::string("prefs:") + kId,
                  "tree:" + lib + "/Preferences/" + kId + ".plist",
                  "tree:" + lib + "/Application Support/" + kId + "/History/Torrents",
                  "tree:" + lib + "/Application Support/" + kId + "/History",
                  "tree:" + lib + "/Application Support/" + kId,
                  "tree:" + lib + "/Caches/" + kId,
                  "tree:" + lib + "/HTTPStorages/" + kId,
                  "tree:" + lib + "/Logs/" + kId,
                  "tree:" + lib + "/Saved Application State/" + kId + ".savedState",
                  "app:" + systemApps() + "/Tavio.app",
              }));
    for (const InventoryItem& item : inventory.items) {
        EXPECT_EQ(item.state, ItemState::absent()) << item.id;
    }
    EXPECT_EQ(inventory.userName, "alice");
    EXPECT_TRUE(inventory.removableItems().empty());
}

TEST_F(InventoryBuilderTest, ItemsHaveTheirCategoriesTargetsAndDisplayPaths) {
    const Inventory inventory = build();
    const std::vector<ItemCategory> categories{
        ItemCategory::settings, ItemCategory::settings,     ItemCategory::torrentCopies,
        ItemCategory::history,  ItemCategory::history,      ItemCategory::cache,
        ItemCategory::cache,    ItemCategory::logsAndState, ItemCategory::logsAndState,
        ItemCategory::app};
    ASSERT_EQ(inventory.items.size(), categories.size());
    for (std::size_t i = 0; i < categories.size(); ++i) {
        EXPECT_EQ(inventory.items[i].category, categories[i]) << i;
    }
    const InventoryItem& prefs = inventory.items[0];
    EXPECT_EQ(prefs.target, ItemTarget::preferences(kId));
    EXPECT_EQ(prefs.path, kId);
    EXPECT_EQ(prefs.displayPath, std::string(kId) + " preferences");
    const InventoryItem& torrents = inventory.items[2];
    EXPECT_EQ(
        torrents.target,
        ItemTarget::tree(library(), {"Application Support", kId, "History", "Torrents"}, true));
    EXPECT_EQ(torrents.displayPath,
              std::string("~/Library/Application Support/") + kId + "/History/Torrents");
    const InventoryItem& logs = inventory.items[7];
    EXPECT_EQ(logs.path, library() + "/Logs/" + kId);
    EXPECT_EQ(logs.displayPath, std::string("~/Library/Logs/") + kId);
    const InventoryItem& placeholder = inventory.items[9];
    EXPECT_EQ(placeholder.target, ItemTarget::appBundle(systemApps(), "Tavio.app", std::nullopt));
    // Outside the home folder the path is shown as it is.
    EXPECT_EQ(placeholder.displayPath, systemApps() + "/Tavio.app");
}

TEST_F(InventoryBuilderTest, PreferencesFileMakesBothSettingsRowsPresent) {
    makeDirectories(library() + "/Preferences");
    writeFile(library() + "/Preferences/" + kId + ".plist", "<plist/>");
    const Inventory inventory = build();
    EXPECT_EQ(inventory.items[0].state, ItemState::present());
    EXPECT_EQ(inventory.items[1].state, ItemState::present());
}

TEST_F(InventoryBuilderTest, DomainWithValuesButNoFileIsPresentWhileTheFileRowIsAbsent) {
    preferences_->setValues(kId, true);
    const Inventory inventory = build();
    EXPECT_EQ(inventory.items[0].state, ItemState::present());
    EXPECT_EQ(inventory.items[1].state, ItemState::absent());
}

TEST_F(InventoryBuilderTest, PreferencesServiceIsNotAskedWhenTheFileIsThere) {
    makeDirectories(library() + "/Preferences");
    writeFile(library() + "/Preferences/" + kId + ".plist", "<plist/>");
    (void)build();
    EXPECT_TRUE(preferences_->calls().empty());
}

TEST_F(InventoryBuilderTest, PreferencesRowIsNeverSkippedEvenWhenItsFolderIsALink) {
    makeDirectories(library());
    makeDirectories(temp_ / "elsewhere");
    makeLink(temp_ / "elsewhere", library() + "/Preferences");
    const Inventory inventory = build();
    EXPECT_EQ(inventory.items[0].state, ItemState::absent());
    EXPECT_EQ(inventory.items[1].state,
              ItemState::skipped("A symbolic link in the path was refused"));
}

TEST_F(InventoryBuilderTest, NestedSupportFoldersAreEachPresent) {
    makeDirectories(library() + "/Application Support/" + kId + "/History/Torrents");
    const Inventory inventory = build();
    EXPECT_EQ(inventory.items[2].state, ItemState::present());
    EXPECT_EQ(inventory.items[3].state, ItemState::present());
    EXPECT_EQ(inventory.items[4].state, ItemState::present());
    EXPECT_EQ(inventory.removableItems().size(), 3u);
}

TEST_F(InventoryBuilderTest, CachesFolderThatIsALinkSkipsOnlyTheCacheRow) {
    makeDirectories(library() + "/HTTPStorages/" + kId);
    makeDirectories(temp_ / "real-caches/" + kId);
    makeLink(temp_ / "real-caches", library() + "/Caches");
    const Inventory inventory = build();
    EXPECT_EQ(inventory.items[5].state,
              ItemState::skipped(removal::RemovalReason::symbolicLinkInPath().explanation()));
    EXPECT_EQ(inventory.items[6].state, ItemState::present());
    EXPECT_EQ(inventory.items[7].state, ItemState::absent());
}

TEST_F(InventoryBuilderTest, LibraryOwnedBySomeoneElseSkipsEveryTreeRow) {
    makeDirectories(library() + "/Logs/" + kId);
    if (::lchown(library().c_str(), 54321, static_cast<gid_t>(-1)) != 0) {
        GTEST_SKIP() << "cannot change owners here (not root)";
    }
    const Inventory inventory = build();
    for (std::size_t i = 1; i <= 8; ++i) {
        EXPECT_EQ(inventory.items[i].state, ItemState::skipped("Not owned by this user")) << i;
    }
}

TEST_F(InventoryBuilderTest, RefusedCopyAndVerifiedCopyGiveTwoAppItemsAndNoPlaceholder) {
    makeBundle(systemApps());
    makeBundle(home() + "/Applications");
    verifier_->refuse(systemApps() + "/Tavio.app",
                      target::AppVerificationProblem::identifierMismatch("org.example.Other"));
    const Inventory inventory = build();
    const auto apps = inventory.itemsIn(ItemCategory::app);
    ASSERT_EQ(apps.size(), 2u);
    EXPECT_EQ(apps[0].id, "app:" + systemApps() + "/Tavio.app");
    EXPECT_EQ(apps[0].state, ItemState::skipped("Skipped: not a verified Tavio app"));
    EXPECT_EQ(apps[0].target, ItemTarget::appBundle(systemApps(), "Tavio.app", std::nullopt));
    EXPECT_EQ(apps[1].id, "app:" + home() + "/Applications/Tavio.app");
    EXPECT_EQ(apps[1].state, ItemState::present());
    EXPECT_EQ(apps[1].displayPath, "~/Applications/Tavio.app");
    struct stat st {};
    ASSERT_EQ(::stat((home() + "/Applications/Tavio.app").c_str(), &st), 0);
    EXPECT_EQ(apps[1].target, ItemTarget::appBundle(home() + "/Applications", "Tavio.app",
                                                    removal::FileIdentity{st.st_dev, st.st_ino}));
    EXPECT_EQ(verifier_->calls(),
              (std::vector<std::string>{systemApps() + "/Tavio.app " + kId,
                                        home() + "/Applications/Tavio.app " + kId}));
}

TEST_F(InventoryBuilderTest, TwoVerifiedCopiesComeInTheOrderOfTheApplicationFolders) {
    makeBundle(systemApps());
    makeBundle(home() + "/Applications");
    const auto apps = build().itemsIn(ItemCategory::app);
    ASSERT_EQ(apps.size(), 2u);
    EXPECT_EQ(apps[0].path, systemApps() + "/Tavio.app");
    EXPECT_EQ(apps[1].path, home() + "/Applications/Tavio.app");
}

// One folder named twice (a home of "/" names /Applications as its own) is
// one copy: one row, so that the run meets each item once.
TEST_F(InventoryBuilderTest, TheSameApplicationFolderNamedTwiceGivesOneRow) {
    makeBundle(systemApps());
    context_.applicationDirectories = {systemApps(), systemApps()};
    const auto apps = build().itemsIn(ItemCategory::app);
    ASSERT_EQ(apps.size(), 1u);
    EXPECT_EQ(apps[0].path, systemApps() + "/Tavio.app");
}

// The system's folder mounted again as the home's own: the copy is reached
// through two paths, and is still one copy.
TEST_F(InventoryBuilderTest, TheSameFolderMountedAtBothPlacesGivesOneRow) {
    makeBundle(systemApps());
    makeDirectories(home() + "/Applications");
    const auto answer = runInChild([&]() -> std::string {
        if (const std::string why = enterPrivateMountNamespace(); !why.empty()) {
            return why;
        }
        if (::mount(systemApps().c_str(), (home() + "/Applications").c_str(), nullptr, MS_BIND,
                    nullptr) != 0) {
            return "cannot bind the folder";
        }
        std::string paths;
        for (const InventoryItem& item : build().itemsIn(ItemCategory::app)) {
            paths += item.path + (item.state == ItemState::present() ? " present;" : " other;");
        }
        return paths;
    });
    EXPECT_EQ(answer.value_or("child died"), systemApps() + "/Tavio.app present;");
}

TEST_F(InventoryBuilderTest, BundleThatIsALinkToAVerifiedFolderIsNotAnAppBundle) {
    makeBundle(temp_.path(), "Real.app");
    makeLink(temp_ / "Real.app", systemApps() + "/Tavio.app");
    const auto apps = build().itemsIn(ItemCategory::app);
    ASSERT_EQ(apps.size(), 1u);
    EXPECT_EQ(apps[0].state, ItemState::skipped("Not an app bundle"));
}

TEST_F(InventoryBuilderTest, ApplicationFolderThatIsALinkIsSkippedWithItsReason) {
    ::rmdir(systemApps().c_str());
    makeDirectories(temp_ / "other-apps");
    makeBundle(temp_ / "other-apps");
    makeLink(temp_ / "other-apps", systemApps());
    const auto apps = build().itemsIn(ItemCategory::app);
    ASSERT_EQ(apps.size(), 1u);
    EXPECT_EQ(apps[0].state, ItemState::skipped("A symbolic link in the path was refused"));
    EXPECT_TRUE(verifier_->calls().empty());
}

TEST_F(InventoryBuilderTest, AnotherAppNameIsLookedForInBothApplicationFolders) {
    makeBundle(home() + "/Applications", "Tavio Beta.app");
    const Inventory inventory = build("Tavio Beta.app");
    const auto apps = inventory.itemsIn(ItemCategory::app);
    ASSERT_EQ(apps.size(), 1u);
    EXPECT_EQ(apps[0].path, home() + "/Applications/Tavio Beta.app");
    EXPECT_EQ(apps[0].state, ItemState::present());
    ::rmdir((home() + "/Applications/Tavio Beta.app/Contents/MacOS").c_str());
    ::rmdir((home() + "/Applications/Tavio Beta.app/Contents").c_str());
    ::rmdir((home() + "/Applications/Tavio Beta.app").c_str());
    const auto placeholder = build("Tavio Beta.app").itemsIn(ItemCategory::app);
    ASSERT_EQ(placeholder.size(), 1u);
    EXPECT_EQ(placeholder[0].path, systemApps() + "/Tavio Beta.app");
    EXPECT_EQ(placeholder[0].state, ItemState::absent());
}

TEST_F(InventoryBuilderTest, WithoutApplicationFoldersThereIsNoPlaceholder) {
    context_.applicationDirectories.clear();
    EXPECT_TRUE(build().itemsIn(ItemCategory::app).empty());
    EXPECT_EQ(build().items.size(), 9u);
}

TEST_F(InventoryBuilderTest, ScanningChangesNothing) {
    makeDirectories(library() + "/Caches/" + kId + "/deep");
    writeFile(library() + "/Caches/" + kId + "/deep/file", "x");
    makeBundle(systemApps());
    const std::size_t before = countEntries(temp_.path());
    (void)build();
    EXPECT_EQ(countEntries(temp_.path()), before);
    EXPECT_EQ(readFile(library() + "/Caches/" + kId + "/deep/file"), "x");
}

TEST_F(InventoryBuilderTest, TheSameLocationKeepsItsIdFromOneScanToTheNext) {
    const Inventory first = build();
    makeDirectories(library() + "/Logs/" + kId);
    const Inventory second = build();
    EXPECT_EQ(ids(first), ids(second));
    EXPECT_NE(first, second);
}

}  // namespace
