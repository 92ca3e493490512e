#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "target/PreferencesAccess.h"

namespace platform {

// Whose preferences of a domain: those for every machine, or those for this
// machine only.
enum class PreferencesHost {
    anyHost,
    currentHost,
};

// The user's preferences kept as property-list files, in the layout the
// preferences system of the product's home platform uses:
//   any host:     <home>/Library/Preferences/<domain>.plist
//   current host: <home>/Library/Preferences/ByHost/<domain>.<hostID>.plist
// The keys of a host are the top-level keys of that file's dictionary, XML
// or binary.
//
// The folders are reached one at a time from the home folder, each opened
// relative to the one before without following links and only when the
// user owns it, exactly like the walk to every removable item: a link in
// place of Library, Preferences, ByHost or the file means "no keys here" and
// nothing is written. A file that cannot be read, or is not a dictionary,
// holds no keys and is never rewritten.
//
// Removing keys replaces the file atomically: the new content goes to a new
// file in the same folder, is flushed to disk and then renamed over the old
// one, in the format the old one had. A crash at any point leaves either the
// old file whole or the new one. When no key is left, the file is removed.
class FilePreferencesAccess final : public target::PreferencesAccess {
  public:
    // The store below `homeDirectory` for the current user on this machine,
    // with both hosts, any host first.
    explicit FilePreferencesAccess(std::string homeDirectory);

    FilePreferencesAccess(std::string homeDirectory,
                          std::vector<PreferencesHost> hosts,
                          std::string hostID,
                          uid_t userID)
        : homeDirectory(std::move(homeDirectory)),
          hosts(std::move(hosts)),
          hostID(std::move(hostID)),
          userID(userID) {}

    std::string homeDirectory;
    // The hosts that hasValues() and removeAll() look at, in order.
    std::vector<PreferencesHost> hosts;
    // Names this machine's files. When it is empty or not a plain file-name
    // part, the current host holds nothing and is never written.
    std::string hostID;
    // Every folder on the way to a file must belong to this user.
    uid_t userID;

    // `domain` must be usable as a file name: an empty domain, one holding
    // "/" or a NUL, or "." or "..", stops the process (a programming error).
    bool hasValues(const std::string& domain) const override;
    void removeAll(const std::string& domain) const override;

    // The top-level keys of the domain's file on one host, in file order.
    std::vector<std::string> keys(const std::string& domain, PreferencesHost host) const;

    // Removes exactly these keys (those still there) from the domain's file on
    // one host; keys added since they were listed stay. Writes nothing when
    // none of them is there.
    void removeKeys(const std::string& domain,
                    PreferencesHost host,
                    const std::vector<std::string>& keys) const;

    // This machine's id from /etc/machine-id; empty when it cannot be read.
    static std::string machineID();
};

}  // namespace platform
