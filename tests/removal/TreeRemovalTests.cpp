#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "ChildProcess.h"
#include "RemovalFixture.h"

using removal::RemovalFailure;
using removal::RemovalOutcome;
using removal::RemovalReason;
using namespace testsupport;

namespace {

using TreeRemovalTest = RemovalTest;

std::string chainPath(const std::string& top, int depth) {
    std::string path = top;
    for (int i = 0; i < depth; ++i) {
        path += "/d";
    }
    return path;
}

TEST_F(TreeRemovalTest, TreeOf128LevelsIsRemovedEntirely) {
    // The item's own folder is depth 0; the deepest folder is at depth 127.
    const std::string deepest = makeChain(at("tree"), 127);
    writeFile(deepest + "/leaf", "bottom");
    EXPECT_EQ(remover().remove({"tree"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("tree")));
}

TEST_F(TreeRemovalTest, TreeOf129LevelsReportsTheFolderAtDepth128AsTooDeep) {
    const std::string deepest = makeChain(at("tree"), 128);
    writeFile(deepest + "/untouched", "below the limit");
    EXPECT_EQ(remover().remove({"tree"}),
              RemovalOutcome::failed({RemovalFailure{deepest, RemovalReason::tooDeep()}}));
    // The too-deep folder and every ancestor up to the item stay, with the
    // folder's own content untouched; the files beside the chain are gone.
    EXPECT_EQ(readFile(deepest + "/untouched"), "below the limit");
    for (int depth = 0; depth <= 127; ++depth) {
        const std::string level = chainPath(at("tree"), depth);
        EXPECT_EQ(listNames(level), std::vector<std::string>{"d"}) << "depth " << depth;
    }
}

TEST_F(TreeRemovalTest, DeepTreesNeedOnlyAFewDescriptors) {
    const std::string deepest = makeChain(at("deep"), 127);
    writeFile(deepest + "/leaf", "bottom");
    const std::string deeper = makeChain(at("deeper"), 128);
    const std::string anchorPath = anchor();
    const auto answer = runInChild([&] {
        const struct rlimit low {64, 64};
        if (::setrlimit(RLIMIT_NOFILE, &low) != 0) {
            return std::string("setrlimit failed");
        }
        const removal::SafeRemover remover{anchorPath, ::getuid(), true};
        return describe(remover.remove({"deep"})) + "\n" + describe(remover.remove({"deeper"}));
    });
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(*answer, "removed\nfailed[" + deeper + " tooDeep]");
    EXPECT_FALSE(exists(at("deep")));
    EXPECT_TRUE(isDirectory(deeper));
}

// Deep trees release the descriptors of their outer folders and reach them
// again through "..". If a folder was moved away meanwhile, ".." leads
// somewhere else: that is refused, and nothing above is touched.
TEST_F(TreeRemovalTest, FolderMovedAwayWhileDeepInsideStopsTheWayBackUp) {
    const std::string deepest = makeChain(at("tree"), 40);
    writeFile(deepest + "/marker", "m");
    const std::string level14 = chainPath(at("tree"), 14);
    const std::string elsewhere = temp_ / "elsewhere";
    makeDirectories(elsewhere);
    hooks::beforeUnlinkat = [&](int, const std::string& name) {
        if (name == "marker") {
            ASSERT_EQ(std::rename((level14 + "/d").c_str(), (elsewhere + "/d").c_str()), 0);
        }
    };
    EXPECT_EQ(remover().remove({"tree"}),
              RemovalOutcome::failed(
                  {RemovalFailure{level14, RemovalReason::changedSinceVerification()}}));
    for (int depth = 0; depth <= 14; ++depth) {
        EXPECT_TRUE(isDirectory(chainPath(at("tree"), depth))) << "depth " << depth;
    }
    EXPECT_TRUE(listNames(level14).empty());
    expectCanariesIntact();
}

TEST_F(TreeRemovalTest, LinksInsideTheTreeAreUnlinkedAndTheirTargetsSurvive) {
    makeDirectories(at("tree/sub"));
    makeLink(outside() + "/canary0", at("tree/to-file"));
    makeLink(outside(), at("tree/to-dir"));
    makeLink("/", at("tree/sub/to-root"));
    makeLink(temp_ / "nowhere", at("tree/dangling"));
    makeLink("../../outside", at("tree/sub/relative"));
    EXPECT_EQ(remover().remove({"tree"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("tree")));
    expectCanariesIntact();
    EXPECT_TRUE(isDirectory("/etc"));
}

TEST_F(TreeRemovalTest, FifosSocketsAndDevicesAreUnlinkedNeverOpened) {
    makeDirectories(at("tree"));
    ASSERT_EQ(::mkfifo(at("tree/fifo").c_str(), 0644), 0);
    const int sock = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(sock, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socketPath = at("tree/socket");
    ASSERT_LT(socketPath.size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, socketPath.c_str());
    ASSERT_EQ(::bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(sock);
    const bool device = ::mknod(at("tree/null-device").c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0;
    const std::string anchorPath = anchor();
    // In a child with an alarm: opening the FIFO would block forever.
    const auto answer = runInChild([&] {
        ::alarm(20);
        return describe(removal::SafeRemover{anchorPath, ::getuid(), true}.remove({"tree"}));
    });
    ASSERT_TRUE(answer.has_value()) << "the removal hung or crashed";
    EXPECT_EQ(*answer, "removed");
    EXPECT_FALSE(exists(at("tree")));
    if (!device) {
        std::printf("note: device nodes cannot be made here; fifo and socket were tested\n");
    }
}

TEST_F(TreeRemovalTest, FifoAsTheItemItselfIsUnlinked) {
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0644), 0);
    EXPECT_EQ(remover().remove({"fifo"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("fifo")));
}

TEST_F(TreeRemovalTest, WideDirectoryIsRemoved) {
    makeDirectories(at("wide"));
    for (int i = 0; i < 3000; ++i) {
        writeFile(at("wide/file" + std::to_string(i)), "");
    }
    EXPECT_EQ(remover().remove({"wide"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("wide")));
}

TEST_F(TreeRemovalTest, NoOwnerIsCheckedInsideTheTree) {
    makeDirectories(at("tree/theirs/deeper"));
    writeFile(at("tree/theirs/deeper/file"), "x");
    CHOWN_OR_SKIP(at("tree/theirs"), kOtherUser);
    CHOWN_OR_SKIP(at("tree/theirs/deeper/file"), kOtherUser);
    EXPECT_EQ(remover(true).remove({"tree"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("tree")));
}

}  // namespace
