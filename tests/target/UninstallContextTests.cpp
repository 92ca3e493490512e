#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "ChildProcess.h"
#include "PlistText.h"
#include "ProgramOutput.h"
#include "TempDir.h"
#include "target/UninstallContext.h"

namespace {

using target::UninstallContext;
using target::UserAccount;

constexpr uid_t kUnknownUser = 54321;

// A user id with no entry in the user database, or the test is skipped.
#define REQUIRE_UNKNOWN_USER()                                                   \
    do {                                                                         \
        if (::getpwuid(kUnknownUser) != nullptr) {                               \
            GTEST_SKIP() << "user " << kUnknownUser << " exists on this system"; \
        }                                                                        \
    } while (false)

std::string describe(const UserAccount& account) {
    return account.homeDirectory + "|" + account.userName;
}

TEST(UninstallContextTest, AliceGetsHerHomeAndBothApplicationFoldersInOrder) {
    const UninstallContext context =
        UninstallContext::make(501, UserAccount{"/Users/alice", "alice"}, "io.tavio.Tavio");
    EXPECT_EQ(context.homeDirectory, "/Users/alice");
    EXPECT_EQ(context.userID, 501u);
    EXPECT_EQ(context.userName, "alice");
    EXPECT_EQ(context.bundleIdentifier, "io.tavio.Tavio");
    EXPECT_EQ(context.applicationDirectories,
              (std::vector<std::string>{"/Applications", "/Users/alice/Applications"}));
}

TEST(UninstallContextTest, AHomeWithATrailingSlashIsWrittenWithoutIt) {
    const UninstallContext context =
        UninstallContext::make(501, UserAccount{"/Users/alice//", "alice"}, "io.tavio.Tavio");
    EXPECT_EQ(context.homeDirectory, "/Users/alice");
    EXPECT_EQ(context.applicationDirectories[1], "/Users/alice/Applications");
}

// The home's own Applications folder is then the system's: it is looked in
// once, so an installed copy gives one row.
TEST(UninstallContextTest, TheRootFolderAsHomeKeepsOneSlashAndOneApplicationsFolder) {
    const UninstallContext context =
        UninstallContext::make(0, UserAccount{"/", "root"}, "io.tavio.Tavio");
    EXPECT_EQ(context.homeDirectory, "/");
    EXPECT_EQ(context.applicationDirectories, (std::vector<std::string>{"/Applications"}));
}

TEST(UninstallContextTest, AKnownUserComesFromTheDatabaseWhateverTheEnvironmentSays) {
    const auto answer = testsupport::runInChild([] {
        ::setenv("HOME", "/somewhere/else", 1);
        ::setenv("LOGNAME", "impostor", 1);
        ::setenv("USER", "impostor", 1);
        const passwd* entry = ::getpwuid(::getuid());
        if (entry == nullptr) {
            return std::string("no entry for this user");
        }
        const std::string expected = std::string(entry->pw_dir) + "|" + entry->pw_name;
        const UninstallContext context = UninstallContext::current();
        const std::string got = context.homeDirectory + "|" + context.userName;
        return got == expected ? std::string("database") : got + " instead of " + expected;
    });
    EXPECT_EQ(answer, "database");
}

TEST(UninstallContextTest, CurrentUsesTheRealUserId) {
    EXPECT_EQ(UninstallContext::current().userID, ::getuid());
}

TEST(UninstallContextTest, AnUnknownUserComesFromHomeAndLogname) {
    REQUIRE_UNKNOWN_USER();
    const auto answer = testsupport::runInChild([] {
        ::setenv("HOME", "/home/ghost/", 1);
        ::setenv("LOGNAME", "ghost", 1);
        ::setenv("USER", "other", 1);
        return describe(UninstallContext::account(kUnknownUser));
    });
    EXPECT_EQ(answer, "/home/ghost|ghost");
}

TEST(UninstallContextTest, AnUnknownUserWithoutLognameTakesUser) {
    REQUIRE_UNKNOWN_USER();
    const auto answer = testsupport::runInChild([] {
        ::setenv("HOME", "/home/ghost", 1);
        ::unsetenv("LOGNAME");
        ::setenv("USER", "spectre", 1);
        return describe(UninstallContext::account(kUnknownUser));
    });
    EXPECT_EQ(answer, "/home/ghost|spectre");
}

TEST(UninstallContextTest, AnUnknownUserWithNoEnvironmentGetsTheRootFolderAndTheNumber) {
    REQUIRE_UNKNOWN_USER();
    const auto answer = testsupport::runInChild([] {
        ::unsetenv("HOME");
        ::unsetenv("LOGNAME");
        ::unsetenv("USER");
        return describe(UninstallContext::account(kUnknownUser));
    });
    EXPECT_EQ(answer, "/|54321");
}

TEST(UninstallContextTest, AnUnknownUserWithARelativeHomeGetsTheRootFolder) {
    REQUIRE_UNKNOWN_USER();
    const auto answer = testsupport::runInChild([] {
        ::setenv("HOME", "relative/home", 1);
        ::setenv("LOGNAME", "ghost", 1);
        return describe(UninstallContext::account(kUnknownUser));
    });
    EXPECT_EQ(answer, "/|ghost");
}

TEST(UninstallContextTest, AProcessOfAnUnknownUserStillHasBothApplicationFolders) {
    REQUIRE_UNKNOWN_USER();
    const auto answer = testsupport::runInChild([] {
        ::setenv("HOME", "/home/ghost", 1);
        ::setenv("LOGNAME", "ghost", 1);
        if (::setuid(kUnknownUser) != 0) {
            return std::string("skip");
        }
        const UninstallContext context = UninstallContext::current();
        std::string out =
            std::to_string(context.userID) + "|" + context.homeDirectory + "|" + context.userName;
        for (const std::string& folder : context.applicationDirectories) {
            out += "|" + folder;
        }
        return out;
    });
    if (answer == "skip") {
        GTEST_SKIP() << "cannot change user here (not root)";
    }
    EXPECT_EQ(answer, "54321|/home/ghost|ghost|/Applications|/home/ghost/Applications");
}

TEST(UninstallContextTest, WithoutAnInfoPlistTheTargetIsTavio) {
    // The test program has no Info.plist beside it.
    EXPECT_EQ(UninstallContext::productBundleIdentifier(), "io.tavio.Tavio");
    EXPECT_EQ(UninstallContext::appName(), "Tavio.app");
    EXPECT_EQ(UninstallContext::current().bundleIdentifier, "io.tavio.Tavio");
}

TEST(UninstallContextTest, TheTargetValuesAreTheSameObjectsOnEveryCall) {
    EXPECT_EQ(&UninstallContext::productBundleIdentifier(),
              &UninstallContext::productBundleIdentifier());
    EXPECT_EQ(&UninstallContext::appName(), &UninstallContext::appName());
}

TEST(UninstallContextTest, ContextsCompareFieldByField) {
    const UserAccount alice{"/Users/alice", "alice"};
    const UninstallContext a = UninstallContext::make(501, alice, "io.tavio.Tavio");
    EXPECT_EQ(a, UninstallContext::make(501, alice, "io.tavio.Tavio"));
    EXPECT_NE(a, UninstallContext::make(502, alice, "io.tavio.Tavio"));
    EXPECT_NE(a, UninstallContext::make(501, alice, "io.tavio.Beta"));
}

// The environment is changed in a child, so the rest of the tests never see
// it.
TEST(UninstallContextTest, TheStateFolderIsTheProgramsFolderInTheHomesLocalState) {
    const auto answer = testsupport::runInChild([] {
        ::unsetenv("XDG_STATE_HOME");
        return UninstallContext::make(501, UserAccount{"/Users/alice//", "alice"}, "io.tavio.Tavio")
            .stateDirectory;
    });
    EXPECT_EQ(answer, "/Users/alice/.local/state/io.tavio.Tavio.Uninstaller");
}

TEST(UninstallContextTest, TheStateFolderFollowsTheStateHomeOnlyInsideTheHome) {
    const auto answer = testsupport::runInChild([] {
        const UserAccount alice{"/Users/alice", "alice"};
        ::setenv("XDG_STATE_HOME", "/Users/alice/.state/", 1);
        const std::string inside = UninstallContext::make(501, alice, "x").stateDirectory;
        ::setenv("XDG_STATE_HOME", "/var/state", 1);
        const std::string outside = UninstallContext::make(501, alice, "x").stateDirectory;
        ::setenv("XDG_STATE_HOME", "/Users/alice/../bob/state", 1);
        return inside + "|" + outside + "|" +
               UninstallContext::make(501, alice, "x").stateDirectory;
    });
    EXPECT_EQ(answer,
              "/Users/alice/.state/io.tavio.Tavio.Uninstaller|"
              "/Users/alice/.local/state/io.tavio.Tavio.Uninstaller|"
              "/Users/alice/.local/state/io.tavio.Tavio.Uninstaller");
}

// The once-per-process values, seen from a copy of a small program placed in
// a bundle layout with its own Info.plist.
class BundledProbeTest : public ::testing::Test {
  protected:
    std::string install(const std::string& folder) {
        testsupport::makeDirectories(folder);
        std::string program = folder + "/probe";
        testsupport::writeFile(program, testsupport::readFile(CONTEXT_PROBE), 0755);
        return program;
    }

