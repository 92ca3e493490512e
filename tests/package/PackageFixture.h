#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "TempDir.h"

// The Debian package, built once per test program (the first suite that
// needs it builds it, the others share it) from this build tree with
// cpack and unpacked into a scratch root that every test of the suite reads.
namespace packagetest {

inline const std::string kBundle = "usr/lib/uninstall-tavio/Uninstall Tavio.app";
inline const std::string kDesktopEntry =
    "usr/share/applications/io.tavio.Tavio.Uninstaller.desktop";
inline const std::string kMetainfo = "usr/share/metainfo/io.tavio.Tavio.Uninstaller.metainfo.xml";
inline const std::string kIcon =
    "usr/share/icons/hicolor/scalable/apps/io.tavio.Tavio.Uninstaller.svg";

// Runs a shell command; its output and errors go to `log`. The exit status,
// or -1 when it did not exit.
int run(const std::string& command, const std::string& log);

// What a checking tool said about something, after making sure that the
// tool is there at all: a missing tool is a broken machine (scripts/setup.sh
// installs every one of them), never a reason to pass.
struct ToolAnswer {
    bool found = false;
    int status = -1;
    std::string output;
};
ToolAnswer runTool(const std::string& tool, const std::string& arguments);

#define EXPECT_TOOL_FOUND(answer, tool)                                                  \
    ASSERT_TRUE((answer).found) << tool << " is missing; scripts/setup.sh installs it (" \
                                << (answer).output << ")"

class PackageTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite();

    void SetUp() override { ASSERT_TRUE(problem_.empty()) << problem_; }

    static std::string root() { return *temp_ / "root"; }
    static const std::string& deb() { return deb_; }
    static std::string field(const std::string& name);

  private:
    static std::unique_ptr<testsupport::TempDir> temp_;
    static std::string deb_;
    static std::string problem_;
};

}  // namespace packagetest
