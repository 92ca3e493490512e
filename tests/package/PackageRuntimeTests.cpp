#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "PackageFixture.h"
#include "ProgramLauncher.h"
#include "TempDir.h"

// The installed program as a desktop sees it: what it loads from the system
// while its window is up, and how its window names itself.
namespace {

using namespace packagetest;

class InstalledProgramTest : public PackageTest {
  protected:
    void SetUp() override {
        PackageTest::SetUp();
        for (const char* folder : {"home", "tmp", "scratch"}) {
            testsupport::makeDirectories(run_ / folder);
        }
    }

    // The installed program, started through its launcher on an X server.
    programtest::Launch launch() const {
        programtest::Launch how;
        how.executable = root() + "/usr/bin/uninstall-tavio";
        how.home = run_ / "home";
        how.temporary = run_ / "tmp";
        how.scratch = run_ / "scratch";
        how.onXServer = true;
        return how;
    }

    testsupport::TempDir run_;
};

// Every file named in a mapping of /proc/PID/maps.
void addMappedFiles(const std::string& maps, std::set<std::string>& files) {
    std::istringstream in(maps);
    for (std::string line; std::getline(in, line);) {
        const std::size_t slash = line.find(" /");
        if (slash != std::string::npos) {
            std::string path = line.substr(slash + 1);
            const std::size_t deleted = path.rfind(" (deleted)");
            files.insert(deleted == std::string::npos ? path : path.substr(0, deleted));
        }
    }
}

// Every absolute path that strace saw opened successfully.
void addOpenedFiles(const std::string& log, std::set<std::string>& files) {
    static const std::regex open(R"(open(at2?)?\((AT_FDCWD, )?\"(/[^\"]*)\")");
    std::istringstream in(log);
    for (std::string line; std::getline(in, line);) {
        std::smatch match;
        if (std::regex_search(line, match, open)) {
            files.insert(match[3]);
        }
    }
}

bool anyContains(const std::set<std::string>& files, const std::string& part) {
    for (const std::string& file : files) {
        if (file.find(part) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// Everything the running program mapped or opened from the system belongs to
// a package that the package's Depends reach: installed with
// --no-install-recommends, it still opens its window.
TEST_F(InstalledProgramTest, LoadsNothingItsDependsDoNotBring) {
    const ToolAnswer strace = runTool("strace", "-V");
    EXPECT_TOOL_FOUND(strace, "strace");
    programtest::Launch how = launch();
    how.openedFilesLog = run_ / "opened.log";
    const std::string maps = run_ / "maps";
    how.whileRunning = [maps](pid_t program, const std::string&) {
        std::ifstream in("/proc/" + std::to_string(program) + "/maps");
        std::ofstream out(maps);
        out << in.rdbuf();
    };
    const std::string ended = programtest::runProgram(how);
    if (ended.rfind("skip: ", 0) == 0) {
        GTEST_SKIP() << ended.substr(6);
    }
    ASSERT_EQ(ended, "exit 0");

    std::set<std::string> files;
    addMappedFiles(testsupport::readFile(maps), files);
    addOpenedFiles(testsupport::readFile(how.openedFilesLog), files);
    // What opening the window takes, so that an empty record cannot pass.
    for (const char* needed : {"/libQt6Quick.so", "/platforms/libqxcb.so", "/qml/QtQuick/Controls/",
                               "/imageformats/libqsvg.so", "/libplist"}) {
        EXPECT_TRUE(anyContains(files, needed)) << needed << " was not loaded";
    }
    std::ostringstream list;
    for (const std::string& file : files) {
        list << file << '\n';
    }
    testsupport::writeFile(run_ / "files", list.str());
    std::string depends = field("Depends");
    depends.erase(depends.find_last_not_of('\n') + 1);
    const std::string log = run_ / "check.log";
    const int status =
        run("/usr/bin/python3 '" UT_CHECK_DEPENDENCIES "' --depends '" + depends + "' --files '" +
                (run_ / "files") + "' --skip '" + root() + "' --skip '" + (run_ / "") + "'",
            log);
    EXPECT_EQ(status, 0) << testsupport::readFile(log);
}

// The platform plugins of both kinds of session are named outright: a
// platform plugin is loaded by name at run time, so nothing finds it
// through the linked libraries.
TEST_F(InstalledProgramTest, DependsOnThePlatformPluginsOfX11AndWayland) {
    const std::string depends = field("Depends");
    for (const char* package : {"qt6-qpa-plugins", "qt6-wayland", "qml6-module-qtquick-controls"}) {
        EXPECT_NE(depends.find(package), std::string::npos) << package << " not in " << depends;
    }
    EXPECT_EQ(field("Recommends").find("qt6-qpa-plugins"), std::string::npos);
}

// The window names its desktop entry as its X11 class and carries the
// program's icon, so a task switcher shows the entry's name and icon.
TEST_F(InstalledProgramTest, TheWindowNamesItsDesktopEntryAndCarriesItsIcon) {
    for (const char* tool : {"xprop", "xwininfo"}) {
        const ToolAnswer answer = runTool(tool, "-version");
        EXPECT_TOOL_FOUND(answer, tool);
    }
    // Without a window manager, the program's windows are the root's children.
    const std::string script = run_ / "properties.sh";
    testsupport::writeFile(
        script,
        "id=$(xwininfo -root -tree | awk '/\"Uninstall Tavio\"/ {print $1; exit}')\n"
        "echo \"window $id\"\n"
        "xprop -id \"$id\" WM_CLASS _NET_WM_ICON | head -n 20\n");
    const std::string properties = run_ / "properties";
    programtest::Launch how = launch();
    how.whileRunning = [script, properties](pid_t, const std::string& display) {
        (void)run("DISPLAY='" + display + "' sh '" + script + "'", properties);
    };
    const std::string ended = programtest::runProgram(how);
    if (ended.rfind("skip: ", 0) == 0) {
        GTEST_SKIP() << ended.substr(6);
    }
    EXPECT_EQ(ended, "exit 0");
    const std::string found = testsupport::readFile(properties);
    EXPECT_NE(found.find("WM_CLASS(STRING) = \"uninstall-tavio\", \"io.tavio.Tavio.Uninstaller\""),
              std::string::npos)
        << found;
    EXPECT_NE(found.find("_NET_WM_ICON(CARDINAL) = "), std::string::npos) << found;
}

}  // namespace
