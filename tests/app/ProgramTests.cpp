#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "ProgramLauncher.h"
#include "TempDir.h"
#include "target/MainBundle.h"

// The real program, as built: its bundle layout, that it leaves no trace in
// the home folder, that it quits on each termination signal, and that a copy
// run from its own folder in the temporary folder removes that folder (and
// only such a copy).

namespace {

using namespace programtest;
using testsupport::TempDir;
namespace fs = std::filesystem;

const std::string kExecutable = UNINSTALLER_PATH;

std::string bundleOf(const std::string& executable) {
    return fs::path(executable).parent_path().parent_path().parent_path().string();
}

class ProgramTest : public ::testing::Test {
  protected:
    void SetUp() override {
        testsupport::makeDirectories(temp_ / "home");
        testsupport::makeDirectories(temp_ / "tmp");
        testsupport::makeDirectories(temp_ / "scratch");
        // A temporary folder as every system has it: anyone may create in it.
        ASSERT_EQ(::chmod((temp_ / "tmp").c_str(), 01777), 0);
    }

    Launch launch(std::string executable = kExecutable) const {
        Launch how;
        how.executable = std::move(executable);
        how.home = temp_ / "home";
        how.temporary = temp_ / "tmp";
        how.scratch = temp_ / "scratch";
        return how;
    }

    // Runs `launch` and expects a clean exit; skips where namespaces are not
    // available.
    void runExpectingCleanExit(const Launch& how) {
        const std::string ended = runProgram(how);
        if (ended.rfind("skip: ", 0) == 0) {
            GTEST_SKIP() << ended.substr(6);
        }
        EXPECT_EQ(ended, "exit 0");
    }

    // A copy of the built bundle at `folder`/Uninstall Tavio.app; returns
    // its executable.
    std::string copyBundleInto(const std::string& folder) const {
        testsupport::makeDirectories(folder);
        const fs::path bundle = bundleOf(kExecutable);
        const fs::path copy = fs::path(folder) / bundle.filename();
        fs::copy(bundle, copy, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        return (copy / fs::relative(kExecutable, bundle)).string();
    }

    TempDir temp_;
};

// Runs the program and, where it could not run at all, ends the test there.
#define RUN_EXPECTING_CLEAN_EXIT(how)      \
    do {                                   \
        runExpectingCleanExit(how);        \
        if (IsSkipped() || HasFailure()) { \
            return;                        \
        }                                  \
    } while (false)

TEST_F(ProgramTest, IsLaidOutAsAnAppBundleNamingItsTarget) {
    const std::string bundle = bundleOf(kExecutable);
    EXPECT_EQ(fs::path(bundle).filename(), "Uninstall Tavio.app");
    EXPECT_EQ(fs::path(kExecutable).parent_path().filename(), "MacOS");
    EXPECT_TRUE(testsupport::isDirectory(bundle + "/Contents/Resources"));
    const auto info = target::MainBundle::load(bundle + "/Contents/Info.plist");
    EXPECT_EQ(info.targetString("TavioTargetBundleIdentifier", ""), "io.tavio.Tavio");
    EXPECT_EQ(info.targetString("TavioTargetAppName", ""), "Tavio.app");
    EXPECT_EQ(info.targetString("CFBundleExecutable", ""), fs::path(kExecutable).filename());
    EXPECT_EQ(info.targetString("CFBundleIdentifier", ""), "io.tavio.Tavio.Uninstaller");
    EXPECT_EQ(info.targetString("CFBundlePackageType", ""), "APPL");
}

TEST_F(ProgramTest, LeavesTheHomeFolderExactlyAsItWas) {
    const std::string home = temp_ / "home";
    testsupport::writeFile(home + "/.profile", "# mine\n");
    testsupport::makeDirectories(home + "/Downloads");
    testsupport::writeFile(home + "/Downloads/film.torrent", "d8:announce0:e");
    testsupport::makeDirectories(home + "/Library/Preferences");
    testsupport::writeFile(home + "/Library/Preferences/other.app.plist", "<plist/>");
    const Snapshot before = snapshot(home);

    RUN_EXPECTING_CLEAN_EXIT(launch());
    EXPECT_EQ(describeDifference(before, snapshot(home)), "");
}

// With a real window on an X server and no session bus, which is when
// graphics drivers and the bus library are most tempted to keep something.
TEST_F(ProgramTest, LeavesTheHomeFolderExactlyAsItWasOnAnXServer) {
    const std::string home = temp_ / "home";
    testsupport::writeFile(home + "/.profile", "# mine\n");
    const Snapshot before = snapshot(home);

    Launch how = launch();
    how.onXServer = true;
    RUN_EXPECTING_CLEAN_EXIT(how);
    EXPECT_EQ(describeDifference(before, snapshot(home)), "");
}

TEST_F(ProgramTest, LeavesAnEmptyHomeFolderEmpty) {
    const Snapshot before = snapshot(temp_ / "home");
    RUN_EXPECTING_CLEAN_EXIT(launch());
    EXPECT_EQ(describeDifference(before, snapshot(temp_ / "home")), "");
}

TEST_F(ProgramTest, QuitsOnEachTerminationSignal) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        Launch how = launch();
        how.signal = signal;
        SCOPED_TRACE(signal);
        RUN_EXPECTING_CLEAN_EXIT(how);
    }
}

