#include <grp.h>
#include <unistd.h>

#include "ChildProcess.h"
#include "RemovalFixture.h"

using removal::SafeRemover;
using namespace testsupport;

namespace {

constexpr uid_t kUnprivileged = 65534;  // nobody

// Root may delete anything, so these tests build the tree as root and then
// remove it from a child that has dropped to an unprivileged user.
class PermissionTest : public RemovalTest {
  protected:
    void SetUp() override {
        RemovalTest::SetUp();
        if (::getuid() != 0) {
            GTEST_SKIP() << "needs root to prepare files owned by two users";
        }
    }

    std::string removeAsUnprivileged(const removal::Components& components) {
        const std::string anchorPath = anchor();
        const auto answer = runInChild([&]() -> std::string {
            if (::setgroups(0, nullptr) != 0 || ::setgid(kUnprivileged) != 0 ||
                ::setuid(kUnprivileged) != 0) {
                return "cannot drop privileges";
            }
            return describe(SafeRemover{anchorPath, kUnprivileged, true}.remove(components));
        });
        return answer.value_or("child died");
    }

    void giveToUnprivileged(const std::string& path) {
        ASSERT_EQ(::lchown(path.c_str(), kUnprivileged, kUnprivileged), 0) << path;
    }
};

TEST_F(PermissionTest, EntryThatCannotBeUnlinkedIsPermissionDeniedAndItsSiblingsGo) {
    makeDirectories(at("item/locked"));
    writeFile(at("item/mine"), "m");
    writeFile(at("item/locked/theirs"), "t");
    giveToUnprivileged(anchor());
    giveToUnprivileged(at("item"));
    giveToUnprivileged(at("item/mine"));
    // item/locked stays root's (mode 0755): the user may list it, not change it.
    EXPECT_EQ(removeAsUnprivileged({"item"}),
              "failed[" + at("item/locked/theirs") + " permissionDenied]");
    EXPECT_FALSE(exists(at("item/mine")));
    EXPECT_EQ(readFile(at("item/locked/theirs")), "t");
    EXPECT_TRUE(isDirectory(at("item/locked")));
    EXPECT_TRUE(isDirectory(at("item")));
}

TEST_F(PermissionTest, FolderThatCannotBeReadIsPermissionDeniedAtItsPath) {
    makeDirectories(at("item/closed"));
    writeFile(at("item/closed/inside"), "i");
    writeFile(at("item/mine"), "m");
    ASSERT_EQ(::chmod(at("item/closed").c_str(), 0700), 0);
    giveToUnprivileged(anchor());
    giveToUnprivileged(at("item"));
    EXPECT_EQ(removeAsUnprivileged({"item"}), "failed[" + at("item/closed") + " permissionDenied]");
    EXPECT_FALSE(exists(at("item/mine")));
    EXPECT_EQ(readFile(at("item/closed/inside")), "i");
}

TEST_F(PermissionTest, FileInAFolderOfAnotherUserIsPermissionDenied) {
    writeFile(at("file"), "f");
    giveToUnprivileged(at("file"));
    // The anchor is root's: walking it is refused first.
    EXPECT_EQ(removeAsUnprivileged({"file"}), "failed[" + anchor() + " notOwnedByCurrentUser]");
    giveToUnprivileged(anchor());
    ASSERT_EQ(::chmod(anchor().c_str(), 0555), 0);
    EXPECT_EQ(removeAsUnprivileged({"file"}), "failed[" + at("file") + " permissionDenied]");
    EXPECT_EQ(readFile(at("file")), "f");
}

}  // namespace
