#include <gtest/gtest.h>

#include <cerrno>

#include "RemovalPrinting.h"
#include "base/Text.h"
#include "removal/RemovalOutcome.h"

using removal::reasonForErrno;
using removal::RemovalFailure;
using removal::RemovalReason;

namespace {

class TextLookupReset : public ::testing::Test {
  protected:
    void TearDown() override { base::setTextLookup(nullptr); }
};

TEST(ErrnoMapping, PermissionErrorsArePermissionDenied) {
    EXPECT_EQ(reasonForErrno(EPERM), RemovalReason::permissionDenied());
    EXPECT_EQ(reasonForErrno(EACCES), RemovalReason::permissionDenied());
}

TEST(ErrnoMapping, ReadOnlyVolumeIsPermissionDeniedNotSystem) {
    EXPECT_EQ(reasonForErrno(EROFS), RemovalReason::permissionDenied());
    EXPECT_NE(reasonForErrno(EROFS), RemovalReason::system(EROFS));
}

TEST(ErrnoMapping, LoopIsASymbolicLinkInThePath) {
    EXPECT_EQ(reasonForErrno(ELOOP), RemovalReason::symbolicLinkInPath());
}

TEST(ErrnoMapping, NotADirectoryErrnoStaysASystemError) {
    EXPECT_EQ(reasonForErrno(ENOTDIR), RemovalReason::system(ENOTDIR));
}

TEST(ErrnoMapping, UnknownErrnoKeepsItsNumber) {
    EXPECT_EQ(reasonForErrno(ENOENT), RemovalReason::system(ENOENT));
    EXPECT_EQ(reasonForErrno(EBUSY), RemovalReason::system(EBUSY));
    EXPECT_EQ(reasonForErrno(12345), RemovalReason::system(12345));
}

TEST_F(TextLookupReset, EveryReasonHasItsEnglishSentence) {
    EXPECT_EQ(RemovalReason::system(5).explanation(), "System error 5");
    EXPECT_EQ(RemovalReason::permissionDenied().explanation(), "Permission denied");
    EXPECT_EQ(RemovalReason::symbolicLinkInPath().explanation(),
              "A symbolic link in the path was refused");
    EXPECT_EQ(RemovalReason::notOwnedByCurrentUser().explanation(), "Not owned by this user");
    EXPECT_EQ(RemovalReason::crossesVolume().explanation(),
              "Another volume is mounted inside; it was not entered");
    EXPECT_EQ(RemovalReason::changedSinceVerification().explanation(),
              "Changed since it was checked");
    EXPECT_EQ(RemovalReason::tooDeep().explanation(), "Folder nesting is too deep");
    EXPECT_EQ(RemovalReason::applicationRunning().explanation(), "Tavio is still running");
    EXPECT_EQ(RemovalReason::reappeared().explanation(), "It was created again after removal");
    EXPECT_EQ(RemovalReason::notADirectory().explanation(), "A parent is not a folder");
    EXPECT_EQ(RemovalReason::runningNotChecked().explanation(),
              "Could not check whether Tavio is running");
}

TEST_F(TextLookupReset, SystemErrorShowsANegativeCodeAsSigned) {
    EXPECT_EQ(RemovalReason::system(-1).explanation(), "System error -1");
}

TEST_F(TextLookupReset, OtherExplainsAsItsOwnTextEvenWhenEmpty) {
    EXPECT_EQ(RemovalReason::other("").explanation(), "");
    EXPECT_EQ(RemovalReason::other("Ready-made.").explanation(), "Ready-made.");
}

TEST_F(TextLookupReset, ExplanationsPassThroughTheInstalledLookup) {
    std::vector<std::string> keys;
    base::setTextLookup([&keys](std::string_view english) {
        keys.emplace_back(english);
        if (english == "System error %d") {
            return std::string("Systemfehler %d");
        }
        return english == "Permission denied" ? std::string("Zugriff verweigert") : std::string();
    });
    EXPECT_EQ(RemovalReason::permissionDenied().explanation(), "Zugriff verweigert");
    // The format is the key, not the finished sentence; the number goes in after.
    EXPECT_EQ(RemovalReason::system(13).explanation(), "Systemfehler 13");
    // A lookup without a translation falls back to English.
    EXPECT_EQ(RemovalReason::tooDeep().explanation(), "Folder nesting is too deep");
    EXPECT_EQ(keys, (std::vector<std::string>{"Permission denied", "System error %d",
                                              "Folder nesting is too deep"}));
}

TEST_F(TextLookupReset, OtherIsNeverLookedUp) {
    bool asked = false;
    base::setTextLookup([&asked](std::string_view) {
        asked = true;
        return std::string("translated");
    });
    EXPECT_EQ(RemovalReason::other("As is").explanation(), "As is");
    EXPECT_FALSE(asked);
}

TEST(RemovalReasonEquality, SameCaseDifferentPayloadIsUnequal) {
    EXPECT_NE((RemovalFailure{"/p", RemovalReason::system(2)}),
              (RemovalFailure{"/p", RemovalReason::system(5)}));
    EXPECT_EQ((RemovalFailure{"/p", RemovalReason::system(2)}),
              (RemovalFailure{"/p", RemovalReason::system(2)}));
}

TEST(RemovalReasonEquality, OtherNeverEqualsSystem) {
    for (int code : {0, 1, 2, 97}) {
        EXPECT_NE(RemovalReason::other("a"), RemovalReason::system(code));
    }
    EXPECT_NE(RemovalReason::other(""), RemovalReason::system(0));
}

TEST(RemovalReasonEquality, FailuresWithDifferentPathsAreUnequal) {
    EXPECT_NE((RemovalFailure{"/a", RemovalReason::tooDeep()}),
              (RemovalFailure{"/b", RemovalReason::tooDeep()}));
}

TEST(RemovalOutcomeDeathTest, FailedWithoutFailuresTraps) {
    EXPECT_DEATH((void)removal::RemovalOutcome::failed({}), "precondition failed");
}

}  // namespace
