#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "RemovalFixture.h"

using removal::RemovalFailure;
using removal::RemovalOutcome;
using removal::RemovalReason;
using removal::SafeRemover;
using namespace testsupport;

namespace {

using AttackTest = RemovalTest;

TEST_F(AttackTest, AnchorLinkedToTheCanariesIsRefused) {
    makeLink(outside(), temp_ / "evil-anchor");
    const SafeRemover linked{temp_ / "evil-anchor", ::getuid(), true};
    EXPECT_EQ(
        linked.remove({"canary0"}),
        RemovalOutcome::failed({{temp_ / "evil-anchor", RemovalReason::symbolicLinkInPath()}}));
    expectCanariesIntact();
}

TEST_F(AttackTest, IntermediateLinkToTheCanariesIsRefused) {
    makeDirectories(at("Library"));
    makeLink(temp_.path(), at("Library/Caches"));
    EXPECT_EQ(
        remover().remove({"Library", "Caches", "outside"}),
        RemovalOutcome::failed({{at("Library/Caches"), RemovalReason::symbolicLinkInPath()}}));
    expectCanariesIntact();
}

TEST_F(AttackTest, LeafLinkToTheCanariesRemovesOnlyTheLink) {
    makeLink(outside(), at("item"));
    EXPECT_EQ(remover().remove({"item"}), RemovalOutcome::linkRemoved());
    EXPECT_FALSE(exists(at("item")));
    expectCanariesIntact();
}

TEST_F(AttackTest, SubdirectoryReplacedByALinkAfterTheListingIsUnlinkedNotFollowed) {
    makeDirectories(at("item/sub"));
    writeFile(at("item/sub/own"), "x");
    const std::string item = at("item");
    const std::string moved = temp_ / "moved-away";
    hooks::beforeFstatat = [&](int, const std::string& name) {
        if (name == "sub" && isDirectory(item + "/sub")) {
            ASSERT_EQ(std::rename((item + "/sub").c_str(), moved.c_str()), 0);
            makeLink(outside(), item + "/sub");
        }
    };
    EXPECT_EQ(remover().remove({"item"}), RemovalOutcome::removed());
    EXPECT_FALSE(exists(item));
    EXPECT_EQ(readFile(moved + "/own"), "x");
    expectCanariesIntact();
}

TEST_F(AttackTest, SubdirectorySwappedForALinkJustBeforeItIsOpenedIsRefused) {
    makeDirectories(at("item/sub"));
    writeFile(at("item/sibling"), "x");
    const std::string item = at("item");
    const std::string moved = temp_ / "moved-away";
    hooks::beforeOpenat = [&](int, const std::string& name) {
        if (name == "sub" && isDirectory(item + "/sub")) {
            ASSERT_EQ(std::rename((item + "/sub").c_str(), moved.c_str()), 0);
            makeLink(outside(), item + "/sub");
        }
    };
    EXPECT_EQ(remover().remove({"item"}),
              RemovalOutcome::failed({{item + "/sub", RemovalReason::symbolicLinkInPath()}}));
    EXPECT_FALSE(exists(item + "/sibling"));
    EXPECT_TRUE(isLink(item + "/sub"));
    expectCanariesIntact();
}

TEST_F(AttackTest, IntermediateSwappedForALinkDuringTheWalkIsRefused) {
    makeDirectories(at("Library/Caches/id"));
    const std::string library = at("Library");
    hooks::beforeOpenat = [&](int, const std::string& name) {
        if (name == "Caches" && isDirectory(library + "/Caches")) {
            ASSERT_EQ(std::rename((library + "/Caches").c_str(), (library + "/old").c_str()), 0);
            makeLink(temp_.path(), library + "/Caches");
        }
    };
    EXPECT_EQ(remover().remove({"Library", "Caches", "outside"}),
              RemovalOutcome::failed({{library + "/Caches", RemovalReason::symbolicLinkInPath()}}));
    expectCanariesIntact();
}

// Another thread keeps exchanging a folder inside the item with a link to the
// victim, atomically, while the item is removed again and again. Whatever
// moment the swap hits, the victim must survive.
TEST_F(AttackTest, ConcurrentSwappingOfAFolderAndALinkNeverReachesTheVictim) {
    const std::string item = at("item");
    std::atomic<bool> stop{false};
    std::atomic<bool> attacking{false};
    std::mutex swapping;  // held for each swap, so the test can wait one out
    std::atomic<long> swaps{0};
    std::thread attacker([&] {
        while (!stop.load()) {
            const std::lock_guard<std::mutex> hold(swapping);
            if (attacking.load() && ::renameat2(AT_FDCWD, (item + "/d").c_str(), AT_FDCWD,
                                                (item + "/l").c_str(), RENAME_EXCHANGE) == 0) {
                swaps.fetch_add(1);
            }
        }
    });
    struct JoinAtEnd {
        std::atomic<bool>& stop;
        std::thread& thread;
        ~JoinAtEnd() {
            stop = true;
            thread.join();
        }
    } joinAtEnd{stop, attacker};
    const int iterations = 3000;
    int failures = 0;
    for (int i = 0; i < iterations; ++i) {
        makeDirectories(item + "/d");
        writeFile(item + "/d/own", "own");
        makeLink(outside(), item + "/l");
        attacking = true;
        const RemovalOutcome outcome = remover().remove({"item"});
        attacking = false;
        { const std::lock_guard<std::mutex> wait(swapping); }
        if (outcome.kind() == RemovalOutcome::Kind::failed) {
            ++failures;
        }
        // Clean up whatever the race left, with the attacker held still so
        // that the clean-up itself cannot be led through the link.
        removeAll(item);
        ASSERT_EQ(listNames(outside()).size(), canaries_.size()) << "iteration " << i;
    }
    expectCanariesIntact();
    EXPECT_GT(swaps.load(), iterations / 10) << "the attacker did not get to swap often enough";
    std::printf("%d of %d removals met the swap and reported a failure\n", failures, iterations);
}

}  // namespace
