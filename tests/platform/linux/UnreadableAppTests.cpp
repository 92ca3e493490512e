// An app copy whose layout the user cannot read: the check refuses it, and
// says that it could not be read, not that it is no app bundle (what is
// there is unknown). Root reads everything, so each check runs in a child
// that has become an ordinary user, on a bundle that is the user's but for
// the part made root's and closed.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "AppBundleFixture.h"
#include "ChildProcess.h"

namespace {

using Problem = target::AppVerificationProblem;

constexpr uid_t kUser = 65534;  // nobody

class UnreadableAppTest : public appbundle::AppBundleTest {
  protected:
    void SetUp() override {
        if (::getuid() != 0) {
            GTEST_SKIP() << "needs root to make a bundle that its user cannot read";
        }
        makeSealedBundle();
        for (const auto& entry : std::filesystem::recursive_directory_iterator(temp_.path())) {
            ASSERT_EQ(::lchown(entry.path().c_str(), kUser, kUser), 0);
        }
        ASSERT_EQ(::chown(temp_.path().c_str(), kUser, kUser), 0);
    }

    // The verifier's explanation, as the user, once `path` is root's with
    // `mode`.
    std::string explanationWhenClosed(const std::string& path, mode_t mode) {
        if (::chown(path.c_str(), 0, 0) != 0 || ::chmod(path.c_str(), mode) != 0) {
            return "cannot close " + path;
        }
        return testsupport::runInChild([this]() -> std::string {
                   if (::setgroups(0, nullptr) != 0 || ::setgid(kUser) != 0 ||
                       ::setuid(kUser) != 0) {
                       return "cannot become the user";
                   }
                   const auto problem = verify();
                   return problem ? problem->explanation() : "passed";
               })
            .value_or("child died");
    }
};

TEST_F(UnreadableAppTest, ABundleThatCannotBeEnteredCouldNotBeRead) {
    EXPECT_EQ(explanationWhenClosed(bundle(), 0700), "Skipped: the app could not be read");
}

TEST_F(UnreadableAppTest, ContentsThatCannotBeOpenedCouldNotBeRead) {
    EXPECT_EQ(explanationWhenClosed(contents(), 0700), "Skipped: the app could not be read");
}

TEST_F(UnreadableAppTest, AnInfoPlistThatCannotBeReadCouldNotBeRead) {
    EXPECT_EQ(explanationWhenClosed(at("Info.plist"), 0600), "Skipped: the app could not be read");
}

// What the user can read still decides: a closed folder beside a layout
// that is plainly wrong does not hide it.
TEST_F(UnreadableAppTest, AMissingInfoPlistIsStillNotAnAppBundle) {
    ASSERT_EQ(::unlink(at("Info.plist").c_str()), 0);
    EXPECT_EQ(explanationWhenClosed(at("Resources"), 0700), "Not an app bundle");
}

}  // namespace
