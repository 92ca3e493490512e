#include "app/SystemServices.h"
#include "platform/SystemAdapters.h"

namespace app {

engine::UninstallEngine makeSystemEngine(const target::UninstallContext& context) {
    platform::SystemAdapters adapters = platform::SystemAdapters::make(context);
    return engine::UninstallEngine{
        context,
        std::move(adapters.processes),
        std::move(adapters.preferences),
        std::move(adapters.verifier),
    };
}

}  // namespace app