    std::string bundle() const { return temp_ / "Uninstall Tavio.app"; }

    testsupport::TempDir temp_;
};

TEST_F(BundledProbeTest, TheKeysOfTheBundlesInfoPlistNameTheTarget) {
    const std::string program = install(bundle() + "/Contents/MacOS");
    testsupport::writeFile(
        bundle() + "/Contents/Info.plist",
        testplist::xml("<dict><key>TavioTargetBundleIdentifier</key><string>org.example.Beta"
                       "</string><key>TavioTargetAppName</key><string>Tavio Beta.app</string>"
                       "</dict>"));
    const auto output = testprogram::outputOf(program);
    ASSERT_TRUE(output);
    EXPECT_NE(output->find("bundleIdentifier=org.example.Beta\n"), std::string::npos) << *output;
    EXPECT_NE(output->find("contextBundleIdentifier=org.example.Beta\n"), std::string::npos);
    EXPECT_NE(output->find("appName=Tavio Beta.app\n"), std::string::npos);
    EXPECT_NE(output->find("looksFor=/Applications/Tavio Beta.app\n"), std::string::npos);
    const std::string home = UninstallContext::account(::getuid()).homeDirectory;
    EXPECT_NE(output->find("looksFor=" + home + "/Applications/Tavio Beta.app\n"),
              std::string::npos);
}

TEST_F(BundledProbeTest, AnEmptyAppNameAndANumericIdentifierFallBack) {
    const std::string program = install(bundle() + "/Contents/MacOS");
    testsupport::writeFile(bundle() + "/Contents/Info.plist",
                           testplist::binary(testplist::xml(
                               "<dict><key>TavioTargetBundleIdentifier</key><integer>5</integer>"
                               "<key>TavioTargetAppName</key><string></string></dict>")));
    const auto output = testprogram::outputOf(program);
    ASSERT_TRUE(output);
    EXPECT_NE(output->find("bundleIdentifier=io.tavio.Tavio\n"), std::string::npos) << *output;
    EXPECT_NE(output->find("appName=Tavio.app\n"), std::string::npos);
}

TEST_F(BundledProbeTest, OutsideABundleTheInfoPlistBesideTheProgramCounts) {
    const std::string program = install(temp_ / "bin");
    testsupport::writeFile(temp_ / "bin/Info.plist",
                           testplist::xml("<dict><key>TavioTargetAppName</key>"
                                          "<string>Tavio Nightly.app</string></dict>"));
    const auto output = testprogram::outputOf(program);
    ASSERT_TRUE(output);
    EXPECT_NE(output->find("appName=Tavio Nightly.app\n"), std::string::npos) << *output;
    EXPECT_NE(output->find("bundleIdentifier=io.tavio.Tavio\n"), std::string::npos);
}

TEST_F(BundledProbeTest, AFolderInPlaceOfTheInfoPlistGivesTheFallbacks) {
    const std::string program = install(bundle() + "/Contents/MacOS");
    testsupport::makeDirectories(bundle() + "/Contents/Info.plist");
    const auto output = testprogram::outputOf(program);
    ASSERT_TRUE(output);
    EXPECT_NE(output->find("appName=Tavio.app\n"), std::string::npos) << *output;
}

}  // namespace
