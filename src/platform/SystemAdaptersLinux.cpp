#include <memory>
#include <vector>

#include "platform/InstalledAppVerifier.h"
#include "platform/SystemAdapters.h"
#include "platform/WorkspaceProcessControl.h"
#include "platform/linux/FilePreferencesAccess.h"

namespace platform {

SystemAdapters SystemAdapters::make(const target::UninstallContext& context) {
    return {
        std::make_shared<WorkspaceProcessControl>(context.bundleIdentifier,
                                                  context.applicationDirectories),
        std::make_shared<FilePreferencesAccess>(
            context.homeDirectory,
            std::vector<PreferencesHost>{PreferencesHost::anyHost, PreferencesHost::currentHost},
            FilePreferencesAccess::machineID(), context.userID),
        std::make_shared<InstalledAppVerifier>(),
    };
}

}  // namespace platform
