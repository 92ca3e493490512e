// The records of removals begun, in a temporary home: how one is written and
// read back, what is never taken for one, and what the tidy-up removes and
// what it leaves.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <map>

#include "TempDir.h"
#include "target/RemovalRecords.h"

namespace {

using target::BundleManifest;
using target::RemovalRecord;
using target::RemovalRecords;
using namespace testsupport;

constexpr uid_t kOtherUser = 65534;

RemovalRecord aRecord(const std::string& name = "Tavio.app") {
    RemovalRecord record;
    record.identifier = "io.tavio.Tavio";
    record.anchor = "/Applications";
    record.name = name;
    record.identity = {2049, 131077};
    record.owner = ::getuid();
    using Kind = BundleManifest::Entry::Kind;
    record.manifest.entries["Contents"] = {Kind::folder, "", ""};
    record.manifest.entries["Contents/Info.plist"] = {Kind::file, std::string(32, '\x11'), ""};
    record.manifest.entries["Contents/Frameworks/Current"] = {Kind::link, "", "A"};
    return record;
}

struct stat statOf(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        throw std::runtime_error("cannot look at " + path);
    }
    return status;
}

class RecordKeepingTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ::unsetenv("XDG_STATE_HOME");
        makeDirectories(home(), 0700);
    }

    std::string home() const { return temp_ / "home"; }
    std::string folder() const { return home() + "/.local/state/io.tavio.Tavio.Uninstaller"; }
    RemovalRecords records() const {
        return {home(), RemovalRecords::folderFor(home()), ::getuid()};
    }

    std::string write(const RemovalRecord& record) const {
        const auto written = records().write(record);
        if (!std::holds_alternative<std::string>(written)) {
            throw std::runtime_error("not written: errno " +
                                     std::to_string(std::get<int>(written)));
        }
        return folder() + "/" + std::get<std::string>(written);
    }

    TempDir temp_;
};

TEST_F(RecordKeepingTest, ARecordIsWrittenPrivatelyAndReadBackWhole) {
    const std::string path = write(aRecord());

    EXPECT_EQ(RemovalRecords::folderFor(home()), folder());
    const struct stat file = statOf(path);
    EXPECT_EQ(file.st_mode & 07777, 0600u);
    EXPECT_EQ(file.st_nlink, 1u);
    EXPECT_EQ(statOf(folder()).st_mode & 07777, 0700u);
    EXPECT_EQ(readFile(folder() + "/created-folders"), ".local/state\n.local\n");
    EXPECT_EQ(listNames(folder()).size(), 2u) << "the record and the list, no temporary";
    EXPECT_EQ(listNames(home()), std::vector<std::string>{".local"}) << "no chain left beside";
    const auto all = records().all();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].record, aRecord());
    EXPECT_EQ(records().of("/Applications/Tavio.app").size(), 1u);
    EXPECT_TRUE(records().of("/Applications/Other.app").empty());
}

TEST_F(RecordKeepingTest, OnlyAWellFormedRecordParses) {
    const std::string bytes = *aRecord().serialized();
    ASSERT_EQ(RemovalRecord::parse(bytes), aRecord());
    EXPECT_FALSE(RemovalRecord::parse(bytes.substr(0, bytes.size() / 2)));
    EXPECT_FALSE(RemovalRecord::parse("not a property list"));
    std::string noOwner = bytes;
    noOwner.erase(noOwner.find("<key>Owner</key>"), std::string("<key>Owner</key>").size());
    EXPECT_FALSE(RemovalRecord::parse(noOwner));
    RemovalRecord shortDigest = aRecord();
    shortDigest.manifest.entries["Contents/Info.plist"].digest = "abc";
    EXPECT_FALSE(RemovalRecord::parse(*shortDigest.serialized()));
}

// Only a file exactly as the program writes one is evidence: none of these
// is, and none is changed by reading, dropping what was read, or tidying up.
TEST_F(RecordKeepingTest, WhatIsNotExactlyARecordOfOursIsNoEvidenceAndIsLeftAlone) {
    const std::string good = write(aRecord());
    const std::string bytes = readFile(good);
    ASSERT_EQ(::unlink(good.c_str()), 0);
    const std::string others = folder() + "/removal-000000000000000";
    writeFile(others + "1.plist", bytes, 0600);
    ASSERT_EQ(::chown((others + "1.plist").c_str(), kOtherUser, kOtherUser), 0);
    writeFile(others + "2.plist", bytes, 0640);
    writeFile(others + "3.plist", bytes, 0600);
    ASSERT_EQ(::link((others + "3.plist").c_str(), (temp_ / "second name").c_str()), 0);
    writeFile(others + "4.plist", "<plist><dict/></plist>", 0600);
    writeFile(temp_ / "elsewhere.plist", bytes, 0600);
    makeLink(temp_ / "elsewhere.plist", others + "5.plist");
    writeFile(folder() + "/removal-notes.plist", bytes, 0600);
    std::map<std::string, std::string> before;
    for (const auto& name : listNames(folder())) {
        before[name] = readFile(folder() + "/" + name);
    }

    EXPECT_TRUE(records().all().empty());
    records().tidy();

    std::map<std::string, std::string> after;
    for (const auto& name : listNames(folder())) {
        after[name] = readFile(folder() + "/" + name);
    }
    EXPECT_EQ(after, before);
    EXPECT_EQ(statOf(others + "1.plist").st_uid, kOtherUser);
}

