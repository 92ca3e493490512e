#include <sys/stat.h>

#include <cstdio>

#include "RemovalFixture.h"

using removal::FileIdentity;
using removal::Presence;
using removal::RemovalReason;
using removal::SafeRemover;
using namespace testsupport;

namespace {

using ProbeTest = RemovalTest;

TEST_F(ProbeTest, NoComponentsWithAnExistingAnchorIsAbsentWithoutIdentity) {
    EXPECT_EQ(remover().presence({}), Presence::absent());
    EXPECT_EQ(remover().identity({}), std::nullopt);
}

TEST_F(ProbeTest, MissingAnchorIsAbsentWithoutIdentity) {
    const SafeRemover missing{temp_ / "no-such-anchor", ::getuid(), true};
    EXPECT_EQ(missing.presence({"a"}), Presence::absent());
    EXPECT_EQ(missing.identity({"a"}), std::nullopt);
}

TEST_F(ProbeTest, AnchorThatIsALinkIsUnknownSymbolicLink) {
    makeLink(anchor(), temp_ / "linked-anchor");
    writeFile(at("item"), "x");
    const SafeRemover linked{temp_ / "linked-anchor", ::getuid(), true};
    EXPECT_EQ(linked.presence({"item"}), Presence::unknown(RemovalReason::symbolicLinkInPath()));
    EXPECT_EQ(linked.identity({"item"}), std::nullopt);
}

TEST_F(ProbeTest, AnchorThatIsAFileIsUnknownNotADirectory) {
    writeFile(temp_ / "file-anchor", "x");
    const SafeRemover fileAnchor{temp_ / "file-anchor", ::getuid(), true};
    EXPECT_EQ(fileAnchor.presence({"item"}), Presence::unknown(RemovalReason::notADirectory()));
}

TEST_F(ProbeTest, LinksAboveTheAnchorAreFollowed) {
    makeDirectories(at("lib"));
    writeFile(at("lib/item"), "x");
    makeLink(anchor(), temp_ / "above");
    const SafeRemover throughLink{temp_ / "above/lib", ::getuid(), true};
    EXPECT_EQ(throughLink.presence({"item"}), Presence::present());
}

TEST_F(ProbeTest, DanglingLinkIsPresentWithoutIdentity) {
    makeLink(temp_ / "nowhere", at("dangling"));
    EXPECT_EQ(remover().presence({"dangling"}), Presence::present());
    EXPECT_EQ(remover().identity({"dangling"}), std::nullopt);
}

TEST_F(ProbeTest, LinkToADirectoryIsPresentWithoutIdentity) {
    makeLink(outside(), at("to-dir"));
    EXPECT_EQ(remover().presence({"to-dir"}), Presence::present());
    EXPECT_EQ(remover().identity({"to-dir"}), std::nullopt);
}

TEST_F(ProbeTest, RegularFileIsPresentWithoutIdentity) {
    writeFile(at("file"), "x");
    EXPECT_EQ(remover().presence({"file"}), Presence::present());
    EXPECT_EQ(remover().identity({"file"}), std::nullopt);
}

TEST_F(ProbeTest, DirectoryIdentityIsItsDeviceAndInode) {
    makeDirectories(at("a/b"));
    struct stat st {};
    ASSERT_EQ(::stat(at("a/b").c_str(), &st), 0);
    EXPECT_EQ(remover().presence({"a", "b"}), Presence::present());
    EXPECT_EQ(remover().identity({"a", "b"}), (FileIdentity{st.st_dev, st.st_ino}));
}

TEST_F(ProbeTest, DirectoryRenamedIntoPlaceHasAnotherIdentity) {
    makeDirectories(at("app"));
    makeDirectories(at("impostor"));
    const auto before = remover().identity({"app"});
    ASSERT_TRUE(before.has_value());
    ASSERT_EQ(std::rename(at("app").c_str(), (temp_ / "old-app").c_str()), 0);
    ASSERT_EQ(std::rename(at("impostor").c_str(), at("app").c_str()), 0);
    const auto after = remover().identity({"app"});
    ASSERT_TRUE(after.has_value());
    EXPECT_NE(*before, *after);
}

TEST_F(ProbeTest, MissingIntermediateOrLeafIsAbsent) {
    makeDirectories(at("a"));
    EXPECT_EQ(remover().presence({"a", "missing"}), Presence::absent());
    EXPECT_EQ(remover().presence({"missing", "b", "c"}), Presence::absent());
}

TEST_F(ProbeTest, FileAsIntermediateIsUnknownNotADirectory) {
    writeFile(at("file"), "x");
    EXPECT_EQ(remover().presence({"file", "b", "c"}),
              Presence::unknown(RemovalReason::notADirectory()));
}

TEST_F(ProbeTest, LinkAsIntermediateIsUnknownSymbolicLink) {
    makeLink(outside(), at("link"));
    EXPECT_EQ(remover().presence({"link", "canary0"}),
              Presence::unknown(RemovalReason::symbolicLinkInPath()));
    EXPECT_EQ(remover().identity({"link", "canary0"}), std::nullopt);
}

TEST_F(ProbeTest, IntermediateNotOwnedIsUnknownWhenOwnershipIsRequired) {
    makeDirectories(at("theirs/item"));
    CHOWN_OR_SKIP(at("theirs"), kOtherUser);
    EXPECT_EQ(remover(true).presence({"theirs", "item"}),
              Presence::unknown(RemovalReason::notOwnedByCurrentUser()));
}

TEST_F(ProbeTest, IntermediateNotOwnedIsWalkedWhenOwnershipIsNotRequired) {
    makeDirectories(at("theirs/item"));
    CHOWN_OR_SKIP(at("theirs"), kOtherUser);
    EXPECT_EQ(remover(false).presence({"theirs", "item"}), Presence::present());
    EXPECT_TRUE(remover(false).identity({"theirs", "item"}).has_value());
}

TEST_F(ProbeTest, AnchorNotOwnedIsUnknownWhenOwnershipIsRequired) {
    writeFile(at("item"), "x");
    CHOWN_OR_SKIP(anchor(), kOtherUser);
    EXPECT_EQ(remover(true).presence({"item"}),
              Presence::unknown(RemovalReason::notOwnedByCurrentUser()));
    EXPECT_EQ(remover(false).presence({"item"}), Presence::present());
}

TEST_F(ProbeTest, ProbesChangeNothing) {
    makeDirectories(at("a/b"));
    writeFile(at("a/b/file"), "content");
    makeLink(outside(), at("a/link"));
    const std::size_t before = countEntries(anchor());
    (void)remover().presence({"a", "b", "file"});
    (void)remover().identity({"a", "b"});
    (void)remover().presence({"a", "link", "canary0"});
    EXPECT_EQ(countEntries(anchor()), before);
    EXPECT_EQ(readFile(at("a/b/file")), "content");
    expectCanariesIntact();
}

}  // namespace
