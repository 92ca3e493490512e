#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "PackageFixture.h"
#include "ProgramLauncher.h"
#include "TempDir.h"

// The Debian package, built from this build tree with cpack, unpacked into a
// scratch root, and the program started from there.
namespace {

using namespace packagetest;
namespace fs = std::filesystem;

TEST_F(PackageTest, HoldsTheWholeBundle) {
    const std::string executable = root() + "/" + kBundle + "/Contents/MacOS/Uninstall Tavio";
    struct stat st {};
    ASSERT_EQ(::lstat(executable.c_str(), &st), 0) << executable;
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_TRUE(st.st_mode & S_IXUSR);
    EXPECT_EQ(testsupport::readFile(root() + "/" + kBundle + "/Contents/Info.plist"),
              testsupport::readFile(UT_BUILT_INFO_PLIST));
    EXPECT_TRUE(testsupport::isDirectory(root() + "/" + kBundle + "/Contents/Resources"));
}

// The launcher is the command line in the bundle, which opens the window
// beside it when given no option; the schema of its JSON ships with it.
TEST_F(PackageTest, TheLauncherLeadsToTheCommandLineInTheBundle) {
    const std::string launcher = root() + "/usr/bin/uninstall-tavio";
    ASSERT_TRUE(testsupport::isLink(launcher));
    EXPECT_EQ(fs::read_symlink(launcher).string(),
              "../lib/uninstall-tavio/Uninstall Tavio.app/Contents/MacOS/uninstall-tavio");
    EXPECT_EQ(fs::canonical(launcher),
              fs::canonical(root() + "/" + kBundle + "/Contents/MacOS/uninstall-tavio"));
    EXPECT_EQ(testsupport::readFile(root() + "/usr/share/uninstall-tavio/report.schema.json"),
              testsupport::readFile(UT_REPORT_SCHEMA));
}

TEST_F(PackageTest, HasADesktopEntryAndTheIcon) {
    const std::string entry = testsupport::readFile(root() + "/" + kDesktopEntry);
    EXPECT_EQ(entry.rfind("[Desktop Entry]\n", 0), 0u);
    for (const char* line :
         {"\nType=Application\n", "\nName=Uninstall Tavio\n", "\nExec=uninstall-tavio\n",
          "\nIcon=io.tavio.Tavio.Uninstaller\n", "\nName[de]=Tavio deinstallieren\n"}) {
        EXPECT_NE(entry.find(line), std::string::npos) << line;
    }
    EXPECT_EQ(testsupport::readFile(root() + "/" + kIcon), testsupport::readFile(UT_APP_ICON));
}

TEST_F(PackageTest, NamesWhatTheProgramNeeds) {
    EXPECT_EQ(field("Package"), "uninstall-tavio\n");
    const std::string depends = field("Depends");
    for (const char* package : {"libqt6quick6", "libqt6qml6", "libqt6gui6", "libplist3", "libssl3",
                                "qml6-module-qtquick-controls", "qml6-module-qtquick-layouts",
                                "qml6-module-qtqml-workerscript"}) {
        EXPECT_NE(depends.find(package), std::string::npos) << package << " not in " << depends;
    }
}

// Started through the launcher from the unpacked root, with an empty home,
// in namespaces of its own: it shows its window, ends with status 0 on
// SIGTERM and leaves the home and the unpacked package as they were.
TEST_F(PackageTest, TheInstalledProgramStartsAndQuits) {
    testsupport::TempDir run;
    const std::string home = run / "home";
    testsupport::makeDirectories(home);
    testsupport::makeDirectories(run / "tmp");
    testsupport::makeDirectories(run / "scratch");
    const programtest::Snapshot homeBefore = programtest::snapshot(home);
    const programtest::Snapshot rootBefore = programtest::snapshot(root());

    programtest::Launch launch;
    launch.executable = root() + "/usr/bin/uninstall-tavio";
    launch.home = home;
    launch.temporary = run / "tmp";
    launch.scratch = run / "scratch";
    const std::string ended = programtest::runProgram(launch);
    if (ended.rfind("skip: ", 0) == 0) {
        GTEST_SKIP() << ended;
    }
    EXPECT_EQ(ended, "exit 0");
    EXPECT_EQ(programtest::describeDifference(homeBefore, programtest::snapshot(home)), "");
    EXPECT_EQ(programtest::describeDifference(rootBefore, programtest::snapshot(root())), "");
}

}  // namespace
