// What a rewrite killed before its rename left beside a preferences file is
// removed by a later run, and nothing else ever is: not the temporary of a
// rewrite that still runs, not another user's, not a link, not a name that
// merely looks like one.
#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <map>

#include "ChildProcess.h"
#include "RewriteFixture.h"
#include "base/UniqueFd.h"

namespace {

using platform::FilePreferencesAccess;
using platform::PreferencesHost;
using testsupport::kDomain;
using testsupport::kHostID;
using testsupport::kRecent;
using testsupport::kStale;
using testsupport::readFile;
using testsupport::sameFileAndTime;
using testsupport::setAge;
using testsupport::statOf;
using testsupport::writeFile;

constexpr uid_t kOtherUser = 65534;  // nobody

class LeftoverTest : public testsupport::PreferencesRewriteTest {
  protected:
    // A leftover of the any-host file, as a killed rewrite leaves it: the
    // kept keys, complete, under the temporary pattern.
    const std::string anyHostLeftover = temporary(preferences, anyHostName, "k3x9a7q0");
    const std::string currentHostLeftover = temporary(byHost, currentHostName, "0p2m5z8b");

    // What a rewrite that still runs holds: its temporary, open and locked.
    static base::UniqueFd holdAsARewriteDoes(const std::string& path) {
        base::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!fd || ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
            throw std::runtime_error("cannot lock " + path);
        }
        return fd;
    }

    void plantLeftover(const std::string& path, std::chrono::seconds age) {
        plant(path, {"ShowPlaylist"}, footprint::PlistFormat::binary);
        setAge(path, age);
    }

    // Each path below the preferences folder (the folder itself excluded)
    // with what it is, to show that nothing changed.
    struct Snapshot {
        std::string bytes;
        struct stat status {};
    };
    std::map<std::string, Snapshot> snapshot(const std::vector<std::string>& paths) const {
        std::map<std::string, Snapshot> result;
        for (const std::string& path : paths) {
            const struct stat status = statOf(path);
            result[path] = {S_ISREG(status.st_mode) ? readFile(path) : std::string(), status};
        }
        return result;
    }

    void expectUnchanged(const std::map<std::string, Snapshot>& before) const {
        for (const auto& [path, then] : before) {
            ASSERT_TRUE(testsupport::exists(path)) << path;
            const struct stat now = statOf(path);
            EXPECT_TRUE(sameFileAndTime(now, then.status)) << path;
            EXPECT_EQ(now.st_mode, then.status.st_mode) << path;
            if (S_ISREG(now.st_mode)) {
                EXPECT_EQ(readFile(path), then.bytes) << path;
            }
        }
    }
};

TEST_F(LeftoverTest, OldLeftoversOfBothHostsCountAsValuesAndRemoveAllRemovesThem) {
    plantLeftover(anyHostLeftover, kStale);
    plantLeftover(currentHostLeftover, kStale);

    EXPECT_TRUE(store.hasValues(kDomain));
    store.removeAll(kDomain);

    EXPECT_EQ(testsupport::listNames(preferences), std::vector<std::string>{"ByHost"});
    EXPECT_TRUE(testsupport::listNames(byHost).empty());
    EXPECT_FALSE(store.hasValues(kDomain));
}

TEST_F(LeftoverTest, RemovingKeysRemovesTheOldLeftoversOfItsHostOnly) {
    plant(anyHostFile, {"Volume", "ShowPlaylist"});
    plantLeftover(anyHostLeftover, kStale);
    plantLeftover(currentHostLeftover, kStale);

    store.removeKeys(kDomain, PreferencesHost::anyHost, {"Volume"});

    EXPECT_EQ(testsupport::listNames(preferences),
              (std::vector<std::string>{"ByHost", anyHostName}));
    EXPECT_EQ(keysIn(anyHostFile), std::vector<std::string>{"ShowPlaylist"});
    EXPECT_TRUE(testsupport::exists(currentHostLeftover));
}

// A recent temporary whose lock is held is another running copy's rewrite:
// it stays, and while it does the settings are not gone.
TEST_F(LeftoverTest, RecentLeftoverThatARewriteHoldsStaysAndCountsAsValues) {
    plantLeftover(anyHostLeftover, kRecent);
    plantLeftover(currentHostLeftover, -std::chrono::hours(1));  // the clock was set back
    const auto before = snapshot({anyHostLeftover, currentHostLeftover});
    const auto anyHostLock = holdAsARewriteDoes(anyHostLeftover);
    const auto currentHostLock = holdAsARewriteDoes(currentHostLeftover);

    store.removeAll(kDomain);
    store.removeKeys(kDomain, PreferencesHost::anyHost, {"Volume"});

    expectUnchanged(before);
    EXPECT_TRUE(store.hasValues(kDomain));
    const FilePreferencesAccess anyHostOnly(home, {PreferencesHost::anyHost}, kHostID, ::getuid());
    EXPECT_TRUE(anyHostOnly.hasValues(kDomain));
}

// No running rewrite holds what a killed one left: it goes at once, however
// recent.
TEST_F(LeftoverTest, RecentLeftoverThatNoRewriteHoldsIsRemovedAtOnce) {
    plantLeftover(anyHostLeftover, kRecent);
    plantLeftover(currentHostLeftover, kRecent);

    EXPECT_TRUE(store.hasValues(kDomain));
    store.removeAll(kDomain);

    EXPECT_EQ(testsupport::listNames(preferences), std::vector<std::string>{"ByHost"});
    EXPECT_TRUE(testsupport::listNames(byHost).empty());
    EXPECT_FALSE(store.hasValues(kDomain));
}

