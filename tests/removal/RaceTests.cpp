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
    const hooks::Hook deleteFirst = [&](int, const std::string& name) {
        if ((name == "gone" || name == "gone-dir") && exists(item + "/" + name)) {
            removeAll(item + "/" + name);
            ++deleted;
        }
    };
    // Folders are looked at before they are entered, files are unlinked at
    // once: either way, the entry is gone by the time the removal reaches it.
    hooks::beforeFstatat = deleteFirst;
    hooks::beforeUnlinkat = deleteFirst;
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

// The listing said "file", but by the time of the unlink a folder stands
// there. The unlink cannot touch a folder; the entry is looked at again and,
// being a folder inside the item on the same volume, removed as one.
TEST_F(RaceTest, EntryReplacedByAFolderBeforeItsUnlinkIsLookedAtAgain) {
    makeDirectories(at("item"));
    writeFile(at("item/entry"), "x");
    writeFile(at("item/sibling"), "y");
    const std::string item = at("item");
    int replaced = 0;
    hooks::beforeUnlinkat = [&](int, const std::string& name) {
        if (name == "entry" && !isDirectory(item + "/entry")) {
            removeAll(item + "/entry");
            makeDirectories(item + "/entry");
            writeFile(item + "/entry/inside", "z");
            ++replaced;
        }
    };
    EXPECT_EQ(remover().remove({"item"}), RemovalOutcome::removed());
    EXPECT_EQ(replaced, 1);
    EXPECT_FALSE(exists(item));
}

TEST_F(RaceTest, EntryReplacedByALinkBeforeItsUnlinkLosesOnlyTheLink) {
    makeDirectories(at("item"));
    writeFile(at("item/entry"), "x");
    const std::string item = at("item");
    hooks::beforeUnlinkat = [&](int, const std::string& name) {
        if (name == "entry" && !isLink(item + "/entry")) {
            removeAll(item + "/entry");
            makeLink(outside(), item + "/entry");
        }
    };
    EXPECT_EQ(remover().remove({"item"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(item));
    expectCanariesIntact();
}

}  // namespace
