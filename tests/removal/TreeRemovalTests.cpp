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
        const struct rlimit low { 64, 64 };
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
// somewhere else: that way is refused, and the folders above are reached
// again from the item's parent by name, each checked to be the one that was
// listed. The moved folder is left where it went (emptied while it was still
// inside the item); the item itself is removed.
TEST_F(TreeRemovalTest, FolderMovedAwayWhileDeepInsideIsLeftWhereItWent) {
    const std::string deepest = makeChain(at("tree"), 40);
    writeFile(deepest + "/marker", "m");
    const std::string level14 = chainPath(at("tree"), 14);
    const std::string elsewhere = temp_ / "elsewhere";
    makeDirectories(elsewhere);
    writeFile(elsewhere + "/keep", "not part of the item");
    hooks::beforeUnlinkat = [&](int, const std::string& name) {
        if (name == "marker") {
            ASSERT_EQ(std::rename((level14 + "/d").c_str(), (elsewhere + "/d").c_str()), 0);
        }
    };
    EXPECT_EQ(remover().remove({"tree"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(at("tree")));
    EXPECT_EQ(listNames(elsewhere), (std::vector<std::string>{"d", "keep"}));
    EXPECT_EQ(readFile(elsewhere + "/keep"), "not part of the item");
    expectCanariesIntact();
}

// A chain of `depth` folders "d" below `top`, with files and folders beside
// the chain at every level, so that some of them come after the chain in any
// listing order.
std::string makeChainWithSiblings(const std::string& top, int depth) {
    const std::string deepest = makeChain(top, depth);
    for (int level = 0; level <= depth; ++level) {
        const std::string folder = chainPath(top, level);
        for (int i = 0; i < 12; ++i) {
            writeFile(folder + "/f" + std::to_string(i), "file");
        }
        for (int i = 0; i < 4; ++i) {
            makeDirectories(folder + "/s" + std::to_string(i));
            writeFile(folder + "/s" + std::to_string(i) + "/inner", "inner");
        }
    }
    return deepest;
}

ino_t inodeOf(int fd) {
    struct stat st {};
    return ::fstat(fd, &st) == 0 ? st.st_ino : 0;
}

ino_t inodeOf(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

// The way back up through ".." fails (the descriptor limit, say): the folders
// above are reached again from the item's parent, and the whole tree goes.
TEST_F(TreeRemovalTest, FailedClimbThroughDotDotIsRecoveredFromAbove) {
    makeChainWithSiblings(at("tree"), 24);
    int climbs = 0;
    hooks::failOpenat = [&](int, const std::string& name) {
        if (name != "..") {
            return 0;
        }
        ++climbs;
        return EMFILE;
    };
    EXPECT_EQ(remover().remove({"tree"}), RemovalOutcome::removed());
    EXPECT_GT(climbs, 0) << "the tree was not deep enough to climb through \"..\"";
    EXPECT_FALSE(exists(at("tree")));
    expectCanariesIntact();
}

// When a folder on the way back cannot be reached either way, its failure
// names it (and with it everything it still holds), and the removal goes on
// with everything above and beside it.
TEST_F(TreeRemovalTest, UnreachableFolderIsNamedAndItsSiblingsAreStillRemoved) {
    makeChainWithSiblings(at("tree"), 24);
    const std::string level2 = chainPath(at("tree"), 2);
    const std::string level3 = chainPath(at("tree"), 3);
    const ino_t level2Inode = inodeOf(level2);
    int opensOfLevel3 = 0;
    hooks::failOpenat = [&](int dirFD, const std::string& name) {
        if (name == "..") {
            return EMFILE;
        }
        if (name == "d" && inodeOf(dirFD) == level2Inode && ++opensOfLevel3 > 1) {
            return EIO;  // the first open lists it; every later one fails
        }
        return 0;
    };
    EXPECT_EQ(remover().remove({"tree"}),
              RemovalOutcome::failed({RemovalFailure{level3, RemovalReason::system(EIO)}}));
    // Above the folder that could not be reached, only the way down to it
    // stays; every file and folder beside it is gone.
    for (int depth = 0; depth <= 2; ++depth) {
        EXPECT_EQ(listNames(chainPath(at("tree"), depth)), std::vector<std::string>{"d"})
            << "depth " << depth;
    }
    EXPECT_TRUE(isDirectory(level3));
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
