// The judgement of a process whose executable is hidden, on what it says of
// itself, against bundles made in a temporary folder.
#include "ProcessFixture.h"
#include "platform/linux/HiddenProcess.h"

namespace {

using platform::BundleDeclarations;
using platform::ProcessInstance;
using platform::ProductExecutableNames;
using platform::Verdict;

class HiddenProcessTest : public testsupport::ProcessFixture {
  protected:
    BundleDeclarations bundles{identifier};

    static ProcessInstance said(std::string commandName, std::string firstArgument) {
        ProcessInstance process;
        process.pid = 4242;
        process.commandName = std::move(commandName);
        process.firstArgument = std::move(firstArgument);
        return process;
    }

    ProductExecutableNames namesIn(const std::vector<std::string>& folders) {
        return productExecutableNames(folders, {"Tavio"}, bundles);
    }

    Verdict judge(const ProcessInstance& process, const ProductExecutableNames& names) {
        return judgeHiddenProcess(process, names, bundles);
    }
};

TEST_F(HiddenProcessTest, NamesComeFromTheMacOSFoldersOfTavioBundlesOnly) {
    installBundle(temp / "Applications", identifier, TAVIO_PLAYER_PATH, "Tavio Beta.app",
                  "TavioBeta");
    installBundle(temp / "Applications", identifier + ".Other", TAVIO_PLAYER_PATH, "Other.app",
                  "other");
    testsupport::writeFile(temp / "Applications/Tavio Beta.app/Contents/MacOS/helper", "");

    const auto names = namesIn({temp / "Applications", temp / "missing"});

    EXPECT_TRUE(names.complete);
    EXPECT_EQ(names.names, (std::set<std::string>{"Tavio", "Tavio Beta", "TavioBeta", "helper"}));
}

TEST_F(HiddenProcessTest, BundleWithoutAReadableInfoPlistGivesItsNamesToo) {
    installBundle(temp / "Applications", identifier, TAVIO_PLAYER_PATH, "Mystery.app", "mystery");
    testsupport::removeAll(temp / "Applications/Mystery.app/Contents/Info.plist");

    EXPECT_EQ(namesIn({temp / "Applications"}).names,
              (std::set<std::string>{"Mystery", "Tavio", "mystery"}));
}

TEST_F(HiddenProcessTest, AgentsAndOtherProgramsAreNotTavio) {
    const auto names = namesIn({temp / "Applications"});

    EXPECT_EQ(judge(said("ssh-agent", "/usr/bin/ssh-agent"), names), Verdict::other);
    EXPECT_EQ(judge(said("gpg-agent", "gpg-agent"), names), Verdict::other);
    EXPECT_EQ(judge(said("kworker", ""), names), Verdict::other);
}

TEST_F(HiddenProcessTest, NameItWasStartedByMakesItTavio) {
    const auto names = namesIn({temp / "Applications"});

    EXPECT_EQ(judge(said("Tavio", ""), names), Verdict::product);
    EXPECT_EQ(judge(said("renamed", "/usr/local/bin/Tavio"), names), Verdict::product);
    EXPECT_EQ(judge(said("renamed", "Tavio"), names), Verdict::product);
}

// The kernel keeps the first 15 bytes of the name a process was started by.
TEST_F(HiddenProcessTest, CommandNameIsComparedOnTheBytesTheKernelKeeps) {
    installBundle(temp / "Applications", identifier, TAVIO_PLAYER_PATH, "Tavio.app",
                  "Tavio Player Nightly");
    const auto names = namesIn({temp / "Applications"});

    EXPECT_EQ(judge(said("Tavio Player Ni", ""), names), Verdict::product);
    EXPECT_EQ(judge(said("Tavio Player N", ""), names), Verdict::other);
}

TEST_F(HiddenProcessTest, PathThroughABundleIsJudgedByThatBundle) {
    installBundle(temp / "Downloads", identifier, TAVIO_PLAYER_PATH, "Copy.app", "copy");
    installBundle(temp / "Downloads", identifier + ".Other", TAVIO_PLAYER_PATH, "Other.app",
                  "other");
    const auto names = namesIn({});

    EXPECT_EQ(judge(said("copy", temp / "Downloads/Copy.app/Contents/MacOS/copy"), names),
              Verdict::product);
    // A helper anywhere inside the bundle is part of it too.
    EXPECT_EQ(judge(said("h", temp / "Downloads/Copy.app/Contents/Resources/h"), names),
              Verdict::product);
    EXPECT_EQ(judge(said("other", temp / "Downloads/Other.app/Contents/MacOS/other"), names),
              Verdict::other);
}

// Where a relative path leads depends on the process's working folder, which
// is hidden too; through a bundle, it may lead to Tavio's.
TEST_F(HiddenProcessTest, RelativePathThroughABundleIsUnknown) {
    const auto names = namesIn({});

    EXPECT_EQ(judge(said("x", "Copy.app/Contents/MacOS/x"), names), Verdict::unknown);
    EXPECT_EQ(judge(said("x", "./bin/x"), names), Verdict::other);
}

TEST_F(HiddenProcessTest, BundleOnThePathThatIsGoneIsUnknown) {
    EXPECT_EQ(judge(said("x", temp / "Gone.app/Contents/MacOS/x"), namesIn({})), Verdict::unknown);
}

// Names that may be missing leave every unmatched process unknown; a match
// is still a match.
TEST_F(HiddenProcessTest, IncompleteNamesLeaveAnUnmatchedProcessUnknown) {
    ProductExecutableNames names{.names = {"Tavio"}, .complete = false};

    EXPECT_EQ(judge(said("ssh-agent", "ssh-agent"), names), Verdict::unknown);
    EXPECT_EQ(judge(said("Tavio", ""), names), Verdict::product);
}

}  // namespace