TEST_F(RecordKeepingTest, ARecordsFolderOthersMayEnterHoldsNoEvidence) {
    write(aRecord());
    ASSERT_EQ(::chmod(folder().c_str(), 0755), 0);
    EXPECT_TRUE(records().all().empty());
    ASSERT_EQ(::chmod(folder().c_str(), 0700), 0);
    EXPECT_EQ(records().all().size(), 1u);
}

// A record replaced after it was read is someone else's file now: dropping
// what was read leaves it.
TEST_F(RecordKeepingTest, DropRemovesOnlyTheFileThatWasRead) {
    const std::string path = write(aRecord());
    const auto read = records().all();
    ASSERT_EQ(read.size(), 1u);
    const std::string bytes = readFile(path);
    {
        // Held open, the file read keeps its inode, which the new one
        // cannot then be given.
        const int old = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_GE(old, 0);
        ASSERT_EQ(::unlink(path.c_str()), 0);
        writeFile(path, bytes, 0600);
        records().drop(read[0]);
        ::close(old);
    }

    EXPECT_EQ(readFile(path), bytes);
    const auto again = records().all();
    ASSERT_EQ(again.size(), 1u);
    records().drop(again[0]);
    EXPECT_FALSE(exists(home() + "/.local")) << "the last record took its folders with it";
}

// The folders that were there before the first record stay, with whatever
// else they hold, when the last record goes.
TEST_F(RecordKeepingTest, TheTidyUpRemovesOnlyTheFoldersTheProgramMade) {
    makeDirectories(home() + "/.local", 0755);
    writeFile(home() + "/.local/kept", "the user's");
    write(aRecord());
    const auto stored = records().all();
    EXPECT_EQ(readFile(folder() + "/created-folders"), ".local/state\n");

    records().drop(stored.at(0));

    EXPECT_EQ(listNames(home() + "/.local"), std::vector<std::string>{"kept"});
}

// What a write cut off in the middle of making its folders leaves beside the
// home's own folders is ours by its name and its exact shape, and goes; the
// same name on anything else stays.
TEST_F(RecordKeepingTest, ACutOffChainGoesAndALookAlikeStays) {
    const std::string chain = home() + "/.io.tavio.Tavio.Uninstaller-0123456789abcdef.tmp";
    makeDirectories(chain + "/state/io.tavio.Tavio.Uninstaller", 0700);
    writeFile(chain + "/state/io.tavio.Tavio.Uninstaller/created-folders", ".local/state\n.local\n",
              0600);
    const std::string lookAlike = home() + "/.io.tavio.Tavio.Uninstaller-fedcba9876543210.tmp";
    makeDirectories(lookAlike + "/state/io.tavio.Tavio.Uninstaller", 0700);
    writeFile(lookAlike + "/state/io.tavio.Tavio.Uninstaller/created-folders",
              ".local/state\n.local\n", 0600);
    writeFile(lookAlike + "/state/thesis.tex", "chapter one");

    records().tidy();

    EXPECT_FALSE(exists(chain));
    EXPECT_EQ(countEntries(lookAlike), 4u);
    EXPECT_EQ(readFile(lookAlike + "/state/thesis.tex"), "chapter one");
    EXPECT_EQ(readFile(lookAlike + "/state/io.tavio.Tavio.Uninstaller/created-folders"),
              ".local/state\n.local\n");
}

TEST_F(RecordKeepingTest, StateHomeIsHonouredOnlyInsideTheHomeFolder) {
    ::setenv("XDG_STATE_HOME", (home() + "/var/state/").c_str(), 1);
    EXPECT_EQ(RemovalRecords::folderFor(home()), home() + "/var/state/io.tavio.Tavio.Uninstaller");
    ::setenv("XDG_STATE_HOME", (temp_ / "elsewhere").c_str(), 1);
    EXPECT_EQ(RemovalRecords::folderFor(home()), folder());
    ::setenv("XDG_STATE_HOME", (home() + "/../elsewhere").c_str(), 1);
    EXPECT_EQ(RemovalRecords::folderFor(home()), folder());
    ::unsetenv("XDG_STATE_HOME");
}

}  // namespace
