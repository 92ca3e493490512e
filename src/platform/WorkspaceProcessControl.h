#pragma once

#include <string>

#include "target/ProcessControlling.h"

#if !defined(__APPLE__)
#include <vector>

#include "platform/linux/BundleDeclarations.h"
#include "platform/linux/ProcessInstance.h"
#endif

namespace platform {

// The running copies of the product, and the polite request to quit them.
// The uninstaller's own process is never counted, and nothing is ever killed
// or force-quit. One implementation per system:
//
// - Linux: the copies are found in /proc among the processes of the current
//   user. A process whose executable the kernel shows is a copy of the
//   product when that executable lies directly in the "Contents/MacOS"
//   folder of a "*.app" bundle whose Contents/Info.plist declares
//   `bundleIdentifier` as its CFBundleIdentifier. A zombie (exited, not yet
//   reaped) counts as terminated.
//
//   The kernel hides the executable of some processes from their own user:
//   those that made themselves undumpable (ssh-agent and gpg-agent, which a
//   desktop session runs as a matter of course), those started set-user-id
//   or set-group-id, and those started with another group (newgrp, sg,
//   setpriv). Taking every such process for a running Tavio would make the
//   uninstaller wait for programs that have nothing to do with it, on every
//   ordinary desktop, and never remove anything. So such a process is judged
//   by what can still be read of it: the command name and the command line
//   it was started with (HiddenProcess.h). It is taken for Tavio, and asked
//   to quit like any other copy, when the path it was started by lies in a
//   bundle that declares Tavio, or when the name it was started by is one
//   that a Tavio bundle gives its executable (any name in the MacOS folder
//   of such a bundle in `applicationDirectories`, the executable of a copy
//   seen running, or the app's own name, "Tavio"). Otherwise readable facts
//   rule Tavio out, and it neither holds the uninstaller up nor gets a
//   signal. What remains is still refused: when even that cannot be read,
//   when a bundle on its path or a folder behind those names cannot be read,
//   or when the process table itself cannot be listed (or /proc is not our
//   own process table), Tavio counts as running, because nothing proves that
//   it is not. A process that renamed itself after it started cannot be told
//   apart this way; a copy of Tavio does not.
//
//   Quitting politely is SIGTERM, sent through a pidfd after checking that
//   the process behind the id is still the one that was found (same start
//   time, and the same executable or, when that is hidden, the same command
//   name and first argument), so that an id freed and reused by another
//   program is never signalled.
//
// - macOS: the copies are the ones the workspace lists (NSRunningApplication
//   by bundle identifier); a copy that has terminated but is still listed
//   does not count. Quitting is the ordinary terminate request, as if the
//   user had chosen Quit.
class WorkspaceProcessControl final : public target::ProcessControlling {
  public:
    explicit WorkspaceProcessControl(std::string bundleIdentifier)
        : bundleIdentifier(std::move(bundleIdentifier)) {}

    // The product's bundle identifier.
    std::string bundleIdentifier;

#if !defined(__APPLE__)
    // On Linux, also where copies are installed (UninstallContext's
    // application folders), whose bundles name the executables that a copy
    // with a hidden executable may have been started by.
    WorkspaceProcessControl(std::string bundleIdentifier,
                            std::vector<std::string> applicationDirectories)
        : bundleIdentifier(std::move(bundleIdentifier)),
          applicationDirectories(std::move(applicationDirectories)) {}

    std::vector<std::string> applicationDirectories;
#endif

    bool isRunning() const override;
    void requestQuit() const override;
#if !defined(__APPLE__)
    Running lookForCopies() const override;
#endif

#if !defined(__APPLE__)
    // The running copies now that could be found, in ascending order of
    // process id, without the caller's own process. Each bundle's Info.plist
    // is read once per call. The process table is Linux's own: the workspace
    // of macOS answers only the two questions above.
    std::vector<ProcessInstance> runningInstances() const;

    // Sends one SIGTERM to `instance` if the process that has its id is still
    // that process (same start time and executable) and has not terminated.
    // Returns whether the signal was sent. Never waits.
    bool askToQuit(const ProcessInstance& instance) const;

  private:
    // The copies found, and whether the whole process table could be read.
    struct Look {
        std::vector<ProcessInstance> instances;
        bool complete = true;
    };
    Look look() const;
    // Adds to `look` the processes among `hidden` that are taken for the
    // product, and marks it incomplete for those that may be.
    void judgeHidden(std::vector<ProcessInstance>& hidden,
                     BundleDeclarations& bundles,
                     Look& look) const;
#endif
};

}  // namespace platform
