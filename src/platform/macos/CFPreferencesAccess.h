#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <vector>

#include "target/PreferencesAccess.h"

namespace platform {

// The current user's preferences through Core Foundation. Only the current
// user's own preferences are read or changed; keys are removed through the
// preferences system (which owns the files), never by deleting a file.
class CFPreferencesAccess final : public target::PreferencesAccess {
  public:
    // Any host first, then the current host.
    CFPreferencesAccess() : hosts{kCFPreferencesAnyHost, kCFPreferencesCurrentHost} {}
    explicit CFPreferencesAccess(std::vector<CFStringRef> hosts) : hosts(std::move(hosts)) {}

    // Host selectors (kCFPreferencesAnyHost, kCFPreferencesCurrentHost), in
    // the order they are consulted. They are system constants, never released.
    std::vector<CFStringRef> hosts;

    bool hasValues(const std::string& domain) const override;
    void removeAll(const std::string& domain) const override;
};

}  // namespace platform
