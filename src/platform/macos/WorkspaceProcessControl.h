#pragma once

#include <string>

#include "target/ProcessControlling.h"

namespace platform {

// The running copies of the product on macOS, as the workspace lists them
// (NSRunningApplication by bundle identifier). A copy that has terminated but
// is still listed does not count, and neither does the uninstaller's own
// process. Quitting is the ordinary terminate request, as if the user had
// chosen Quit; nothing is ever force-quit.
class WorkspaceProcessControl final : public target::ProcessControlling {
  public:
    explicit WorkspaceProcessControl(std::string bundleIdentifier)
        : bundleIdentifier(std::move(bundleIdentifier)) {}

    // The product's bundle identifier.
    std::string bundleIdentifier;

    bool isRunning() const override;
    void requestQuit() const override;
};

}  // namespace platform
