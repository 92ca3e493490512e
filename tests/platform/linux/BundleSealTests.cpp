#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "AppBundleFixture.h"
#include "ChildProcess.h"
#include "base/UniqueFd.h"
#include "target/BundleWalk.h"

namespace {

using Problem = target::AppVerificationProblem;

class BundleSealTest : public appbundle::AppBundleTest {
  protected:
    bool sealed() const { return platform::sealIsValid(bundle(), appbundle::kIdentifier); }

    // The verdict of a check run in a child with an alarm: a check that
    // blocked (on a FIFO, say) is killed and gives no answer.
    std::optional<std::string> verdictWithoutBlocking() const {
        return testsupport::runInChild([this] {
            ::alarm(5);
            const auto problem = verify();
            return std::string(problem == Problem::invalidSignature() ? "invalid"
                               : problem                              ? "other problem"
                                                                      : "valid");
        });
    }
};

TEST_F(BundleSealTest, AFreshBinarySealIsValid) {
    makeSealedBundle();
    EXPECT_EQ(testsupport::readFile(sealPath()).rfind("bplist00", 0), 0u);
    EXPECT_TRUE(sealed());
}

TEST_F(BundleSealTest, AFreshXmlSealIsValid) {
    makeBundle();
    seal(appbundle::kIdentifier, target::PropertyList::Format::xml);
    EXPECT_EQ(testsupport::readFile(sealPath()).rfind("<?xml", 0), 0u);
    EXPECT_TRUE(sealed());
}

TEST_F(BundleSealTest, ATamperedFileIsRefused) {
    makeSealedBundle();
    std::string icon = testsupport::readFile(at("Resources/Tavio.icns"));
    icon[icon.size() / 2] ^= 1;
    testsupport::writeFile(at("Resources/Tavio.icns"), icon);
    EXPECT_FALSE(sealed());
    EXPECT_EQ(verify(), Problem::invalidSignature());
}

TEST_F(BundleSealTest, AnAddedFileIsRefused) {
    makeSealedBundle();
    testsupport::writeFile(at("Resources/extra.dylib"), "injected");
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, AnAddedFileInTheSealFolderIsRefused) {
    makeSealedBundle();
    testsupport::writeFile(at("_CodeSignature/CodeRequirements"), "x");
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ARemovedFileIsRefused) {
    makeSealedBundle();
    ASSERT_EQ(::unlink(at("Resources/en.lproj/Localizable.strings").c_str()), 0);
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, AFileReplacedByALinkToTheSameBytesIsRefused) {
    makeSealedBundle();
    ASSERT_EQ(::rename(at("Resources/Tavio.icns").c_str(), at("Tavio.icns").c_str()), 0);
    testsupport::makeLink("../Tavio.icns", at("Resources/Tavio.icns"));
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ARetargetedLinkIsRefused) {
    makeSealedBundle();
    const std::string link = at("Frameworks/TavioCore.framework/Versions/Current");
    ASSERT_EQ(::unlink(link.c_str()), 0);
    testsupport::makeDirectories(at("Frameworks/TavioCore.framework/Versions/B"));
    testsupport::makeLink("B", link);
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ALinkThatEscapesTheBundleIsRefused) {
    makeSealedBundle();
    testsupport::writeFile(temp_ / "outside", "not part of the app");
    testsupport::makeLink("../../../outside", at("Resources/outside"));
    addToSeal("Resources/outside", "symlink", plist_new_string("../../../outside"));
    EXPECT_FALSE(sealed());
    EXPECT_EQ(verify(), Problem::invalidSignature());
}

TEST_F(BundleSealTest, AnAbsoluteLinkIsRefusedEvenIntoTheBundle) {
    makeSealedBundle();
    testsupport::makeLink(at("MacOS/Tavio"), at("Resources/tool"));
    addToSeal("Resources/tool", "symlink", plist_new_string(at("MacOS/Tavio").c_str()));
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ALinkThatLeavesOnlyThroughAnotherLinkIsRefused) {
    // Read as text "c/up/../.." stays in Contents; resolved, "c/up" is
    // Contents itself, so the two ".." lead out of the bundle.
    makeSealedBundle();
    testsupport::makeDirectories(at("c"));
    testsupport::makeLink("..", at("c/up"));
    testsupport::makeLink("c/up/../..", at("sneaky"));
    addToSeal("c/up", "symlink", plist_new_string(".."));
    addToSeal("sneaky", "symlink", plist_new_string("c/up/../.."));
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ALinkToTheBundleTopStaysInside) {
    makeBundle();
    testsupport::makeLink("..", at("Resources/up"));
    seal();
    EXPECT_TRUE(sealed());
}

TEST_F(BundleSealTest, ALinkLoopIsRefused) {
    makeSealedBundle();
    testsupport::makeLink("b", at("Resources/a"));
    testsupport::makeLink("a", at("Resources/b"));
    addToSeal("Resources/a", "symlink", plist_new_string("b"));
    addToSeal("Resources/b", "symlink", plist_new_string("a"));
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, AFifoInsideIsRefusedWithoutHanging) {
    makeSealedBundle();
    ASSERT_EQ(::mkfifo(at("Resources/pipe").c_str(), 0644), 0);
    EXPECT_EQ(verdictWithoutBlocking(), "invalid");
}

TEST_F(BundleSealTest, AFifoListedInTheSealIsStillRefusedWithoutHanging) {
    makeSealedBundle();
    ASSERT_EQ(::mkfifo(at("Resources/pipe").c_str(), 0644), 0);
    // The digest of nothing: what reading an empty FIFO would give.
    addToSeal("Resources/pipe", "hash2",
              plist_new_data("\xe3\xb0\xc4\x42\x98\xfc\x1c\x14\x9a\xfb\xf4\xc8\x99\x6f\xb9\x24"
                             "\x27\xae\x41\xe4\x64\x9b\x93\x4c\xa4\x95\x99\x1b\x78\x52\xb8\x55",
                             32));
    EXPECT_EQ(verdictWithoutBlocking(), "invalid");
}

TEST_F(BundleSealTest, ASocketInsideIsRefused) {
    makeSealedBundle();
    const base::UniqueFd sock(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = at("Resources/sock");
    if (path.size() >= sizeof address.sun_path) {
        GTEST_SKIP() << "temporary path too long for a socket";
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(::bind(sock.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ASealForAnotherIdentifierIsRefused) {
    makeBundle();
    seal("io.tavio.TavioBeta");
    EXPECT_FALSE(sealed());
    EXPECT_TRUE(platform::sealIsValid(bundle(), "io.tavio.TavioBeta"));
}

TEST_F(BundleSealTest, NoSealIsRefused) {
    makeBundle();
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ContentsThatIsALinkIsRefused) {
    makeSealedBundle();
    const std::string moved = temp_ / "RealContents";
    ASSERT_EQ(::rename(contents().c_str(), moved.c_str()), 0);
    testsupport::makeLink(moved, contents());
    EXPECT_FALSE(sealed());
    EXPECT_EQ(verify(), Problem::notAnAppBundle());
}

TEST_F(BundleSealTest, ASealThatIsALinkIsRefused) {
    makeSealedBundle();
    const std::string moved = temp_ / "CodeResources";
    ASSERT_EQ(::rename(sealPath().c_str(), moved.c_str()), 0);
    testsupport::makeLink(moved, sealPath());
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ASealFolderThatIsALinkIsRefused) {
    makeSealedBundle();
    const std::string moved = temp_ / "_CodeSignature";
    ASSERT_EQ(::rename(at("_CodeSignature").c_str(), moved.c_str()), 0);
    testsupport::makeLink(moved, at("_CodeSignature"));
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ASealThatIsAFolderIsRefused) {
    makeSealedBundle();
    ASSERT_EQ(::unlink(sealPath().c_str()), 0);
    testsupport::makeDirectories(sealPath());
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ASealThatIsAFifoIsRefusedWithoutHanging) {
    makeSealedBundle();
    ASSERT_EQ(::unlink(sealPath().c_str()), 0);
    ASSERT_EQ(::mkfifo(sealPath().c_str(), 0644), 0);
    EXPECT_EQ(verdictWithoutBlocking(), "invalid");
}

TEST_F(BundleSealTest, ATruncatedSealIsRefused) {
    makeSealedBundle();
    const std::string bytes = testsupport::readFile(sealPath());
    testsupport::writeFile(sealPath(), bytes.substr(0, bytes.size() - 5));
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ASealWithoutFilesIsRefused) {
    makeBundle();
    testsupport::makeDirectories(at("_CodeSignature"));
    testsupport::writeFile(
        sealPath(), appbundle::infoPlist(appbundle::keyString("Identifier", "io.tavio.Tavio")));
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, AnEntryWithBothADigestAndALinkIsRefused) {
    makeSealedBundle();
    auto list = target::PropertyList::parse(testsupport::readFile(sealPath()));
    plist_t entry = plist_dict_get_item(plist_dict_get_item(list->root(), "files2"), "MacOS/Tavio");
    plist_dict_set_item(entry, "symlink", plist_new_string("Tavio"));
    testsupport::writeFile(sealPath(), *list->serialized());
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ADigestOfTheWrongLengthIsRefused) {
    makeSealedBundle();
    addToSeal("MacOS/Tavio", "hash2", plist_new_data("short", 5));
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ASealListingItselfIsRefused) {
    makeSealedBundle();
    addToSeal("_CodeSignature/CodeResources", "hash2",
              plist_new_data(std::string(32, 'x').c_str(), 32));
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, SomethingBesideContentsAtTheTopIsRefused) {
    makeSealedBundle();
    testsupport::writeFile(bundle() + "/README", "extra");
    EXPECT_FALSE(sealed());
    EXPECT_EQ(verify(), Problem::invalidSignature());
}

TEST_F(BundleSealTest, AFolderNestedTooDeeplyIsRefused) {
    makeSealedBundle();
    std::string deep = at("Resources");
    for (int i = 0; i <= target::BundleWalk::kDepthLimit; ++i) {
        deep += "/d";
    }
    testsupport::makeDirectories(deep);
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, ResealingAfterAChangeMakesTheBundleValidAgain) {
    makeSealedBundle();
    testsupport::writeFile(at("Resources/extra"), "added by an update");
    ASSERT_FALSE(sealed());
    seal();
    EXPECT_TRUE(sealed());
}

TEST_F(BundleSealTest, TheWriterRefusesABundleWithAFifo) {
    makeBundle();
    ASSERT_EQ(::mkfifo(at("Resources/pipe").c_str(), 0644), 0);
    EXPECT_TRUE(platform::writeSeal(bundle(), appbundle::kIdentifier));
    EXPECT_FALSE(testsupport::exists(sealPath()));
}

TEST_F(BundleSealTest, TheWriterRefusesALinkLeavingTheBundle) {
    makeBundle();
    testsupport::makeLink("../../..", at("Resources/out"));
    EXPECT_TRUE(platform::writeSeal(bundle(), appbundle::kIdentifier));
    EXPECT_FALSE(testsupport::exists(sealPath()));
}

TEST_F(BundleSealTest, TheWriterRefusesSomethingBesideContents) {
    makeBundle();
    testsupport::writeFile(bundle() + "/README", "extra");
    EXPECT_TRUE(platform::writeSeal(bundle(), appbundle::kIdentifier));
}

TEST_F(BundleSealTest, TheWriterReportsANameThatIsNotUtf8) {
    makeBundle();
    testsupport::writeFile(at("Resources/caf\xE9.txt"), "latin-1 name");
    EXPECT_TRUE(platform::writeSeal(bundle(), appbundle::kIdentifier));
    EXPECT_FALSE(sealed());
}

TEST_F(BundleSealTest, NamesInUtf8AreSealed) {
    makeBundle();
    testsupport::writeFile(at("Resources/caf\xC3\xA9 \xE2\x80\x9Cx\xE2\x80\x9D.txt"), "utf-8 name");
    seal();
    EXPECT_TRUE(sealed());
}

TEST_F(BundleSealTest, TheWriterIgnoresAHalfWrittenSealOfAnEarlierRun) {
    makeBundle();
    testsupport::makeDirectories(at("_CodeSignature"));
    testsupport::writeFile(at("_CodeSignature/CodeResources.new"), "interrupted");
    seal();
    EXPECT_FALSE(testsupport::exists(at("_CodeSignature/CodeResources.new")));
    EXPECT_TRUE(sealed());
}

}  // namespace
