// tavio-seal as a program: what a packager runs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "AppBundleFixture.h"

namespace {

// The exit status of tavio-seal with `arguments`, its output discarded.
int runSealTool(const std::vector<std::string>& arguments) {
    std::vector<char*> argv{const_cast<char*>(TAVIO_SEAL_PATH)};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int spawned =
        ::posix_spawn(&pid, TAVIO_SEAL_PATH, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        return -1;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

using SealToolTest = appbundle::AppBundleTest;

TEST_F(SealToolTest, ASealedBundlePassesTheCheck) {
    makeBundle();
    EXPECT_EQ(runSealTool({bundle(), appbundle::kIdentifier}), 0);
    EXPECT_EQ(testsupport::readFile(sealPath()).rfind("bplist00", 0), 0u);
    EXPECT_EQ(verify(), std::nullopt);
}

TEST_F(SealToolTest, XmlIsWrittenOnRequest) {
    makeBundle();
    EXPECT_EQ(runSealTool({"--xml", bundle(), appbundle::kIdentifier}), 0);
    EXPECT_EQ(testsupport::readFile(sealPath()).rfind("<?xml", 0), 0u);
    EXPECT_EQ(verify(), std::nullopt);
}

TEST_F(SealToolTest, WrongArgumentsGiveTheUsageStatus) {
    EXPECT_EQ(runSealTool({}), 2);
    EXPECT_EQ(runSealTool({bundle()}), 2);
    EXPECT_EQ(runSealTool({bundle(), ""}), 2);
    EXPECT_EQ(runSealTool({bundle(), "a", "b"}), 2);
}

TEST_F(SealToolTest, AMissingBundleFails) {
    EXPECT_EQ(runSealTool({bundle(), appbundle::kIdentifier}), 1);
}

}  // namespace
