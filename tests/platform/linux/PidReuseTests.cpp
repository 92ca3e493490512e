// A process id that is freed can be handed to any new process. In a pid
// namespace of its own a test can choose the next id (ns_last_pid), and so
// make an unrelated program take exactly the id of a copy of the product that
// was found, after that copy exited and was reaped. The request to quit must
// never reach the newcomer.
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ChildProcess.h"
#include "ProcessFixture.h"
#include "platform/WorkspaceProcessControl.h"

namespace {

using platform::WorkspaceProcessControl;

bool chooseNextPid(pid_t next) {
    const int fd = ::open("/proc/sys/kernel/ns_last_pid", O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const std::string last = std::to_string(next - 1);
    const bool written = ::write(fd, last.data(), last.size()) == static_cast<ssize_t>(last.size());
    ::close(fd);
    return written;
}

// Runs as the first process of the new pid namespace.
std::string reuseInsideNamespace(const std::string& bundled, const std::string& identifier) {
    if (::mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        return std::string("skip:cannot mount /proc in a pid namespace: ") + std::strerror(errno);
    }
    const WorkspaceProcessControl control(identifier);
    std::optional<platform::ProcessInstance> found;
    {
        auto player = testsupport::ProcessFixture::startPlayer(bundled);
        const auto instances = control.runningInstances();
        if (instances.size() != 1) {
            return "found=" + std::to_string(instances.size());
        }
        found = instances[0];
        player->signal(SIGKILL);
        if (!player->waitForExit()) {
            return "the copy did not exit";
        }
    }
    if (!chooseNextPid(found->pid)) {
        return std::string("skip:cannot choose the next pid: ") + std::strerror(errno);
    }
    auto unrelated = testsupport::ProcessFixture::startPlayer(TAVIO_PLAYER_PATH);
    const bool reused = unrelated->pid() == found->pid;
    const bool asked = control.askToQuit(*found);
    control.requestQuit();
    const auto lines = unrelated->linesBeforePing();
    return "reused=" + std::to_string(reused) + " asked=" + std::to_string(asked) +
           " lines=" + (lines ? testsupport::joined(*lines) : "timeout");
}

// Runs in a child of the test: makes the namespaces, then the namespace's
// first process, and hands back its answer.
std::string reuseScenario(const std::string& bundled, const std::string& identifier) {
    if (const std::string reason = testsupport::enterPrivateMountNamespace(); !reason.empty()) {
        return "skip:" + reason;
    }
    if (::unshare(CLONE_NEWPID) != 0) {
        return std::string("skip:pid namespaces are not available: ") + std::strerror(errno);
    }
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return "pipe2 failed";
    }
    const pid_t first = ::fork();
    if (first == 0) {
        ::close(fds[0]);
        std::string answer;
        try {
            answer = reuseInsideNamespace(bundled, identifier);
        } catch (const std::exception& e) {
            answer = std::string("exception: ") + e.what();
        }
        _exit(::write(fds[1], answer.data(), answer.size()) < 0 ? 1 : 0);
    }
    ::close(fds[1]);
    std::string answer;
    char buffer[512];
    ssize_t n = 0;
    while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR)) {
        answer.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    }
    ::close(fds[0]);
    (void)::waitpid(first, nullptr, 0);
    return answer;
}

class PidReuseTest : public testsupport::ProcessFixture {};

TEST_F(PidReuseTest, IdReusedByAnUnrelatedProgramAfterTheCopyWasReapedIsNotSignalled) {
    const std::string bundled = installBundle(temp / "Applications", identifier);

    const auto answer = testsupport::runInChild([&] { return reuseScenario(bundled, identifier); });

    ASSERT_TRUE(answer.has_value());
    if (answer->starts_with("skip:")) {
        GTEST_SKIP() << answer->substr(5);
    }
    EXPECT_EQ(*answer, "reused=1 asked=0 lines=");
}

}  // namespace
