#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"
#include "platform/WorkspaceProcessControl.h"
#include "platform/linux/HiddenProcess.h"
#include "platform/linux/ProcessTable.h"
#include "target/UninstallContext.h"

namespace platform {
namespace {

using base::UniqueFd;

// glibc 2.36 declares neither call in a header we can rely on everywhere, so
// both go through syscall(). pidfd_open gives a close-on-exec descriptor.
UniqueFd openPidfd(pid_t pid) {
    return UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0U)));
}

bool sendThroughPidfd(int pidfd, int signal) {
    return ::syscall(SYS_pidfd_send_signal, pidfd, signal, nullptr, 0U) == 0;
}

// The name a bundle "Tavio.app" conventionally gives its executable.
std::string conventionalExecutableName() {
    const std::string& app = target::UninstallContext::appName();
    return app.ends_with(".app") ? app.substr(0, app.size() - 4) : app;
}

}  // namespace

// A process whose executable the kernel shows is judged by the bundle around
// that executable; one whose executable is hidden, afterwards, by what it says
// of itself, against the names that the bundles seen meanwhile give.
WorkspaceProcessControl::Look WorkspaceProcessControl::look() const {
    Look look;
    BundleDeclarations bundles(bundleIdentifier);
    std::vector<ProcessInstance> hidden;
    const uid_t user = ::getuid();
    const OwnedProcesses owned = processesOwnedBy(user);
    look.complete = owned.complete;
    for (const pid_t pid : owned.pids) {
        if (pid == ::getpid()) {
            continue;
        }
        auto described = describeProcess(pid, user);
        if (const auto* failure = std::get_if<LookFailure>(&described)) {
            look.complete = look.complete && *failure != LookFailure::unknown;
            continue;
        }
        auto& instance = std::get<ProcessInstance>(described);
        if (instance.executableHidden()) {
            hidden.push_back(std::move(instance));
            continue;
        }
        const auto bundle = enclosingBundle(instance.executable);
        const Declares declares = bundle ? bundles.of(*bundle) : Declares::no;
        look.complete = look.complete && declares != Declares::unknown;
        if (declares == Declares::yes) {
            look.instances.push_back(std::move(instance));
        }
    }
    judgeHidden(hidden, bundles, look);
    return look;
}

void WorkspaceProcessControl::judgeHidden(std::vector<ProcessInstance>& hidden,
                                          BundleDeclarations& bundles,
                                          Look& look) const {
    if (hidden.empty()) {
        return;  // the application folders are read only when needed
    }
    std::set<std::string> known{conventionalExecutableName()};
    for (const ProcessInstance& instance : look.instances) {
        known.insert(lastComponent(instance.executable));
    }
    const ProductExecutableNames names =
        productExecutableNames(applicationDirectories, std::move(known), bundles);
    for (ProcessInstance& instance : hidden) {
        const Verdict verdict = judgeHiddenProcess(instance, names, bundles);
        look.complete = look.complete && verdict != Verdict::unknown;
        if (verdict == Verdict::product) {
            look.instances.push_back(std::move(instance));
        }
    }
    std::sort(look.instances.begin(), look.instances.end(),
              [](const ProcessInstance& a, const ProcessInstance& b) { return a.pid < b.pid; });
}

std::vector<ProcessInstance> WorkspaceProcessControl::runningInstances() const {
    return look().instances;
}

// A look that could not see everything cannot rule Tavio out: deleting its
// files while it may run is what this check exists to prevent. A copy seen
// running is running, whatever else could not be seen.
target::ProcessControlling::Running WorkspaceProcessControl::lookForCopies() const {
    const Look now = look();
    if (!now.instances.empty()) {
        return Running::yes;
    }
    return now.complete ? Running::no : Running::cannotTell;
}

bool WorkspaceProcessControl::isRunning() const {
    return lookForCopies() != Running::no;
}

void WorkspaceProcessControl::requestQuit() const {
    for (const ProcessInstance& instance : runningInstances()) {
        (void)askToQuit(instance);
    }
}

// The pidfd is taken first and the process described afterwards: if the id
// was reused before pidfd_open, the description shows the newcomer and the
// comparison fails; if it matches, the pidfd refers to the process that was
// found, and the signal reaches it or, should it have exited since, no one.
bool WorkspaceProcessControl::askToQuit(const ProcessInstance& instance) const {
    if (instance.pid <= 0 || instance.pid == ::getpid()) {
        return false;
    }
    const UniqueFd pidfd = openPidfd(instance.pid);
    if (!pidfd) {
        return false;
    }
    const auto now = describeProcess(instance.pid, ::getuid());
    const auto* same = std::get_if<ProcessInstance>(&now);
    if (same == nullptr || *same != instance) {
        return false;
    }
    return sendThroughPidfd(pidfd.get(), SIGTERM);
}

}  // namespace platform
