#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <map>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"
#include "platform/WorkspaceProcessControl.h"
#include "platform/linux/ProcessTable.h"
#include "target/PropertyList.h"

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

// Whether the bundle's Info.plist names `identifier`: yes, no, or nothing
// known. Only a bundle that is plainly something else says no: its path
// leads through a file or a link, or its Info.plist is not a regular file,
// is too large or is not a property list. A bundle or Info.plist that is
// missing says nothing: the program may run from a bundle that was moved or
// deleted since it started, and it may be Tavio. The bundle path comes from
// the kernel and holds no links; its last two levels are still opened
// without following any, like every other read of the user's files.
enum class Declares { yes, no, unknown };

Declares declarationOf(int error) {
    return error == ENOTDIR || error == ELOOP ? Declares::no : Declares::unknown;
}

Declares declarationOf(target::PropertyList::ReadFailure failure) {
    using ReadFailure = target::PropertyList::ReadFailure;
    switch (failure) {
        case ReadFailure::notARegularFile:
        case ReadFailure::tooLarge:
        case ReadFailure::malformed:
            return Declares::no;
        case ReadFailure::missing:
        case ReadFailure::unreadable:
            return Declares::unknown;
    }
    return Declares::unknown;
}

Declares declaresIdentifier(const std::string& bundle, const std::string& identifier) {
    UniqueFd bundleFD(sys::open(bundle.c_str(), sys::kFolderFlags));
    if (!bundleFD) {
        return declarationOf(errno);
    }
    UniqueFd contentsFD(sys::openFolderAt(bundleFD.get(), "Contents"));
    if (!contentsFD) {
        return declarationOf(errno);
    }
    const auto read = target::PropertyList::readAt(contentsFD.get(), "Info.plist");
    if (const auto* failure = std::get_if<target::PropertyList::ReadFailure>(&read)) {
        return declarationOf(*failure);
    }
    const auto declared = std::get<target::PropertyList>(read).stringValue("CFBundleIdentifier");
    return declared && *declared == identifier ? Declares::yes : Declares::no;
}

}  // namespace

WorkspaceProcessControl::Look WorkspaceProcessControl::look() const {
    Look look;
    std::map<std::string, Declares> bundles;  // each bundle is read once per call
    const uid_t user = ::getuid();
    const pid_t self = ::getpid();
    const OwnedProcesses owned = processesOwnedBy(user);
    look.complete = owned.complete;
    for (const pid_t pid : owned.pids) {
        if (pid == self) {
            continue;
        }
        auto described = describeProcess(pid, user);
        if (const auto* failure = std::get_if<LookFailure>(&described)) {
            look.complete = look.complete && *failure != LookFailure::unknown;
            continue;
        }
        auto& instance = std::get<ProcessInstance>(described);
        const auto bundle = enclosingBundle(instance.executable);
        if (!bundle) {
            continue;
        }
        auto [entry, inserted] = bundles.try_emplace(*bundle, Declares::no);
        if (inserted) {
            entry->second = declaresIdentifier(*bundle, bundleIdentifier);
        }
        if (entry->second == Declares::yes) {
            look.instances.push_back(std::move(instance));
        } else if (entry->second == Declares::unknown) {
            look.complete = false;
        }
    }
    return look;
}

std::vector<ProcessInstance> WorkspaceProcessControl::runningInstances() const {
    return look().instances;
}

// A look that could not see everything cannot rule Tavio out: deleting its
// files while it may run is what this check exists to prevent.
bool WorkspaceProcessControl::isRunning() const {
    const Look now = look();
    return !now.complete || !now.instances.empty();
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
