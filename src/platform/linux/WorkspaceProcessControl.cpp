#include "platform/linux/WorkspaceProcessControl.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <map>

#include "platform/linux/ProcessTable.h"
#include "removal/UniqueFd.h"
#include "target/PropertyList.h"

namespace platform {
namespace {

using removal::UniqueFd;

// glibc 2.36 declares neither call in a header we can rely on everywhere, so
// both go through syscall(). pidfd_open gives a close-on-exec descriptor.
UniqueFd openPidfd(pid_t pid) {
    return UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0U)));
}

bool sendThroughPidfd(int pidfd, int signal) {
    return ::syscall(SYS_pidfd_send_signal, pidfd, signal, nullptr, 0U) == 0;
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? std::string() : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The bundle that holds an executable at <bundle>.app/Contents/MacOS/<exe>,
// or nothing when the executable lies anywhere else.
std::optional<std::string> enclosingBundle(const std::string& executable) {
    const std::string macOS = parentOf(executable);
    const std::string contents = parentOf(macOS);
    const std::string bundle = parentOf(contents);
    const std::string bundleName = nameOf(bundle);
    if (nameOf(macOS) != "MacOS" || nameOf(contents) != "Contents" || bundleName.size() <= 4 ||
        !bundleName.ends_with(".app")) {
        return std::nullopt;
    }
    return bundle;
}

// Whether the bundle's Info.plist names `identifier`. The bundle path comes
// from the kernel and holds no links; its last two levels are still opened
// without following any, like every other read of the user's files.
bool declaresIdentifier(const std::string& bundle, const std::string& identifier) {
    UniqueFd bundleFD(::open(bundle.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!bundleFD) {
        return false;
    }
    UniqueFd contentsFD(
        ::openat(bundleFD.get(), "Contents", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!contentsFD) {
        return false;
    }
    const auto read = target::PropertyList::readAt(contentsFD.get(), "Info.plist");
    const auto* info = std::get_if<target::PropertyList>(&read);
    if (info == nullptr) {
        return false;
    }
    const auto declared = info->stringValue("CFBundleIdentifier");
    return declared && *declared == identifier;
}

}  // namespace

std::vector<ProcessInstance> WorkspaceProcessControl::runningInstances() const {
    std::vector<ProcessInstance> instances;
    std::map<std::string, bool> bundleMatches;  // each bundle is read once per call
    const uid_t user = ::getuid();
    const pid_t self = ::getpid();
    for (const pid_t pid : processesOwnedBy(user)) {
        if (pid == self) {
            continue;
        }
        auto instance = describeProcess(pid, user);
        const auto bundle = instance ? enclosingBundle(instance->executable) : std::nullopt;
        if (!bundle) {
            continue;
        }
        auto [entry, inserted] = bundleMatches.try_emplace(*bundle, false);
        if (inserted) {
            entry->second = declaresIdentifier(*bundle, bundleIdentifier);
        }
        if (entry->second) {
            instances.push_back(std::move(*instance));
        }
    }
    return instances;
}

bool WorkspaceProcessControl::isRunning() const {
    return !runningInstances().empty();
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
    if (!now || *now != instance) {
        return false;
    }
    return sendThroughPidfd(pidfd.get(), SIGTERM);
}

}  // namespace platform
