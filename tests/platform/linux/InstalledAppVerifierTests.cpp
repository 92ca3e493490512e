#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "AppBundleFixture.h"
#include "ChildProcess.h"

namespace {

using appbundle::infoPlist;
using appbundle::keyString;
using Problem = target::AppVerificationProblem;

class InstalledAppVerifierTest : public appbundle::AppBundleTest {
  protected:
    // A sealed bundle whose Info.plist holds exactly `entries`.
    void makeSealedBundleWith(const std::string& entries) {
        makeBundle(infoPlist(entries));
        seal();
    }
};

const std::string kGoodKeys =
    keyString("CFBundleIdentifier", "io.tavio.Tavio") + keyString("CFBundleExecutable", "Tavio");

TEST_F(InstalledAppVerifierTest, ASealedBundleOfTavioPasses) {
    makeSealedBundle();
    EXPECT_EQ(verify(), std::nullopt);
}

TEST_F(InstalledAppVerifierTest, ABinaryInfoPlistIsReadToo) {
    makeBundle();
    auto info = target::PropertyList::parse(testsupport::readFile(at("Info.plist")));
    testsupport::writeFile(
        at("Info.plist"),
        *target::PropertyList::adopt(plist_copy(info->root()), target::PropertyList::Format::binary)
             .serialized());
    seal();
    EXPECT_EQ(verify(), std::nullopt);
}

TEST_F(InstalledAppVerifierTest, AFolderWithoutContentsIsNotAnAppBundle) {
    testsupport::makeDirectories(bundle());
    const auto problem = verify();
    EXPECT_EQ(problem, Problem::notAnAppBundle());
    EXPECT_EQ(problem->explanation(), "Not an app bundle");
}

TEST_F(InstalledAppVerifierTest, ContentsThatIsALinkToARealBundlesContentsIsNotAnAppBundle) {
    makeSealedBundle();
    const std::string fake = temp_ / "Fake.app";
    testsupport::makeDirectories(fake);
    testsupport::makeLink(contents(), fake + "/Contents");
    EXPECT_EQ(verify(fake), Problem::notAnAppBundle());
}

TEST_F(InstalledAppVerifierTest, ABundleThatIsALinkToARealBundleIsNotAnAppBundle) {
    makeSealedBundle();
    testsupport::makeLink(bundle(), temp_ / "Linked.app");
    EXPECT_EQ(verify(temp_ / "Linked.app"), Problem::notAnAppBundle());
}

TEST_F(InstalledAppVerifierTest, ABundleThatIsAPlainFileIsNotAnAppBundle) {
    testsupport::makeDirectories(applications());
    testsupport::writeFile(bundle(), "not a folder");
    EXPECT_EQ(verify(), Problem::notAnAppBundle());
}

TEST_F(InstalledAppVerifierTest, AMissingBundleIsNotAnAppBundle) {
    EXPECT_EQ(verify(), Problem::notAnAppBundle());
}

TEST_F(InstalledAppVerifierTest, ContentsThatIsAPlainFileIsNotAnAppBundle) {
    testsupport::makeDirectories(bundle());
    testsupport::writeFile(contents(), "");
    EXPECT_EQ(verify(), Problem::notAnAppBundle());
}

TEST_F(InstalledAppVerifierTest, AMissingInfoPlistIsNotAnAppBundle) {
    makeSealedBundle();
    ASSERT_EQ(::unlink(at("Info.plist").c_str()), 0);
    EXPECT_EQ(verify(), Problem::notAnAppBundle());
}

TEST_F(InstalledAppVerifierTest, AnInfoPlistThatIsAFolderIsNotAnAppBundle) {
    makeSealedBundle();
    ASSERT_EQ(::unlink(at("Info.plist").c_str()), 0);
    testsupport::makeDirectories(at("Info.plist"));
    EXPECT_EQ(verify(), Problem::notAnAppBundle());
}

TEST_F(InstalledAppVerifierTest, AnInfoPlistThatIsALinkToAGoodOneIsNotAnAppBundle) {
    makeSealedBundle();
    ASSERT_EQ(::rename(at("Info.plist").c_str(), at("Resources/Info.plist").c_str()), 0);
    testsupport::makeLink("Resources/Info.plist", at("Info.plist"));
    EXPECT_EQ(verify(), Problem::notAnAppBundle());
}

TEST_F(InstalledAppVerifierTest, AnInfoPlistThatIsAFifoIsRefusedWithoutBlocking) {
    makeSealedBundle();
    ASSERT_EQ(::unlink(at("Info.plist").c_str()), 0);
    ASSERT_EQ(::mkfifo(at("Info.plist").c_str(), 0644), 0);
    const auto answer = testsupport::runInChild([this] {
        ::alarm(5);
        return std::string(verify() == Problem::notAnAppBundle() ? "refused" : "other");
    });
    EXPECT_EQ(answer, "refused");
}

TEST_F(InstalledAppVerifierTest, AMalformedInfoPlistIsNotAnAppBundle) {
    makeBundle("<plist><dict><key>CFBundleIdentifier</key><string>io.tavio.Tavio");
    EXPECT_EQ(verify(), Problem::notAnAppBundle());
}

TEST_F(InstalledAppVerifierTest, AnInfoPlistHoldingAnArrayIsNotAnAppBundle) {
    makeBundle("<plist><array><string>io.tavio.Tavio</string></array></plist>");
    EXPECT_EQ(verify(), Problem::notAnAppBundle());
}

TEST_F(InstalledAppVerifierTest, AnEmptyDictionaryIsMissingTheIdentifier) {
    makeSealedBundleWith("");
    const auto problem = verify();
    EXPECT_EQ(problem, Problem::missingIdentifier());
    EXPECT_EQ(problem->explanation(), "Skipped: not a verified Tavio app");
}

TEST_F(InstalledAppVerifierTest, ANumericIdentifierIsMissingTheIdentifier) {
    makeSealedBundleWith("<key>CFBundleIdentifier</key><integer>5</integer>" +
                         keyString("CFBundleExecutable", "Tavio"));
    EXPECT_EQ(verify(), Problem::missingIdentifier());
}

TEST_F(InstalledAppVerifierTest, AnotherProductsBundleIsAMismatchWithTheFoundIdentifier) {
    makeSealedBundleWith(keyString("CFBundleIdentifier", "org.example.Player") +
                         keyString("CFBundleExecutable", "Tavio"));
    const auto problem = verify();
    EXPECT_EQ(problem, Problem::identifierMismatch("org.example.Player"));
    EXPECT_EQ(problem->foundIdentifier(), "org.example.Player");
    EXPECT_EQ(problem->explanation(), "Skipped: not a verified Tavio app");
}

TEST_F(InstalledAppVerifierTest, TheIdentifierMustMatchExactlyNotIgnoringCase) {
    makeSealedBundleWith(keyString("CFBundleIdentifier", "io.tavio.tavio") +
                         keyString("CFBundleExecutable", "Tavio"));
    EXPECT_EQ(verify(), Problem::identifierMismatch("io.tavio.tavio"));
}

TEST_F(InstalledAppVerifierTest, TheIdentifierMustMatchExactlyNotByPrefix) {
    makeSealedBundleWith(keyString("CFBundleIdentifier", "io.tavio.Tavio.helper") +
                         keyString("CFBundleExecutable", "Tavio"));
    EXPECT_EQ(verify(), Problem::identifierMismatch("io.tavio.Tavio.helper"));
    EXPECT_EQ(verify(bundle(), "io.tavio.Tavio.helper.x"),
              Problem::identifierMismatch("io.tavio.Tavio.helper"));
}

TEST_F(InstalledAppVerifierTest, AMismatchIsReportedBeforeAMissingExecutable) {
    makeSealedBundleWith(keyString("CFBundleIdentifier", "org.example.Player"));
    EXPECT_EQ(verify(), Problem::identifierMismatch("org.example.Player"));
}

TEST_F(InstalledAppVerifierTest, AMissingExecutableKeyIsAMissingExecutable) {
    makeSealedBundleWith(keyString("CFBundleIdentifier", "io.tavio.Tavio"));
    const auto problem = verify();
    EXPECT_EQ(problem, Problem::missingExecutable());
    EXPECT_EQ(problem->explanation(),
              "Skipped: not a verified Tavio app (the executable is missing)");
}

TEST_F(InstalledAppVerifierTest, ANumericExecutableIsAMissingExecutable) {
    makeSealedBundleWith(keyString("CFBundleIdentifier", "io.tavio.Tavio") +
                         "<key>CFBundleExecutable</key><integer>1</integer>");
    EXPECT_EQ(verify(), Problem::missingExecutable());
}

TEST_F(InstalledAppVerifierTest, AnExecutableNameWithASlashIsAMissingExecutable) {
    makeBundle(infoPlist(keyString("CFBundleIdentifier", "io.tavio.Tavio") +
                         keyString("CFBundleExecutable", "../x")));
    testsupport::writeFile(at("x"), "a file that the name would reach");
    seal();
    EXPECT_EQ(verify(), Problem::missingExecutable());
}

TEST_F(InstalledAppVerifierTest, AnExecutableNamedDotDotIsAMissingExecutable) {
    makeSealedBundleWith(keyString("CFBundleIdentifier", "io.tavio.Tavio") +
                         keyString("CFBundleExecutable", ".."));
    EXPECT_EQ(verify(), Problem::missingExecutable());
}

TEST_F(InstalledAppVerifierTest, AnAbsentExecutableIsAMissingExecutable) {
    makeBundle();
    ASSERT_EQ(::unlink(at("MacOS/Tavio").c_str()), 0);
    seal();
    EXPECT_EQ(verify(), Problem::missingExecutable());
}

TEST_F(InstalledAppVerifierTest, AnExecutableThatIsAFolderIsAMissingExecutable) {
    makeBundle();
    ASSERT_EQ(::unlink(at("MacOS/Tavio").c_str()), 0);
    testsupport::makeDirectories(at("MacOS/Tavio"));
    seal();
    EXPECT_EQ(verify(), Problem::missingExecutable());
}

TEST_F(InstalledAppVerifierTest, AnExecutableThatIsALinkIsAMissingExecutable) {
    makeBundle();
    ASSERT_EQ(::rename(at("MacOS/Tavio").c_str(), at("MacOS/Tavio-real").c_str()), 0);
    testsupport::makeLink("Tavio-real", at("MacOS/Tavio"));
    seal();
    EXPECT_EQ(verify(), Problem::missingExecutable());
}

TEST_F(InstalledAppVerifierTest, AMacOSFolderThatIsALinkIsAMissingExecutable) {
    makeBundle();
    ASSERT_EQ(::rename(at("MacOS").c_str(), at("Binaries").c_str()), 0);
    testsupport::makeLink("Binaries", at("MacOS"));
    seal();
    EXPECT_EQ(verify(), Problem::missingExecutable());
}

TEST_F(InstalledAppVerifierTest, AnExecutableEditedAfterSealingHasAnInvalidSignature) {
    makeSealedBundle();
    testsupport::writeFile(at("MacOS/Tavio"), "#!/bin/sh\necho Tavio, patched\n", 0755);
    const auto problem = verify();
    EXPECT_EQ(problem, Problem::invalidSignature());
    EXPECT_EQ(problem->explanation(),
              "Skipped: not a verified Tavio app (the code signature is not valid)");
}

TEST_F(InstalledAppVerifierTest, AnUnsealedBundleHasAnInvalidSignature) {
    makeBundle();
    EXPECT_EQ(verify(), Problem::invalidSignature());
}

TEST_F(InstalledAppVerifierTest, ABundleSealedForAnotherIdentifierHasAnInvalidSignature) {
    makeBundle();
    seal("org.example.Player");
    EXPECT_EQ(verify(), Problem::invalidSignature());
}

}  // namespace
