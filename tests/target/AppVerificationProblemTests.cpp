#include <gtest/gtest.h>

#include "base/Text.h"
#include "target/AppVerificationProblem.h"

namespace {

using target::AppVerificationProblem;

TEST(AppVerificationProblemTest, EachCaseHasItsSentence) {
    EXPECT_EQ(AppVerificationProblem::identifierMismatch("org.example").explanation(),
              "Skipped: not a verified Tavio app");
    EXPECT_EQ(AppVerificationProblem::missingIdentifier().explanation(),
              "Skipped: not a verified Tavio app");
    EXPECT_EQ(AppVerificationProblem::notAnAppBundle().explanation(), "Not an app bundle");
    EXPECT_EQ(AppVerificationProblem::missingExecutable().explanation(),
              "Skipped: not a verified Tavio app (the executable is missing)");
    EXPECT_EQ(AppVerificationProblem::invalidSignature().explanation(),
              "Skipped: not a verified Tavio app (the code signature is not valid)");
}

TEST(AppVerificationProblemTest, SentencesGoThroughTheInstalledTextLookup) {
    base::setTextLookup([](std::string_view english) { return "[" + std::string(english) + "]"; });
    const std::string text = AppVerificationProblem::notAnAppBundle().explanation();
    base::setTextLookup({});
    EXPECT_EQ(text, "[Not an app bundle]");
}

TEST(AppVerificationProblemTest, MismatchesCompareTheFoundIdentifier) {
    EXPECT_EQ(AppVerificationProblem::identifierMismatch("a"),
              AppVerificationProblem::identifierMismatch("a"));
    EXPECT_NE(AppVerificationProblem::identifierMismatch("a"),
              AppVerificationProblem::identifierMismatch("b"));
    EXPECT_NE(AppVerificationProblem::missingIdentifier(),
              AppVerificationProblem::identifierMismatch(""));
    EXPECT_EQ(AppVerificationProblem::missingExecutable().foundIdentifier(), "");
}

}  // namespace
