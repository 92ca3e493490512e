#include "PackageFixture.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

namespace packagetest {

namespace fs = std::filesystem;

std::unique_ptr<testsupport::TempDir> PackageTest::temp_;
std::string PackageTest::deb_;
std::string PackageTest::problem_;

int run(const std::string& command, const std::string& log) {
    const int status = std::system((command + " >'" + log + "' 2>&1").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

ToolAnswer runTool(const std::string& tool, const std::string& arguments) {
    testsupport::TempDir scratch;
    const std::string log = scratch / "tool.log";
    ToolAnswer answer;
    answer.found = run("command -v " + tool, log) == 0;
    if (!answer.found) {
        answer.output = "not on PATH";
        return answer;
    }
    answer.status = run(tool + " " + arguments, log);
    answer.output = testsupport::readFile(log);
    return answer;
}

void PackageTest::SetUpTestSuite() {
    if (temp_) {
        return;
    }
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

std::string PackageTest::field(const std::string& name) {
    const std::string log = *temp_ / "field.log";
    (void)run("dpkg-deb -f '" + deb_ + "' " + name, log);
    return testsupport::readFile(log);
}

}  // namespace packagetest
