#include <sys/stat.h>

#include <cstdio>

#include "DescriptorCheck.h"
#include "RemovalFixture.h"

using removal::FileIdentity;
using removal::RemovalFailure;
using removal::RemovalOutcome;
using removal::RemovalReason;
using removal::SafeRemover;
using namespace testsupport;

namespace {

using RemoveTest = RemovalTest;

RemovalOutcome failedWith(const std::string& path, RemovalReason reason) {
    return RemovalOutcome::failed({RemovalFailure{path, std::move(reason)}});
}

TEST_F(RemoveTest, RegularFileIsRemoved) {
    writeFile(at("file"), "x");
    EXPECT_EQ(remover().remove({"file"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("file")));
}

TEST_F(RemoveTest, DirectoryTreeIsRemoved) {
    makeDirectories(at("tree/a/b"));
    writeFile(at("tree/top"), "1");
    writeFile(at("tree/a/b/deep"), "2");
    EXPECT_EQ(remover().remove({"tree"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("tree")));
    EXPECT_TRUE(isDirectory(anchor()));
}

TEST_F(RemoveTest, EmptyDirectoryIsRemoved) {
    makeDirectories(at("empty"));
    EXPECT_EQ(remover().remove({"empty"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("empty")));
}

TEST_F(RemoveTest, NestedItemLeavesItsParentsInPlace) {
    makeDirectories(at("a/b/c"));
    writeFile(at("a/keep"), "k");
    EXPECT_EQ(remover().remove({"a", "b", "c"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("a/b/c")));
    EXPECT_TRUE(isDirectory(at("a/b")));
    EXPECT_EQ(readFile(at("a/keep")), "k");
}

TEST_F(RemoveTest, MissingAnchorIsAlreadyAbsentAndClosesThePlaceholder) {
    const SafeRemover missing{temp_ / "no-anchor", ::getuid(), true};
    const auto before = openDescriptors();
    EXPECT_EQ(missing.remove({"item"}), RemovalOutcome::alreadyAbsent());
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(RemoveTest, MissingLeafIsAlreadyAbsent) {
    EXPECT_EQ(remover().remove({"nothing"}), RemovalOutcome::alreadyAbsent());
}

TEST_F(RemoveTest, MissingIntermediateIsAlreadyAbsent) {
    EXPECT_EQ(remover().remove({"missing", "b", "c"}), RemovalOutcome::alreadyAbsent());
}

TEST_F(RemoveTest, LeafLinkToADirectoryRemovesOnlyTheLink) {
    makeLink(outside(), at("link"));
    EXPECT_EQ(remover().remove({"link"}), RemovalOutcome::linkRemoved());
    EXPECT_FALSE(exists(at("link")));
    expectCanariesIntact();
}

TEST_F(RemoveTest, DanglingLeafLinkIsRemoved) {
    makeLink(temp_ / "nowhere", at("dangling"));
    EXPECT_EQ(remover().remove({"dangling"}), RemovalOutcome::linkRemoved());
    EXPECT_FALSE(exists(at("dangling")));
}

TEST_F(RemoveTest, AnchorThatIsALinkFailsAndDeletesNothing) {
    writeFile(outside() + "/item", "outside item");
    makeLink(outside(), temp_ / "linked-anchor");
    const SafeRemover linked{temp_ / "linked-anchor", ::getuid(), true};
    EXPECT_EQ(linked.remove({"item"}),
              failedWith(temp_ / "linked-anchor", RemovalReason::symbolicLinkInPath()));
    EXPECT_EQ(readFile(outside() + "/item"), "outside item");
    ::unlink((outside() + "/item").c_str());
    expectCanariesIntact();
}

TEST_F(RemoveTest, IntermediateLinkFailsAtThePathThroughIt) {
    makeDirectories(at("a"));
    makeLink(outside(), at("a/link"));
    EXPECT_EQ(remover().remove({"a", "link", "canary0"}),
              failedWith(at("a/link"), RemovalReason::symbolicLinkInPath()));
    expectCanariesIntact();
}

TEST_F(RemoveTest, IntermediateFileFailsWithNotADirectory) {
    makeDirectories(at("a"));
    writeFile(at("a/file"), "x");
    EXPECT_EQ(remover().remove({"a", "file", "c"}),
              failedWith(at("a/file"), RemovalReason::notADirectory()));
    EXPECT_EQ(readFile(at("a/file")), "x");
}

TEST_F(RemoveTest, FailurePathsJoinAnchorAndComponentsWithSingleSlashes) {
    makeDirectories(at("a/b"));
    CHOWN_OR_SKIP(at("a/b"), kOtherUser);
    const SafeRemover trailing{anchor() + "/", ::getuid(), true};
    EXPECT_EQ(trailing.remove({"a", "b"}),
              failedWith(anchor() + "/a/b", RemovalReason::notOwnedByCurrentUser()));
}

TEST_F(RemoveTest, FailureWithNoComponentsBelowIsTheAnchorPathItself) {
    ::rmdir(anchor().c_str());
    writeFile(anchor(), "not a folder");
    EXPECT_EQ(remover().remove({"x"}), failedWith(anchor(), RemovalReason::notADirectory()));
}

TEST_F(RemoveTest, FinalDirectoryOwnedBySomeoneElseIsRefusedWhenOwnershipIsRequired) {
    makeDirectories(at("theirs"));
    writeFile(at("theirs/file"), "x");
    CHOWN_OR_SKIP(at("theirs"), kOtherUser);
    EXPECT_EQ(remover(true).remove({"theirs"}),
              failedWith(at("theirs"), RemovalReason::notOwnedByCurrentUser()));
    EXPECT_EQ(readFile(at("theirs/file")), "x");
}

TEST_F(RemoveTest, FinalFileOwnedBySomeoneElseIsStillUnlinked) {
    writeFile(at("theirs"), "x");
    CHOWN_OR_SKIP(at("theirs"), kOtherUser);
    EXPECT_EQ(remover(true).remove({"theirs"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("theirs")));
}

TEST_F(RemoveTest, WithoutOwnershipRequiredNoOwnerIsCheckedAnywhere) {
    makeDirectories(at("apps/Tavio.app/Contents"));
    writeFile(at("apps/Tavio.app/Contents/file"), "x");
    CHOWN_OR_SKIP(anchor(), kOtherUser);
    CHOWN_OR_SKIP(at("apps"), kOtherUser);
    CHOWN_OR_SKIP(at("apps/Tavio.app"), kOtherUser);
    EXPECT_EQ(remover(false).remove({"apps", "Tavio.app"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("apps/Tavio.app")));
}

TEST_F(RemoveTest, MatchingIdentityRemovesTheDirectory) {
    makeDirectories(at("Tavio.app/Contents"));
    const auto identity = remover(false).identity({"Tavio.app"});
    ASSERT_TRUE(identity.has_value());
    EXPECT_EQ(remover(false).remove({"Tavio.app"}, identity), RemovalOutcome::removed());
}

TEST_F(RemoveTest, DirectoryReplacedSinceItWasIdentifiedIsNotTouched) {
    makeDirectories(at("Tavio.app/Contents"));
    const auto identity = remover(false).identity({"Tavio.app"});
    ASSERT_TRUE(identity.has_value());
    ASSERT_EQ(std::rename(at("Tavio.app").c_str(), (temp_ / "verified.app").c_str()), 0);
    makeDirectories(at("Tavio.app"));
    writeFile(at("Tavio.app/someone-elses"), "keep");
    EXPECT_EQ(remover(false).remove({"Tavio.app"}, identity),
              failedWith(at("Tavio.app"), RemovalReason::changedSinceVerification()));
    EXPECT_EQ(readFile(at("Tavio.app/someone-elses")), "keep");
}

// A folder was expected: a file or a link in its place is not what was
// checked, and stays.
TEST_F(RemoveTest, ExpectedFolderRefusesAFileOrALinkInItsPlace) {
    writeFile(at("file"), "x");
    makeLink(outside(), at("link"));
    const FileIdentity unrelated{1, 2};
    EXPECT_EQ(remover().remove({"file"}, unrelated),
              RemovalOutcome::failed({{at("file"), RemovalReason::changedSinceVerification()}}));
    EXPECT_EQ(remover().remove({"link"}, unrelated),
              RemovalOutcome::failed({{at("link"), RemovalReason::changedSinceVerification()}}));
    EXPECT_EQ(readFile(at("file")), "x");
    EXPECT_TRUE(testsupport::isLink(at("link")));
}

TEST_F(RemoveTest, RemoverCanBeReusedForManyItems) {
    const SafeRemover shared = remover();
    for (int i = 0; i < 50; ++i) {
        makeDirectories(at("item" + std::to_string(i) + "/sub"));
        EXPECT_EQ(shared.remove({"item" + std::to_string(i)}), RemovalOutcome::removed());
    }
    EXPECT_TRUE(listNames(anchor()).empty());
}

// Violated preconditions stop the process before anything is opened or even
// looked at: the hooks make any file-system call exit with another message.
class RemoveDeathTest : public RemovalTest {};

void removeTouchingNothing(const SafeRemover& remover, const removal::Components& components) {
    hooks::forbidFileSystem = true;
    (void)remover.remove(components);
}

TEST_F(RemoveDeathTest, EmptyComponentListTraps) {
    EXPECT_DEATH(removeTouchingNothing(remover(), {}), "precondition failed: .*at least one");
}

TEST_F(RemoveDeathTest, EmptyComponentTraps) {
    EXPECT_DEATH(removeTouchingNothing(remover(), {"a", ""}), "precondition failed: .*empty");
}

TEST_F(RemoveDeathTest, ComponentWithSlashTraps) {
    EXPECT_DEATH(removeTouchingNothing(remover(), {"a/b"}), "precondition failed: .*contains");
    EXPECT_DEATH(removeTouchingNothing(remover(), {"/"}), "precondition failed: .*contains");
}

TEST_F(RemoveDeathTest, DotComponentTraps) {
    EXPECT_DEATH(removeTouchingNothing(remover(), {"a", "."}), "precondition failed: .*\"\\.\"");
}

TEST_F(RemoveDeathTest, DotDotComponentTraps) {
    EXPECT_DEATH(removeTouchingNothing(remover(), {".."}), "precondition failed: .*\"\\.\\.\"");
}

TEST_F(RemoveDeathTest, ForbiddenFileSystemHookReallyCatchesAnOpen) {
    // Guards the guard: without the precondition, the same call would touch
    // the file system and die with the hook's message instead.
    EXPECT_DEATH(removeTouchingNothing(remover(), {"fine"}), "touched the file system");
}

}  // namespace
