#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "ProgramLauncher.h"
#include "TempDir.h"

// The Debian package, built from this build tree with cpack, unpacked into a
// scratch root, and the program started from there.
namespace {

namespace fs = std::filesystem;

const std::string kBundle = "usr/lib/uninstall-tavio/Uninstall Tavio.app";
const std::string kDesktopEntry = "usr/share/applications/io.tavio.Tavio.Uninstaller.desktop";
const std::string kIcon = "usr/share/icons/hicolor/scalable/apps/io.tavio.Tavio.Uninstaller.svg";

// Runs a shell command; its output goes to `log`. The exit status.
int run(const std::string& command, const std::string& log) {
    const int status = std::system((command + " >'" + log + "' 2>&1").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class PackageTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        temp_ = std::make_unique<testsupport::TempDir>();
        const std::string out = *temp_ / "out";
        const std::string log = *temp_ / "cpack.log";
        if (run("cpack --config '" UT_CPACK_CONFIG "' -B '" + out + "'", log) != 0) {
            problem_ = "cpack failed:\n" + testsupport::readFile(log);
            return;
        }
        for (const auto& entry : fs::directory_iterator(out)) {
            if (entry.path().extension() == ".deb") {
                deb_ = entry.path();
            }
        }
        if (deb_.empty()) {
            problem_ = "cpack made no .deb:\n" + testsupport::readFile(log);
            return;
        }
        if (run("dpkg-deb -x '" + deb_ + "' '" + root() + "'", *temp_ / "x.log") != 0) {
            problem_ = "dpkg-deb -x failed:\n" + testsupport::readFile(*temp_ / "x.log");
        }
    }
    static void TearDownTestSuite() { temp_.reset(); }

    void SetUp() override { ASSERT_TRUE(problem_.empty()) << problem_; }

    static std::string root() { return *temp_ / "root"; }
    static std::string field(const std::string& name) {
        const std::string log = *temp_ / "field.log";
        (void)run("dpkg-deb -f '" + deb_ + "' " + name, log);
        return testsupport::readFile(log);
    }

    static std::unique_ptr<testsupport::TempDir> temp_;
    static std::string deb_;
    static std::string problem_;
};

std::unique_ptr<testsupport::TempDir> PackageTest::temp_;
std::string PackageTest::deb_;
std::string PackageTest::problem_;

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

TEST_F(PackageTest, TheLauncherLeadsToTheBundle) {
    const std::string launcher = root() + "/usr/bin/uninstall-tavio";
    ASSERT_TRUE(testsupport::isLink(launcher));
    EXPECT_EQ(fs::read_symlink(launcher).string(),
              "../lib/uninstall-tavio/Uninstall Tavio.app/Contents/MacOS/Uninstall Tavio");
    EXPECT_EQ(fs::canonical(launcher),
              fs::canonical(root() + "/" + kBundle + "/Contents/MacOS/Uninstall Tavio"));
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
    if (::access("/usr/bin/desktop-file-validate", X_OK) == 0) {
        const std::string log = *temp_ / "validate.log";
        EXPECT_EQ(run("desktop-file-validate '" + root() + "/" + kDesktopEntry + "'", log), 0)
            << testsupport::readFile(log);
    }
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
