#pragma once

#include <memory>

#include "target/AppVerifying.h"
#include "target/PreferencesAccess.h"
#include "target/ProcessControlling.h"
#include "target/UninstallContext.h"

namespace platform {

// This system's own adapters for one context: the running copies of the
// product, its preferences on any host and then on this host, and the
// installed-app check. Every front end wires its engine with these, so the
// window and the command line act on exactly the same things. Defined per
// system beside this header.
struct SystemAdapters {
    std::shared_ptr<const target::ProcessControlling> processes;
    std::shared_ptr<const target::PreferencesAccess> preferences;
    std::shared_ptr<const target::AppVerifying> verifier;

    static SystemAdapters make(const target::UninstallContext& context);
};

}  // namespace platform
