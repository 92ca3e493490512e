#pragma once

#include <memory>

#include "app/DesktopActions.h"
#include "engine/UninstallEngine.h"
#include "target/UninstallContext.h"

// What the program is wired with on the system it runs on: the engine with
// the system's adapters (platform/SystemAdapters.h), which the command line
// shares, and the desktop services, one implementation per system beside
// this header (SystemDesktopActions*.cpp).
namespace app {

// The engine for `context` with this platform's own adapters: the running
// copies of the product, its preferences on any host and then on this host,
// and the installed-app check; it waits for Tavio as long as the engine
// does by default.
engine::UninstallEngine makeSystemEngine(const target::UninstallContext& context);

// The clipboard, existence test and file viewer of this platform.
std::shared_ptr<DesktopActions> makeSystemDesktopActions();

}  // namespace app
