#include "CaseWorkers.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <sstream>

#include "ChildProcess.h"

namespace faulttest {
namespace {

// The cases of one call are shared out among this many processes. A case is
// mostly waiting (for its child, and for Tavio to start and quit), so they
// overlap well even on two cores.
constexpr int kWorkers = 4;

// In a worker: runs every kWorkers-th case from `first` and writes what is
// wrong with each failing one to `fd`, one record each.
[[noreturn]] void beWorker(const CaseRunner& runCase,
                           const std::vector<faults::Fault>& cases,
                           std::size_t first,
                           int fd) {
    std::string records;
    for (std::size_t i = first; i < cases.size(); i += kWorkers) {
        if (const auto problem = runCase(cases[i])) {
            records += *problem + '\x1e';
        }
    }
    if (!testsupport::writeAll(fd, records)) {
        _exit(1);
    }
    _exit(0);
}

}  // namespace

// Each worker takes every kWorkers-th case.

std::size_t runCases(const std::vector<faults::Fault>& cases, const CaseRunner& runCase) {
    std::vector<std::pair<pid_t, int>> workers;
    for (std::size_t first = 0; first < kWorkers && first < cases.size(); ++first) {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) {
            ADD_FAILURE() << "pipe2 failed";
            break;
        }
        std::cout.flush();
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::close(fds[0]);
            beWorker(runCase, cases, first, fds[1]);
        }
        ::close(fds[1]);
        if (pid < 0) {
            ::close(fds[0]);
            ADD_FAILURE() << "fork failed";
            break;
        }
        workers.emplace_back(pid, fds[0]);
    }
    std::size_t failed = 0;
    for (const auto& [pid, fd] : workers) {
        std::istringstream records(testsupport::readToEnd(fd));
        ::close(fd);
        std::string record;
        while (std::getline(records, record, '\x1e')) {
            ADD_FAILURE() << record;
            ++failed;
        }
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            ADD_FAILURE() << "a worker running fault cases did not finish";
        }
    }
    return failed;
}

}  // namespace faulttest
