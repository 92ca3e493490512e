#include "DescriptorCheck.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace testsupport {

std::set<int> openDescriptors() {
    std::set<int> fds;
    DIR* dir = ::opendir("/proc/self/fd");
    if (dir == nullptr) {
        return fds;
    }
    const int own = ::dirfd(dir);
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != ".." && std::atoi(name.c_str()) != own) {
            fds.insert(std::atoi(name.c_str()));
        }
    }
    ::closedir(dir);
    return fds;
}

namespace {

class DescriptorLeakListener : public ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo&) override { before_ = openDescriptors(); }

    void OnTestEnd(const ::testing::TestInfo& info) override {
        const std::set<int> after = openDescriptors();
        for (int fd : after) {
            if (before_.count(fd) == 0) {
                ADD_FAILURE() << info.test_suite_name() << "." << info.name()
                              << " leaked descriptor " << fd;
            }
        }
    }

    std::set<int> before_;
};

}  // namespace

void installDescriptorLeakCheck() {
    ::testing::UnitTest::GetInstance()->listeners().Append(new DescriptorLeakListener);
}

}  // namespace testsupport
