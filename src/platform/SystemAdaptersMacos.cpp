#include <memory>
#include <vector>

#include "platform/InstalledAppVerifier.h"
#include "platform/SystemAdapters.h"
#include "platform/WorkspaceProcessControl.h"
#include "platform/macos/CFPreferencesAccess.h"

namespace platform {

SystemAdapters SystemAdapters::make(const target::UninstallContext& context) {
    return {
        std::make_shared<WorkspaceProcessControl>(context.bundleIdentifier),
        std::make_shared<CFPreferencesAccess>(
            std::vector<CFStringRef>{kCFPreferencesAnyHost, kCFPreferencesCurrentHost}),
        std::make_shared<InstalledAppVerifier>(),
    };
}

}  // namespace platform