// A rewrite stalled for longer than the bound loses its temporary; its rename
// then fails and leaves the old file whole.
TEST_F(LeftoverTest, OldLeftoverGoesEvenWhileARewriteHoldsIt) {
    plantLeftover(anyHostLeftover, kStale);
    const auto lock = holdAsARewriteDoes(anyHostLeftover);

    store.removeAll(kDomain);

    EXPECT_FALSE(testsupport::exists(anyHostLeftover));
    EXPECT_FALSE(store.hasValues(kDomain));
}

TEST_F(LeftoverTest, AnotherUsersLeftoverStays) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to make a file of another user's";
    }
    plantLeftover(anyHostLeftover, kStale);
    ASSERT_EQ(::lchown(anyHostLeftover.c_str(), kOtherUser, kOtherUser), 0);
    const auto before = snapshot({anyHostLeftover});

    EXPECT_FALSE(store.hasValues(kDomain));
    store.removeAll(kDomain);

    expectUnchanged(before);
}

// A link named like a leftover, to a file or a folder, and a second name of
// a file: none is a leftover, and neither they nor what they lead to change.
TEST_F(LeftoverTest, LinksAndFoldersNamedLikeALeftoverStay) {
    const std::string target = temp / "documents.txt";
    writeFile(target, "the user's own text");
    const std::string symbolic = temporary(preferences, anyHostName, "aaaaaaaa");
    const std::string hard = temporary(preferences, anyHostName, "bbbbbbbb");
    const std::string folder = temporary(preferences, anyHostName, "cccccccc");
    const std::string folderLink = temporary(byHost, currentHostName, "dddddddd");
    testsupport::makeLink(target, symbolic);
    ASSERT_EQ(::link(target.c_str(), hard.c_str()), 0);
    testsupport::makeDirectories(folder + "/inside");
    testsupport::makeLink(temp.path(), folderLink);
    for (const std::string& path : {symbolic, hard, folder, folderLink}) {
        setAge(path, kStale);
    }
    const auto before = snapshot({target, symbolic, hard, folder, folder + "/inside", folderLink});

    EXPECT_FALSE(store.hasValues(kDomain));
    store.removeAll(kDomain);

    expectUnchanged(before);
    EXPECT_TRUE(testsupport::isLink(symbolic));
    EXPECT_TRUE(testsupport::isLink(folderLink));
}

TEST_F(LeftoverTest, NamesThatOnlyResembleALeftoverStay) {
    const std::string marked = "." + anyHostName + ".uninstall-tavio-";
    const std::vector<std::string> paths = {
        preferences + "/" + marked + "abc1234",    // too short
        preferences + "/" + marked + "abc123456",  // too long
        preferences + "/" + marked + "ABC12345",   // not lower case
        preferences + "/" + marked + "abc-1234",
        preferences + "/" + marked,
        preferences + "/" + marked + "abc12345.plist",
        preferences + "/" + anyHostName + ".uninstall-tavio-abc12345",  // no leading dot
        preferences + "/" + anyHostName + ".abc12345",                  // another program's
        preferences + "/.io.tavio.TavioHelper.plist.uninstall-tavio-abc12345",
        preferences + "/." + currentHostName + ".uninstall-tavio-abc12345",  // not its folder
        byHost + "/." + anyHostName + ".uninstall-tavio-abc12345",           // not its folder
        byHost + "/.io.tavio.Tavio.ffffffffffffffffffffffffffffffff.plist.uninstall-tavio-abc12345",
    };
    for (const std::string& path : paths) {
        plantLeftover(path, kStale);
    }
    const auto before = snapshot(paths);

    EXPECT_FALSE(store.hasValues(kDomain));
    store.removeAll(kDomain);

    expectUnchanged(before);
}

// Root may remove anything, so the store runs as an ordinary user, in a
// child, on a home that is that user's but whose preferences folder the user
// cannot write to. The leftover stays, and the store does not pretend that the
// settings are gone.
TEST_F(LeftoverTest, LeftoverThatCannotBeRemovedCountsAsValues) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    plantLeftover(anyHostLeftover, kStale);
    for (const std::string& path :
         {home, home + "/Library", preferences, byHost, anyHostLeftover}) {
        ASSERT_EQ(::lchown(path.c_str(), kOtherUser, kOtherUser), 0) << path;
    }
    ASSERT_EQ(::chmod(preferences.c_str(), 0555), 0);
    const auto before = snapshot({anyHostLeftover});

    const auto answer = testsupport::runInChild([&]() -> std::string {
        if (::setgroups(0, nullptr) != 0 || ::setresgid(kOtherUser, kOtherUser, kOtherUser) != 0 ||
            ::setresuid(kOtherUser, kOtherUser, kOtherUser) != 0) {
            return "cannot become the user";
        }
        const FilePreferencesAccess user(
            home, {PreferencesHost::anyHost, PreferencesHost::currentHost}, kHostID, kOtherUser);
        user.removeAll(kDomain);
        return user.hasValues(kDomain) ? "values" : "no values";
    });

    EXPECT_EQ(answer, "values");
    expectUnchanged(before);
}

}  // namespace
