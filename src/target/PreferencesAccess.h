#pragma once

#include <string>

namespace target {

// The current user's preferences for one domain, on each of the adapter's
// hosts (for example "any host" and "this machine"). Only the current user's
// own preferences are ever read or changed.
//
// Implementations are stateless and may be called from any thread. Neither
// operation reports errors: what cannot be read holds no keys, and what the
// removal left behind is found by the caller's next hasValues().
class PreferencesAccess {
  public:
    virtual ~PreferencesAccess() = default;

    // True when the domain holds at least one key on any host. False when
    // every host is empty or the adapter has no hosts.
    virtual bool hasValues(const std::string& domain) const = 0;

    // Removes every key of the domain on each host and writes the change
    // through. A host without keys is left alone (nothing is written).
    virtual void removeAll(const std::string& domain) const = 0;

  protected:
    PreferencesAccess() = default;
    PreferencesAccess(const PreferencesAccess&) = default;
    PreferencesAccess& operator=(const PreferencesAccess&) = default;
};

}  // namespace target
