#include <gtest/gtest.h>

#include <string>

#include "PackageFixture.h"

// The checks that a distribution or a careful administrator runs first on a
// package and on a desktop's metadata, each with the tool's own words when
// it complains.
namespace {

using namespace packagetest;

// Every line a validator printed except the ones listed, which are known
// and accepted for the reason given where they are listed.
std::string linesOtherThan(const std::string& output, std::initializer_list<const char*> accepted) {
    std::string left;
    std::size_t start = 0;
    while (start < output.size()) {
        const std::size_t end = output.find('\n', start);
        const std::string line = output.substr(start, end - start);
        start = end == std::string::npos ? output.size() : end + 1;
        bool known = line.empty();
        for (const char* text : accepted) {
            known = known || line.find(text) != std::string::npos;
        }
        if (!known) {
            left += line + "\n";
        }
    }
    return left;
}

TEST_F(PackageTest, LintianFindsNothing) {
    // Informational tags are shown too, so that a new one is seen, but only
    // errors and warnings fail.
    const ToolAnswer answer =
        runTool("lintian", "--display-info --fail-on error,warning '" + deb() + "'");
    EXPECT_TOOL_FOUND(answer, "lintian");
    EXPECT_EQ(answer.status, 0) << answer.output;
    EXPECT_EQ(answer.output.find("E: "), std::string::npos) << answer.output;
    EXPECT_EQ(answer.output.find("W: "), std::string::npos) << answer.output;
}

TEST_F(PackageTest, TheDesktopEntryValidatesWithoutAHint) {
    const ToolAnswer answer =
        runTool("desktop-file-validate", "'" + root() + "/" + kDesktopEntry + "'");
    EXPECT_TOOL_FOUND(answer, "desktop-file-validate");
    EXPECT_EQ(answer.status, 0) << answer.output;
    EXPECT_EQ(answer.output, "");
}

TEST_F(PackageTest, TheAppStreamFileValidatesPedantically) {
    const ToolAnswer answer =
        runTool("appstreamcli", "validate --pedantic --no-net '" + root() + "/" + kMetainfo + "'");
    EXPECT_TOOL_FOUND(answer, "appstreamcli");
    EXPECT_EQ(answer.status, 0) << answer.output;
    // The id must be the desktop entry's name, which follows the product's
    // own mixed-case reverse-domain identifier (io.tavio.Tavio); the
    // validator's pedantic advice to write it in lower case is the only
    // remark accepted.
    EXPECT_EQ(linesOtherThan(answer.output,
                             {"P: io.tavio.Tavio.Uninstaller:", "cid-contains-uppercase-letter",
                              "Validation was successful"}),
              "")
        << answer.output;
}

TEST_F(PackageTest, TheAppStreamFileNamesTheDesktopEntry) {
    const std::string metainfo = testsupport::readFile(root() + "/" + kMetainfo);
    EXPECT_NE(metainfo.find("<id>io.tavio.Tavio.Uninstaller</id>"), std::string::npos);
    EXPECT_NE(metainfo.find("<launchable type=\"desktop-id\">io.tavio.Tavio.Uninstaller.desktop"
                            "</launchable>"),
              std::string::npos);
    EXPECT_NE(metainfo.find("<content_rating type=\"oars-1.1\""), std::string::npos);
    EXPECT_NE(metainfo.find("<release version=\"" UT_VERSION "\""), std::string::npos)
        << "the package's version has no release in " << kMetainfo;
}

TEST_F(PackageTest, CarriesTheLicencesTheChangelogAndTheManualPage) {
    const std::string doc = root() + "/usr/share/doc/uninstall-tavio/";
    const std::string copyright = testsupport::readFile(doc + "copyright");
    EXPECT_EQ(copyright.rfind("Format: https://www.debian.org/doc/packaging-manuals/"
                              "copyright-format/1.0/\n",
                              0),
              0u);
    EXPECT_NE(copyright.find("Files: src/ui/icons/tabler/*"), std::string::npos);
    EXPECT_TRUE(testsupport::exists(doc + "changelog.gz"));
    const ToolAnswer manual =
        runTool("man", "--warnings -l '" + root() + "/usr/share/man/man1/uninstall-tavio.1.gz'");
    EXPECT_TOOL_FOUND(manual, "man");
    EXPECT_EQ(manual.status, 0) << manual.output;
    for (const char* section : {"NAME", "ENVIRONMENT", "EXIT STATUS", "FILES", "LANGUAGE"}) {
        EXPECT_NE(manual.output.find(section), std::string::npos) << section;
    }
}

}  // namespace
