#include <cerrno>

#include "RemovalFixture.h"

using removal::RemovalOutcome;
using removal::RemovalReason;
using namespace testsupport;

namespace {

using RaceTest = RemovalTest;

TEST_F(RaceTest, EntryDeletedByOthersAfterTheListingIsNoFailure) {
    makeDirectories(at("item/gone-dir"));
    writeFile(at("item/gone"), "x");
    writeFile(at("item/stays"), "y");
    const std::string item = at("item");
    int deleted = 0;
    hooks::beforeFstatat = [&](int, const std::string& name) {
        if (name == "gone" || name == "gone-dir") {
            removeAll(item + "/" + name);
            ++deleted;
        }
    };
    EXPECT_EQ(remover().remove({"item"}), RemovalOutcome::removed());
    EXPECT_EQ(deleted, 2);
    EXPECT_FALSE(exists(item));
}

TEST_F(RaceTest, EntryDeletedByOthersJustBeforeItsUnlinkIsNoFailure) {
    makeDirectories(at("item"));
    writeFile(at("item/gone"), "x");
    const std::string item = at("item");
    hooks::beforeUnlinkat = [&](int, const std::string& name) {
        if (name == "gone") {
            removeAll(item + "/gone");
        }
    };
    EXPECT_EQ(remover().remove({"item"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(item));
}

TEST_F(RaceTest, FinalFileVanishingBetweenWalkAndUnlinkIsASystemError) {
    writeFile(at("file"), "x");
    const std::string file = at("file");
    hooks::beforeUnlinkat = [&](int, const std::string& name) {
        if (name == "file") {
            removeAll(file);
        }
    };
    EXPECT_EQ(remover().remove({"file"}),
              RemovalOutcome::failed({{file, RemovalReason::system(ENOENT)}}));
}

TEST_F(RaceTest, FinalFolderVanishingBetweenWalkAndOpenIsASystemError) {
    makeDirectories(at("dir/sub"));
    const std::string dir = at("dir");
    hooks::beforeOpenat = [&](int, const std::string& name) {
        if (name == "dir") {
            removeAll(dir);
        }
    };
    EXPECT_EQ(remover().remove({"dir"}),
              RemovalOutcome::failed({{dir, RemovalReason::system(ENOENT)}}));
}

TEST_F(RaceTest, EntryRecreatedAsAFolderBeforeItsUnlinkIsReportedAndKept) {
    makeDirectories(at("item"));
    writeFile(at("item/entry"), "x");
    writeFile(at("item/sibling"), "y");
    const std::string item = at("item");
    hooks::beforeUnlinkat = [&](int, const std::string& name) {
        if (name == "entry" && !isDirectory(item + "/entry")) {
            removeAll(item + "/entry");
            makeDirectories(item + "/entry");
        }
    };
    const RemovalOutcome outcome = remover().remove({"item"});
    ASSERT_EQ(outcome.kind(), RemovalOutcome::Kind::failed);
    ASSERT_EQ(outcome.failures().size(), 1u);
    EXPECT_EQ(outcome.failures()[0].path, item + "/entry");
    EXPECT_TRUE(isDirectory(item + "/entry"));
    EXPECT_FALSE(exists(item + "/sibling"));
}

}  // namespace