TEST_F(ProgramTest, ACopyInItsOwnTemporaryFolderRemovesThatFolder) {
    const std::string folder = temp_ / "tmp/io.tavio.Tavio.uninstaller-K3x9";
    RUN_EXPECTING_CLEAN_EXIT(launch(copyBundleInto(folder)));
    EXPECT_FALSE(testsupport::exists(folder));
    EXPECT_TRUE(testsupport::isDirectory(temp_ / "tmp"));
}

TEST_F(ProgramTest, ACopyOneLevelDeeperIsLeftAlone) {
    const std::string folder = temp_ / "tmp/outer/io.tavio.Tavio.uninstaller-K3x9";
    const std::string executable = copyBundleInto(folder);
    RUN_EXPECTING_CLEAN_EXIT(launch(executable));
    EXPECT_TRUE(testsupport::exists(executable));
}

TEST_F(ProgramTest, ACopyWithoutThePrefixIsLeftAlone) {
    const std::string executable = copyBundleInto(temp_ / "tmp/uninstaller-K3x9");
    RUN_EXPECTING_CLEAN_EXIT(launch(executable));
    EXPECT_TRUE(testsupport::exists(executable));
}

TEST_F(ProgramTest, TheTemporaryFolderIsComparedWithLinksResolved) {
    testsupport::makeDirectories(temp_ / "real-tmp");
    testsupport::makeLink(temp_ / "real-tmp", temp_ / "tmp-link");
    const std::string folder = temp_ / "real-tmp/io.tavio.Tavio.uninstaller-K3x9";
    Launch how = launch(copyBundleInto(folder));
    how.temporary = temp_ / "tmp-link";
    RUN_EXPECTING_CLEAN_EXIT(how);
    EXPECT_FALSE(testsupport::exists(folder));
}

// The single-instance lock: a normal end leaves none, in the runtime folder
// or, without one, in the temporary folder.
TEST_F(ProgramTest, LeavesNoLockBehindInTheRuntimeFolder) {
    RUN_EXPECTING_CLEAN_EXIT(launch());
    EXPECT_EQ(testsupport::listNames(temp_ / "scratch/runtime"), std::vector<std::string>{});
}

TEST_F(ProgramTest, LeavesNoLockBehindWithoutARuntimeFolder) {
    Launch how = launch();
    how.runtimeFolder = false;
    RUN_EXPECTING_CLEAN_EXIT(how);
    EXPECT_EQ(locksIn(temp_ / "tmp"), std::vector<std::string>{});
    EXPECT_EQ(testsupport::listNames(temp_ / "home"), std::vector<std::string>{});
}

// Another user got there first and holds a lock on a file of the lock's
// name in the temporary folder: the program still starts (its lock goes to
// the home folder instead), and leaves the other file as it found it. The
// program runs as root of its own user namespace, named by the id 0 there.
TEST_F(ProgramTest, AnotherUsersFileAtTheLockPlaceDoesNotKeepItFromStarting) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to make a file of another user";
    }
    const std::string foreign = temp_ / ("tmp/" + lockName(0));
    const ForeignLock held(foreign);
    Launch how = launch();
    how.runtimeFolder = false;
    RUN_EXPECTING_CLEAN_EXIT(how);
    EXPECT_EQ(locksIn(temp_ / "tmp"), std::vector<std::string>{lockName(0)});
    struct stat st {};
    ASSERT_EQ(::stat(foreign.c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, kAnotherUser);
    EXPECT_EQ(st.st_size, 0);
    EXPECT_EQ(testsupport::listNames(temp_ / "home"), std::vector<std::string>{});
}

}  // namespace
