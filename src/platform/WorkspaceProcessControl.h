#pragma once

#include <string>

#include "target/ProcessControlling.h"

#if !defined(__APPLE__)
#include <vector>

#include "platform/linux/ProcessInstance.h"
#endif

namespace platform {

// The running copies of the product, and the polite request to quit them.
// The uninstaller's own process is never counted, and nothing is ever killed
// or force-quit. One implementation per system:
//
// - Linux: the copies are found in /proc. A process is a copy of the product
//   when it belongs to the current user and its executable lies directly in
//   the "Contents/MacOS" folder of a "*.app" bundle whose Contents/Info.plist
//   declares `bundleIdentifier` as its CFBundleIdentifier. A zombie (exited,
//   not yet reaped) counts as terminated. When a look at the process table
//   fails (other than for a process that went away meanwhile), Tavio counts
//   as running: nothing proves that it is not. Quitting politely is SIGTERM,
//   sent through a pidfd after checking that the process behind the id is
//   still the one that was found, so that an id freed and reused by another
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

    bool isRunning() const override;
    void requestQuit() const override;

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
#endif
};

}  // namespace platform
