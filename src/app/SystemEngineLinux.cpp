#include <memory>

#include "app/SystemServices.h"
#include "platform/InstalledAppVerifier.h"
#include "platform/WorkspaceProcessControl.h"
#include "platform/linux/FilePreferencesAccess.h"

namespace app {

engine::UninstallEngine makeSystemEngine(const target::UninstallContext& context) {
    using platform::PreferencesHost;
    return engine::UninstallEngine{
        context,
        std::make_shared<platform::WorkspaceProcessControl>(context.bundleIdentifier,
                                                            context.applicationDirectories),
        std::make_shared<platform::FilePreferencesAccess>(
            context.homeDirectory,
            std::vector<PreferencesHost>{PreferencesHost::anyHost, PreferencesHost::currentHost},
            platform::FilePreferencesAccess::machineID(), context.userID),
        std::make_shared<platform::InstalledAppVerifier>(),
        kQuitTimeout,
        kPollInterval,
    };
}

}  // namespace app
