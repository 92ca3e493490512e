#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <ostream>
#include <regex>
#include <string>
#include <variant>
#include <vector>

#include "ChildProcess.h"
#include "RecordSamples.h"
#include "TempDir.h"
#include "target/RemovalRecords.h"
#include "target/UninstallContext.h"

namespace {

using target::RemovalRecord;
using target::RemovalRecords;
using testrecords::sampleRecord;
using namespace testsupport;

constexpr const char* kOwnFolder = "io.tavio.Tavio.Uninstaller";
constexpr uid_t kOtherUser = 65534;

// Sets or unsets one environment variable for the life of the object and
// puts the old value back afterwards.
class ScopedVariable {
  public:
    explicit ScopedVariable(const char* name) : name_(name) {
        if (const char* value = std::getenv(name)) {
            saved_ = value;
        }
        ::unsetenv(name);
    }
    ~ScopedVariable() {
        if (saved_) {
            ::setenv(name_, saved_->c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

    void set(const std::string& value) const { ::setenv(name_, value.c_str(), 1); }

  private:
    const char* name_;
    std::optional<std::string> saved_;
};

TEST(RecordsFolderTest, IsTheOwnFolderInTheLocalStateFolderOfTheHome) {
    const ScopedVariable state("XDG_STATE_HOME");
    EXPECT_EQ(RemovalRecords::folderFor("/home/alice"),
              "/home/alice/.local/state/io.tavio.Tavio.Uninstaller");
    EXPECT_EQ(RemovalRecords::folderFor("/"), "/.local/state/io.tavio.Tavio.Uninstaller");
}

TEST(RecordsFolderTest, AStateHomeInsideTheHomeIsHonoured) {
    const ScopedVariable state("XDG_STATE_HOME");
    state.set("/home/alice/.state");
    EXPECT_EQ(RemovalRecords::folderFor("/home/alice"),
              "/home/alice/.state/io.tavio.Tavio.Uninstaller");
    state.set("/home/alice/var/lib//");
    EXPECT_EQ(RemovalRecords::folderFor("/home/alice"),
              "/home/alice/var/lib/io.tavio.Tavio.Uninstaller");
    state.set("/var/state");
    EXPECT_EQ(RemovalRecords::folderFor("/"), "/var/state/io.tavio.Tavio.Uninstaller");
}

TEST(RecordsFolderTest, AStateHomeAnywhereElseIsNot) {
    const ScopedVariable state("XDG_STATE_HOME");
    for (const char* elsewhere :
         {"", "/var/state", "/home/alicea/state", "/home/alice", "/home/alice/", "/home/alice//",
          "state", "home/alice/state", "/home/alice/../bob/state", "/home/alice/./state",
          "/home/alice/state/..", "/home/alice/state/.", "/home/alice/.."}) {
        state.set(elsewhere);
        EXPECT_EQ(RemovalRecords::folderFor("/home/alice"),
                  "/home/alice/.local/state/io.tavio.Tavio.Uninstaller")
            << "'" << elsewhere << "'";
    }
    state.set("/");
    EXPECT_EQ(RemovalRecords::folderFor("/"), "/.local/state/io.tavio.Tavio.Uninstaller");
}

// What a file-system object is, for showing it unchanged: its identity,
// type, mode, owner and link count, and its bytes, link target or names.
struct Snapshot {
    ino_t inode = 0;
    mode_t mode = 0;
    uid_t owner = 0;
    nlink_t links = 0;
    std::string content;

    bool operator==(const Snapshot&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Snapshot& snapshot) {
    return out << "inode " << snapshot.inode << ", mode 0" << std::oct << snapshot.mode << std::dec
               << ", owner " << snapshot.owner << ", links " << snapshot.links << ", content '"
               << snapshot.content << "'";
}

Snapshot snapshotOf(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        throw std::runtime_error("cannot examine " + path + ": " + std::strerror(errno));
    }
    Snapshot snapshot{status.st_ino, status.st_mode, status.st_uid, status.st_nlink, {}};
    if (S_ISREG(status.st_mode)) {
        snapshot.content = readFile(path);
    } else if (S_ISLNK(status.st_mode)) {
        std::string target(4096, '\0');
        const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        snapshot.content = target.substr(0, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    } else if (S_ISDIR(status.st_mode)) {
        for (const std::string& name : listNames(path)) {
            snapshot.content += name + "\n";
        }
    }
    return snapshot;
}

// Everything below `root` (itself included), by path, following no link.
std::map<std::string, Snapshot> treeOf(const std::string& root) {
    std::map<std::string, Snapshot> tree{{root, snapshotOf(root)}};
    if (isDirectory(root)) {
        for (const std::string& name : listNames(root)) {
            tree.merge(treeOf(std::string(root).append("/").append(name)));
        }
    }
    return tree;
}

void chownTo(const std::string& path, uid_t owner) {
    if (::lchown(path.c_str(), owner, static_cast<gid_t>(-1)) != 0) {
        throw std::runtime_error("cannot change the owner of " + path);
    }
}

bool isRecordName(const std::string& name) {
    return std::regex_match(name, std::regex("removal-[0-9a-f]{16}\\.plist"));
}

std::vector<std::string> namesOf(const std::vector<RemovalRecords::Stored>& stored) {
    std::vector<std::string> names;
    names.reserve(stored.size());
    for (const RemovalRecords::Stored& each : stored) {
        names.push_back(each.fileName);
    }
    return names;
}

std::string serialized(const RemovalRecord& record) {
    const auto bytes = record.serialized();
    if (!bytes) {
        throw std::runtime_error("the record gave no bytes");
    }
    return *bytes;
}

// A temporary home of the user running the tests, with no records folder
// yet; $XDG_STATE_HOME is unset, as most sessions have it.
class RemovalRecordsTest : public ::testing::Test {
  protected:
    void SetUp() override { makeDirectories(home()); }

    std::string home() const { return temp_ / "alice"; }
    std::string local() const { return home() + "/.local"; }
    std::string state() const { return local() + "/state"; }
    std::string folder() const { return state() + "/" + kOwnFolder; }
    std::string inFolder(const std::string& name) const { return folder() + "/" + name; }

    target::UninstallContext context() const {
        return target::UninstallContext::make(::getuid(), {home(), "alice"}, "io.tavio.Tavio");
    }

    RemovalRecords records() const { return RemovalRecords::forUser(context()); }

    std::string writeRecord(const RemovalRecord& record = sampleRecord()) const {
        const auto written = records().write(record);
        if (const int* error = std::get_if<int>(&written)) {
            throw std::runtime_error(std::string("write failed: ") + std::strerror(*error));
        }
        return std::get<std::string>(written);
    }

    // The only trusted record, which the test expects there.
    RemovalRecords::Stored onlyRecord() const {
        auto all = records().all();
        if (all.size() != 1) {
            throw std::runtime_error(std::to_string(all.size()) + " records instead of one");
        }
        return std::move(all.front());
    }

    const ScopedVariable stateHome_{"XDG_STATE_HOME"};
    TempDir temp_;
};

void expectPrivateFolder(const std::string& path) {
    const Snapshot folder = snapshotOf(path);
    EXPECT_TRUE(S_ISDIR(folder.mode)) << path;
    EXPECT_EQ(folder.mode & 07777, 0700u) << path;
    EXPECT_EQ(folder.owner, ::getuid()) << path;
}

void expectPrivateFile(const std::string& path) {
    const Snapshot file = snapshotOf(path);
    EXPECT_TRUE(S_ISREG(file.mode)) << path;
    EXPECT_EQ(file.mode & 07777, 0600u) << path;
    EXPECT_EQ(file.owner, ::getuid()) << path;
    EXPECT_EQ(file.links, 1u) << path;
}

TEST_F(RemovalRecordsTest, TheContextNamesTheRecordsFolderOfItsHome) {
    EXPECT_EQ(context().stateDirectory, folder());
    EXPECT_EQ(records().folder, folder());
    EXPECT_EQ(records().homeDirectory, home());
    EXPECT_EQ(records().userID, ::getuid());
}

TEST_F(RemovalRecordsTest, WritingMakesEveryMissingFolderPrivateAndNamesTheRecord) {
    const std::string name = writeRecord();
    EXPECT_TRUE(isRecordName(name)) << name;
    EXPECT_EQ(listNames(home()), std::vector<std::string>{".local"});
    EXPECT_EQ(listNames(local()), std::vector<std::string>{"state"});
    EXPECT_EQ(listNames(state()), std::vector<std::string>{kOwnFolder});
    EXPECT_EQ(listNames(folder()), (std::vector<std::string>{"created-folders", name}));
    expectPrivateFolder(local());
    expectPrivateFolder(state());
    expectPrivateFolder(folder());
    expectPrivateFile(inFolder(name));
    expectPrivateFile(inFolder("created-folders"));
    EXPECT_EQ(readFile(inFolder("created-folders")), ".local/state\n.local\n");
    EXPECT_EQ(readFile(inFolder(name)), serialized(sampleRecord()));
}

TEST_F(RemovalRecordsTest, AWrittenRecordReadsBackEqualWithItsFile) {
    const std::string name = writeRecord();
    const auto all = records().all();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].fileName, name);
    EXPECT_EQ(all[0].record, sampleRecord());
    struct stat status {};
    ASSERT_EQ(::lstat(inFolder(name).c_str(), &status), 0);
    EXPECT_EQ(all[0].device, status.st_dev);
    EXPECT_EQ(all[0].inode, status.st_ino);
    const auto of = records().of("/Applications/Tavio.app");
    ASSERT_EQ(of.size(), 1u);
    EXPECT_EQ(of[0].fileName, name);
    EXPECT_EQ(of[0].record, sampleRecord());
    EXPECT_TRUE(records().of("/Applications/Tavio.app/").empty());
    EXPECT_TRUE(records().of("/Applications").empty());
    EXPECT_TRUE(records().of(home() + "/Applications/Tavio.app").empty());
}

TEST_F(RemovalRecordsTest, RecordsComeInNameOrderAndEachCopyFindsItsOwn) {
    const std::vector<std::string> anchors = {"/Applications", home() + "/Applications", "/opt"};
    std::map<std::string, std::string> anchorOf;
    for (const std::string& anchor : anchors) {
        anchorOf[writeRecord(sampleRecord(anchor))] = anchor;
    }
    const auto all = records().all();
    ASSERT_EQ(all.size(), 3u);
    std::vector<std::string> sorted;
    sorted.reserve(anchorOf.size());
    for (const auto& [name, anchor] : anchorOf) {
        sorted.push_back(name);
    }
    EXPECT_EQ(namesOf(all), sorted);
    for (const RemovalRecords::Stored& stored : all) {
        EXPECT_EQ(stored.record, sampleRecord(anchorOf[stored.fileName]));
    }
    for (const std::string& anchor : anchors) {
        const auto of = records().of(anchor + "/Tavio.app");
        ASSERT_EQ(of.size(), 1u) << anchor;
        EXPECT_EQ(of[0].record.anchor, anchor);
    }
}

TEST_F(RemovalRecordsTest, TwoRecordsOfOneCopyAreBothFound) {
    const std::string first = writeRecord();
    const std::string second = writeRecord();
    EXPECT_NE(first, second);
    EXPECT_EQ(records().of("/Applications/Tavio.app").size(), 2u);
}

TEST_F(RemovalRecordsTest, ReadingWithoutAFolderFindsNothingAndMakesNothing) {
    EXPECT_TRUE(records().all().empty());
    EXPECT_TRUE(records().of("/Applications/Tavio.app").empty());
    EXPECT_TRUE(listNames(home()).empty());
}

TEST_F(RemovalRecordsTest, ALocalFolderOfTheUsersIsUsedAndNotListed) {
    makeDirectories(local(), 0755);
    const std::string name = writeRecord();
    EXPECT_EQ(readFile(inFolder("created-folders")), ".local/state\n");
    EXPECT_EQ(snapshotOf(local()).mode & 07777, 0755u);
    expectPrivateFolder(state());
    expectPrivateFolder(folder());
    EXPECT_EQ(listNames(local()), std::vector<std::string>{"state"});
    EXPECT_EQ(records().all().size(), 1u);
}

TEST_F(RemovalRecordsTest, WithTheStateFolderThereOnlyTheRecordsFolderIsMade) {
    makeDirectories(state(), 0755);
    const std::string name = writeRecord();
    EXPECT_EQ(listNames(state()), std::vector<std::string>{kOwnFolder});
    EXPECT_EQ(listNames(folder()), std::vector<std::string>{name});
    EXPECT_EQ(snapshotOf(state()).mode & 07777, 0755u);
    expectPrivateFolder(folder());
    expectPrivateFile(inFolder(name));
}

TEST_F(RemovalRecordsTest, AStateHomeInsideTheHomeGetsTheRecordsAndGoesAgain) {
    stateHome_.set(home() + "/var/state");
    ASSERT_EQ(records().folder, home() + "/var/state/" + kOwnFolder);
    const std::string name = writeRecord();
    EXPECT_EQ(listNames(home()), std::vector<std::string>{"var"});
    const std::string own = home() + "/var/state/" + kOwnFolder;
    EXPECT_EQ(listNames(own), (std::vector<std::string>{"created-folders", name}));
    EXPECT_EQ(readFile(own + "/created-folders"), "var/state\nvar\n");
    records().drop(onlyRecord());
    EXPECT_TRUE(listNames(home()).empty());
}

// Root may write anywhere: the failure shows only to another user.
TEST_F(RemovalRecordsTest, AHomeTheUserCannotWriteToGivesTheErrorAndLeavesNothing) {
    const auto answer = runInChild([this] {
        if (::getuid() == 0 && ::setuid(kOtherUser) != 0) {
            return std::string("cannot drop privileges");
        }
        const RemovalRecords own{home(), folder(), ::getuid()};
        const auto written = own.write(sampleRecord());
        const int* error = std::get_if<int>(&written);
        return error != nullptr ? std::string(std::strerror(*error)) : "written";
    });
    EXPECT_EQ(answer, std::strerror(EACCES));
    EXPECT_TRUE(listNames(home()).empty());
}

// A trusted record beside things that are not: only the record is found,
// and neither tidying nor dropping the record changes them.
class UntrustedTest : public RemovalRecordsTest {
  protected:
    void SetUp() override {
        RemovalRecordsTest::SetUp();
        trusted_ = writeRecord();
    }

    // A file that would be a good record but for its name, place or mode.
    std::string makeRecordFile(const std::string& path, mode_t mode = 0600) const {
        writeFile(path, serialized(sampleRecord("/opt")), mode);
        EXPECT_EQ(::chmod(path.c_str(), mode), 0);
        return path;
    }

    void expectOnlyTheTrustedRecord() const {
        const std::map<std::string, Snapshot> before = treeOf(home());
        EXPECT_EQ(namesOf(records().all()), std::vector<std::string>{trusted_});
        EXPECT_TRUE(records().of("/opt/Tavio.app").empty());
        records().tidy();
        EXPECT_EQ(treeOf(home()), before);
        records().drop(onlyRecord());
        EXPECT_FALSE(exists(inFolder(trusted_)));
        std::map<std::string, Snapshot> expected = before;
        expected.erase(inFolder(trusted_));
        const std::string line = trusted_ + "\n";
        std::string& names = expected[folder()].content;
        names.erase(names.find(line), line.size());
        EXPECT_EQ(treeOf(home()), expected);
        EXPECT_TRUE(records().all().empty());
    }

    std::string trusted_;
};

// The files below differ from this one in one way each.
TEST_F(UntrustedTest, AGoodRecordMadeByHandIsTrusted) {
    const std::string name = "removal-00000000000000aa.plist";
    makeRecordFile(inFolder(name));
    std::vector<std::string> expected = {name, trusted_};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(namesOf(records().all()), expected);
    const auto of = records().of("/opt/Tavio.app");
    ASSERT_EQ(of.size(), 1u);
    EXPECT_EQ(of[0].fileName, name);
}

TEST_F(UntrustedTest, ARecordOfAnotherUserIsNeitherTrustedNorRemoved) {
    chownTo(makeRecordFile(inFolder("removal-00000000000000aa.plist")), kOtherUser);
    expectOnlyTheTrustedRecord();
}

TEST_F(UntrustedTest, ARecordOthersMayReadOrWriteIsNeitherTrustedNorRemoved) {
    makeRecordFile(inFolder("removal-00000000000000aa.plist"), 0644);
    makeRecordFile(inFolder("removal-00000000000000bb.plist"), 0640);
    makeRecordFile(inFolder("removal-00000000000000cc.plist"), 0602);
    expectOnlyTheTrustedRecord();
}

TEST_F(UntrustedTest, ARecordWithASecondLinkIsNeitherTrustedNorRemoved) {
    const std::string record = makeRecordFile(inFolder("removal-00000000000000aa.plist"));
    ASSERT_EQ(::link(record.c_str(), (home() + "/kept").c_str()), 0);
    expectOnlyTheTrustedRecord();
}

TEST_F(UntrustedTest, ALinkNamedLikeARecordIsNeitherFollowedNorRemoved) {
    makeRecordFile(home() + "/decoy.plist");
    makeLink(home() + "/decoy.plist", inFolder("removal-00000000000000aa.plist"));
    makeLink("../../../decoy.plist", inFolder("removal-00000000000000bb.plist"));
    expectOnlyTheTrustedRecord();
}

TEST_F(UntrustedTest, ARecordThatDoesNotParseIsNeitherTrustedNorRemoved) {
    writeFile(inFolder("removal-00000000000000aa.plist"), "not a record", 0600);
    writeFile(inFolder("removal-00000000000000bb.plist"), "", 0600);
    expectOnlyTheTrustedRecord();
}

TEST_F(UntrustedTest, AGoodRecordUnderAnotherNameIsNeitherTrustedNorRemoved) {
    for (const char* name : {"removal-0123456789abcde.plist", "removal-0123456789abcdef0.plist",
                             "removal-0123456789abcdeg.plist", "removal-0123456789abcdef.plist.bak",
                             "Removal-0123456789abcdef.plist", "removal-0123456789abcdef.xml",
                             ".removal-0123456789abcdef.plist", "removal-0123456789abcdef.tmp",
                             "removal--123456789abcdef.plist", "removal-0123456789 abcdef.plist"}) {
        makeRecordFile(inFolder(name));
    }
    expectOnlyTheTrustedRecord();
}

TEST_F(UntrustedTest, AFolderNamedLikeARecordIsNeitherTrustedNorRemoved) {
    makeDirectories(inFolder("removal-00000000000000aa.plist"), 0700);
    makeRecordFile(inFolder("removal-00000000000000aa.plist/removal-00000000000000bb.plist"));
    expectOnlyTheTrustedRecord();
}

TEST_F(UntrustedTest, AFifoNamedLikeARecordIsNeitherOpenedNorRemoved) {
    ASSERT_EQ(::mkfifo(inFolder("removal-00000000000000aa.plist").c_str(), 0600), 0);
    // In a child with an alarm: reading that blocked on the FIFO would be
    // killed, and give no answer.
    const auto answer = runInChild([this] {
        ::alarm(5);
        return std::to_string(records().all().size());
    });
    EXPECT_EQ(answer, "1");
    expectOnlyTheTrustedRecord();
}

// A records folder that cannot be trusted holds a good record, in a home
// the test has set up: nothing is read from it, and no call changes anything
// in the home, not even a drop() of that very file.
class UntrustedFolderTest : public RemovalRecordsTest {
  protected:
    // The good record in `path`, which must be a folder.
    void putRecordIn(const std::string& path) {
        makeDirectories(path, 0700);
        writeFile(path + "/" + kName, serialized(sampleRecord()), 0600);
    }

    void expectNothingTrustedOrChanged(int writeError) const {
        const std::map<std::string, Snapshot> before = treeOf(home());
        EXPECT_TRUE(records().all().empty());
        EXPECT_TRUE(records().of("/Applications/Tavio.app").empty());
        records().tidy();
        EXPECT_EQ(treeOf(home()), before);
        struct stat status {};
        const std::string path = home() + "/real/" + kName;
        if (::lstat(path.c_str(), &status) == 0) {
            records().drop({kName, sampleRecord(), status.st_dev, status.st_ino});
            EXPECT_EQ(treeOf(home()), before);
        }
        const auto written = records().write(sampleRecord());
        const int* error = std::get_if<int>(&written);
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(*error, writeError) << std::strerror(*error);
        EXPECT_EQ(treeOf(home()), before);
    }

    static constexpr const char* kName = "removal-00000000000000aa.plist";
};

// A link opened as a folder without following it fails as not a folder.
TEST_F(UntrustedFolderTest, ARecordsFolderThatIsALinkIsNotFollowed) {
    makeDirectories(state(), 0700);
    putRecordIn(home() + "/real");
    makeLink(home() + "/real", folder());
    expectNothingTrustedOrChanged(ENOTDIR);
}

TEST_F(UntrustedFolderTest, ARecordsFolderOthersMayEnterIsNotTrusted) {
    makeDirectories(state(), 0700);
    putRecordIn(folder());
    ASSERT_EQ(::chmod(folder().c_str(), 0701), 0);
    expectNothingTrustedOrChanged(EPERM);
}

TEST_F(UntrustedFolderTest, ARecordsFolderOthersMayReadIsNotTrusted) {
    makeDirectories(state(), 0700);
    putRecordIn(folder());
    ASSERT_EQ(::chmod(folder().c_str(), 0755), 0);
    expectNothingTrustedOrChanged(EPERM);
}

TEST_F(UntrustedFolderTest, ARecordsFolderOfAnotherUserIsNotTrusted) {
    makeDirectories(state(), 0700);
    putRecordIn(folder());
    chownTo(folder(), kOtherUser);
    expectNothingTrustedOrChanged(EPERM);
}

TEST_F(UntrustedFolderTest, AStateFolderOfAnotherUserIsNotGoneThrough) {
    putRecordIn(folder());
    chownTo(state(), kOtherUser);
    expectNothingTrustedOrChanged(EPERM);
}

TEST_F(UntrustedFolderTest, ALocalFolderThatIsALinkIsNotFollowed) {
    putRecordIn(home() + "/real/state/" + kOwnFolder);
    makeLink(home() + "/real", local());
    expectNothingTrustedOrChanged(ENOTDIR);
}

TEST_F(RemovalRecordsTest, DroppingTheLastRecordRemovesEveryFolderMadeForIt) {
    writeRecord();
    records().drop(onlyRecord());
    EXPECT_TRUE(listNames(home()).empty());
}

TEST_F(RemovalRecordsTest, DroppingOneRecordKeepsTheOthersAndTheFolders) {
    const std::string kept = writeRecord(sampleRecord("/opt"));
    writeRecord();
    const auto of = records().of("/Applications/Tavio.app");
    ASSERT_EQ(of.size(), 1u);
    records().drop(of[0]);
    EXPECT_EQ(listNames(folder()), (std::vector<std::string>{"created-folders", kept}));
    EXPECT_EQ(readFile(inFolder("created-folders")), ".local/state\n.local\n");
    EXPECT_EQ(namesOf(records().all()), std::vector<std::string>{kept});
}

// The name was read, then another file took it: that file is not the record
// read, whatever it holds.
TEST_F(RemovalRecordsTest, ARecordReplacedSinceItWasReadIsNotRemoved) {
    const std::string name = writeRecord();
    const RemovalRecords::Stored stored = onlyRecord();
    const std::string replacement = serialized(sampleRecord("/opt"));
    writeFile(inFolder("replacement"), replacement, 0600);
    ASSERT_EQ(::rename(inFolder("replacement").c_str(), inFolder(name).c_str()), 0);
    ASSERT_NE(snapshotOf(inFolder(name)).inode, stored.inode);
    records().drop(stored);
    EXPECT_EQ(readFile(inFolder(name)), replacement);
    EXPECT_EQ(listNames(folder()), (std::vector<std::string>{"created-folders", name}));
    const RemovalRecords::Stored now = onlyRecord();
    EXPECT_EQ(now.record, sampleRecord("/opt"));
    EXPECT_NE(now.inode, stored.inode);
}

TEST_F(RemovalRecordsTest, ARecordAlreadyGoneIsDroppedWithItsFolders) {
    const std::string name = writeRecord();
    const RemovalRecords::Stored stored = onlyRecord();
    ASSERT_EQ(::unlink(inFolder(name).c_str()), 0);
    records().drop(stored);
    EXPECT_TRUE(listNames(home()).empty());
}

TEST_F(RemovalRecordsTest, TidyingWhileARecordIsLeftChangesNothing) {
    writeRecord();
    const std::map<std::string, Snapshot> before = treeOf(home());
    records().tidy();
    EXPECT_EQ(treeOf(home()), before);
}

TEST_F(RemovalRecordsTest, TidyingAHomeWithoutRecordsChangesNothing) {
    makeDirectories(state(), 0700);
    writeFile(home() + "/notes.txt", "mine");
    const std::map<std::string, Snapshot> before = treeOf(home());
    records().tidy();
    EXPECT_EQ(treeOf(home()), before);
}

TEST_F(RemovalRecordsTest, AStateFolderOfTheUsersWithOtherContentStays) {
    makeDirectories(state() + "/editor", 0755);
    writeFile(state() + "/editor/history", "the user's");
    const std::map<std::string, Snapshot> before = treeOf(home());
    writeRecord();
    records().drop(onlyRecord());
    std::map<std::string, Snapshot> after = treeOf(home());
    EXPECT_EQ(after, before);
}

TEST_F(RemovalRecordsTest, AnEmptyStateFolderOfTheUsersStays) {
    makeDirectories(state(), 0755);
    const std::map<std::string, Snapshot> before = treeOf(home());
    writeRecord();
    records().drop(onlyRecord());
    EXPECT_EQ(treeOf(home()), before);
}

TEST_F(RemovalRecordsTest, AnEmptyLocalFolderOfTheUsersStaysWhileTheStateFolderGoes) {
    makeDirectories(local(), 0755);
    const std::map<std::string, Snapshot> before = treeOf(home());
    writeRecord();
    ASSERT_TRUE(isDirectory(state()));
    records().drop(onlyRecord());
    EXPECT_EQ(treeOf(home()), before);
}

// Something the user put into the records folder is not ours to judge: it
// stays, and with it the folder and the folders on the way.
TEST_F(RemovalRecordsTest, AFileOfTheUsersInTheRecordsFolderStaysByteForByte) {
    writeRecord();
    writeFile(inFolder("notes.txt"), "the user's notes");
    writeFile(inFolder(".removal-notes.txt"), "partial?", 0600);
    writeFile(inFolder("removal-0123456789abcdef.tmp"), "not ours", 0600);
    writeFile(inFolder(".io.tavio.Tavio.Uninstaller-0123456789abcdef.tmp"), "nor this", 0600);
    const std::map<std::string, Snapshot> before = treeOf(home());
    records().drop(onlyRecord());
    std::map<std::string, Snapshot> after = treeOf(home());
    EXPECT_EQ(after.size(), before.size() - 1);
    for (const auto& [path, snapshot] : after) {
        if (path != folder()) {
            EXPECT_EQ(snapshot, before.at(path)) << path;
        }
    }
    EXPECT_EQ(listNames(folder()),
              (std::vector<std::string>{".io.tavio.Tavio.Uninstaller-0123456789abcdef.tmp",
                                        ".removal-notes.txt", "created-folders", "notes.txt",
                                        "removal-0123456789abcdef.tmp"}));
}

// What a run cut off by a crash leaves behind, and the next run sweeps.

constexpr const char* kChain = ".io.tavio.Tavio.Uninstaller-0123456789abcdef.tmp";
constexpr const char* kTemporary = ".removal-0123456789abcdef.tmp";

TEST_F(RemovalRecordsTest, ATemporaryRecordLeftInTheFolderIsRemoved) {
    const std::string name = writeRecord();
    writeFile(inFolder(kTemporary), "<?xml version=", 0600);
    records().tidy();
    EXPECT_EQ(listNames(folder()), (std::vector<std::string>{"created-folders", name}));
    writeFile(inFolder(kTemporary), "<?xml version=", 0600);
    records().drop(onlyRecord());
    EXPECT_TRUE(listNames(home()).empty());
}

TEST_F(RemovalRecordsTest, WritingSweepsATemporaryRecordToo) {
    const std::string first = writeRecord();
    writeFile(inFolder(kTemporary), "", 0600);
    const std::string second = writeRecord();
    std::vector<std::string> expected = {"created-folders", first, second};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(listNames(folder()), expected);
}

// The chain of a write cut off while it made .local, state and the records
// folder under a temporary name in the home.
void makeHalfBuiltChain(const std::string& home) {
    const std::string own = home + "/" + kChain + "/state/" + kOwnFolder;
    makeDirectories(own, 0700);
    writeFile(own + "/created-folders", ".local/state\n.local\n", 0600);
}

TEST_F(RemovalRecordsTest, AChainLeftInTheHomeIsRemoved) {
    makeHalfBuiltChain(home());
    writeFile(home() + "/notes.txt", "mine");
    records().tidy();
    EXPECT_EQ(listNames(home()), std::vector<std::string>{"notes.txt"});
    EXPECT_EQ(readFile(home() + "/notes.txt"), "mine");
}

TEST_F(RemovalRecordsTest, WritingSweepsAChainLeftInTheHome) {
    makeHalfBuiltChain(home());
    const std::string name = writeRecord();
    EXPECT_EQ(listNames(home()), std::vector<std::string>{".local"});
    EXPECT_EQ(listNames(folder()), (std::vector<std::string>{"created-folders", name}));
}

TEST_F(RemovalRecordsTest, ChainsLeftOnTheWayAreRemoved) {
    makeDirectories(state() + "/" + kChain, 0700);
    makeDirectories(local() + "/" + kChain + "/" + kOwnFolder, 0700);
    writeFile(local() + "/" + kChain + "/" + kOwnFolder + "/created-folders", ".local/state\n",
              0600);
    records().tidy();
    EXPECT_EQ(listNames(local()), std::vector<std::string>{"state"});
    EXPECT_TRUE(listNames(state()).empty());
}

// A tidy cut off after the records folder was moved aside into the home:
// the next run still finds the list of folders made and removes them.
TEST_F(RemovalRecordsTest, ARecordsFolderMovedAsideTakesTheListedFoldersWithIt) {
    makeDirectories(state(), 0700);
    makeDirectories(home() + "/" + kChain, 0700);
    writeFile(home() + "/" + kChain + "/created-folders", ".local/state\n.local\n", 0600);
    records().tidy();
    EXPECT_TRUE(listNames(home()).empty());
}

TEST_F(RemovalRecordsTest, AFolderMovedAsideLeavesListedFoldersThatAreNotEmpty) {
    makeDirectories(state() + "/editor", 0700);
    makeDirectories(home() + "/" + kChain, 0700);
    writeFile(home() + "/" + kChain + "/created-folders", ".local/state\n.local\n", 0600);
    records().tidy();
    EXPECT_EQ(listNames(home()), std::vector<std::string>{".local"});
    EXPECT_EQ(listNames(state()), std::vector<std::string>{"editor"});
}

// Only folders and files of the temporary names are ours; a link or a file
// of such a name, or a folder of the name of a record's temporary, stays.
TEST_F(RemovalRecordsTest, TemporaryNamesOfAnotherKindStay) {
    writeRecord();
    makeDirectories(home() + "/target", 0700);
    writeFile(home() + "/target/file", "kept");
    makeLink(home() + "/target", home() + "/" + kChain);
    writeFile(home() + "/.io.tavio.Tavio.Uninstaller-1123456789abcdef.tmp", "kept");
    makeDirectories(inFolder(kTemporary), 0700);
    writeFile(inFolder(kTemporary) + "/inner", "kept", 0600);
    makeLink(home() + "/target/file", inFolder(".removal-1123456789abcdef.tmp"));
    const std::map<std::string, Snapshot> before = treeOf(home());
    records().tidy();
    EXPECT_EQ(treeOf(home()), before);
}

TEST_F(RemovalRecordsTest, AChainOfAnotherUserIsNotRemoved) {
    makeHalfBuiltChain(home());
    chownTo(home() + "/" + kChain, kOtherUser);
    makeDirectories(local() + "/" + kChain, 0700);
    chownTo(local() + "/" + kChain, kOtherUser);
    const std::map<std::string, Snapshot> before = treeOf(home());
    records().tidy();
    EXPECT_EQ(treeOf(home()), before);
}

TEST_F(RemovalRecordsTest, ATemporaryRecordOfAnotherUserIsNotRemoved) {
    writeRecord();
    writeFile(inFolder(kTemporary), "someone else's", 0600);
    chownTo(inFolder(kTemporary), kOtherUser);
    const std::map<std::string, Snapshot> before = treeOf(home());
    records().tidy();
    EXPECT_EQ(treeOf(home()), before);
}

// A list in a folder that is not the user's is no evidence of what the
// program made: the user's empty folders on the way stay.
TEST_F(RemovalRecordsTest, AListInAChainOfAnotherUserRemovesNothing) {
    makeDirectories(state(), 0700);
    makeDirectories(home() + "/" + kChain, 0700);
    writeFile(home() + "/" + kChain + "/created-folders", ".local/state\n.local\n", 0600);
    chownTo(home() + "/" + kChain, kOtherUser);
    const std::map<std::string, Snapshot> before = treeOf(home());
    records().tidy();
    EXPECT_EQ(treeOf(home()), before);
}

}  // namespace
