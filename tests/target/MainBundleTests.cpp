#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ChildProcess.h"
#include "PlistText.h"
#include "TempDir.h"
#include "target/MainBundle.h"

namespace {

using target::MainBundle;

TEST(MainBundlePathTest, AProgramInsideAnAppBundleUsesTheBundlesInfoPlist) {
    EXPECT_EQ(MainBundle::infoPropertyListPath("/opt/Uninstall Tavio.app/Contents/MacOS/uninstall"),
              "/opt/Uninstall Tavio.app/Contents/Info.plist");
}

TEST(MainBundlePathTest, AProgramOutsideABundleUsesTheInfoPlistBesideIt) {
    EXPECT_EQ(MainBundle::infoPropertyListPath("/usr/local/bin/uninstall"),
              "/usr/local/bin/Info.plist");
    EXPECT_EQ(MainBundle::infoPropertyListPath("/opt/Contents/MacOS/uninstall"),
              "/opt/Contents/MacOS/Info.plist");
    EXPECT_EQ(MainBundle::infoPropertyListPath("/opt/X.app/MacOS/uninstall"),
              "/opt/X.app/MacOS/Info.plist");
}

TEST(MainBundlePathTest, AFolderNamedOnlyDotAppIsNoBundle) {
    EXPECT_EQ(MainBundle::infoPropertyListPath("/opt/.app/Contents/MacOS/uninstall"),
              "/opt/.app/Contents/MacOS/Info.plist");
}

TEST(MainBundlePathTest, AProgramInTheRootFolder) {
    EXPECT_EQ(MainBundle::infoPropertyListPath("/uninstall"), "/Info.plist");
}

TEST(MainBundlePathTest, AnUnknownOrRelativeProgramPathHasNoInfoPlist) {
    EXPECT_EQ(MainBundle::infoPropertyListPath(""), "");
    EXPECT_EQ(MainBundle::infoPropertyListPath("bin/uninstall"), "");
}

class MainBundleTest : public ::testing::Test {
  protected:
    std::string lookUp(const std::string& key) const {
        return MainBundle::load(path()).targetString(key, "fallback");
    }
    std::string path() const { return temp_ / "Info.plist"; }
    void write(const std::string& body) const {
        testsupport::writeFile(path(), testplist::xml("<dict>" + body + "</dict>"));
    }

    testsupport::TempDir temp_;
};

TEST_F(MainBundleTest, ANonEmptyStringIsTheValue) {
    write("<key>TavioTargetAppName</key><string>Tavio Beta.app</string>");
    EXPECT_EQ(lookUp("TavioTargetAppName"), "Tavio Beta.app");
}

TEST_F(MainBundleTest, TheEmptyStringFallsBack) {
    write("<key>TavioTargetAppName</key><string></string>");
    EXPECT_EQ(lookUp("TavioTargetAppName"), "fallback");
}

TEST_F(MainBundleTest, TheNumberFiveFallsBack) {
    write("<key>TavioTargetAppName</key><integer>5</integer>");
    EXPECT_EQ(lookUp("TavioTargetAppName"), "fallback");
}

TEST_F(MainBundleTest, AnArrayFallsBack) {
    write("<key>TavioTargetAppName</key><array><string>Tavio.app</string></array>");
    EXPECT_EQ(lookUp("TavioTargetAppName"), "fallback");
}

TEST_F(MainBundleTest, AMissingKeyFallsBack) {
    write("<key>Other</key><string>x</string>");
    EXPECT_EQ(lookUp("TavioTargetAppName"), "fallback");
}

TEST_F(MainBundleTest, ABinaryListIsRead) {
    testsupport::writeFile(
        path(), testplist::binary(testplist::xml("<dict><key>TavioTargetBundleIdentifier</key>"
                                                 "<string>org.example.Beta</string></dict>")));
    EXPECT_EQ(lookUp("TavioTargetBundleIdentifier"), "org.example.Beta");
}

TEST_F(MainBundleTest, AMissingFileFallsBack) {
    EXPECT_EQ(lookUp("TavioTargetAppName"), "fallback");
}

TEST_F(MainBundleTest, AMalformedFileFallsBack) {
    testsupport::writeFile(path(), "<plist><dict><key>TavioTargetAppName</key><string>x");
    EXPECT_EQ(lookUp("TavioTargetAppName"), "fallback");
}

TEST_F(MainBundleTest, ATopLevelArrayFallsBack) {
    testsupport::writeFile(path(), testplist::xml("<array><string>TavioTargetAppName</string>"
                                                  "<string>x</string></array>"));
    EXPECT_EQ(lookUp("TavioTargetAppName"), "fallback");
}

TEST_F(MainBundleTest, AFolderInPlaceOfTheFileFallsBack) {
    testsupport::makeDirectories(path());
    EXPECT_EQ(lookUp("TavioTargetAppName"), "fallback");
}

TEST_F(MainBundleTest, ALinkInPlaceOfTheFileIsNotFollowed) {
    testsupport::writeFile(temp_ / "real.plist",
                           testplist::xml("<dict><key>TavioTargetAppName</key>"
                                          "<string>Elsewhere.app</string></dict>"));
    testsupport::makeLink("real.plist", path());
    EXPECT_EQ(lookUp("TavioTargetAppName"), "fallback");
}

TEST_F(MainBundleTest, AFifoInPlaceOfTheFileFallsBackWithoutBlocking) {
    ASSERT_EQ(::mkfifo(path().c_str(), 0644), 0);
    const auto answer = testsupport::runInChild([this] {
        ::alarm(5);
        return lookUp("TavioTargetAppName");
    });
    EXPECT_EQ(answer, "fallback");
}

TEST_F(MainBundleTest, ARelativePathIsNeverRead) {
    write("<key>TavioTargetAppName</key><string>Tavio Beta.app</string>");
    const auto answer = testsupport::runInChild([this] {
        if (::chdir(temp_.path().c_str()) != 0) {
            return std::string("chdir failed");
        }
        return MainBundle::load("Info.plist").targetString("TavioTargetAppName", "fallback");
    });
    EXPECT_EQ(answer, "fallback");
}

}  // namespace
