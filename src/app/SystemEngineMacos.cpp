#include <memory>

#include "app/SystemServices.h"
#include "platform/InstalledAppVerifier.h"
#include "platform/WorkspaceProcessControl.h"
#include "platform/macos/CFPreferencesAccess.h"

namespace app {

engine::UninstallEngine makeSystemEngine(const target::UninstallContext& context) {
    return engine::UninstallEngine{
        context,
        std::make_shared<platform::WorkspaceProcessControl>(context.bundleIdentifier),
        std::make_shared<platform::CFPreferencesAccess>(
            std::vector<CFStringRef>{kCFPreferencesAnyHost, kCFPreferencesCurrentHost}),
        std::make_shared<platform::InstalledAppVerifier>(),
        kQuitTimeout,
        kPollInterval,
    };
}

}  // namespace app
