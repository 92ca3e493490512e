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
// Removing keys replaces the file atomically, in the format it had, and never
// writes into it. When no key is left, the file is removed instead. The
// steps, in this order:
//   1. The new content goes to a new file without a name in the file's
//      folder (O_TMPFILE), which gets the old file's permissions and is
//      flushed to disk (fsync).
//   2. It is given a temporary name in that folder (linkat).
//   3. Unless the old file was replaced meanwhile, it is renamed over the old
//      file (renameat).
//   4. The folder is flushed, which puts steps 2 and 3 on the disk.
// A crash (the process killed, the power cut) before step 2 leaves the old
// file whole and nothing beside it: a file without a name vanishes with the
// process, or when the file system is mounted again. Between steps 2 and 3
// it leaves the old file whole and, beside it, a complete temporary. After
// step 3, the new file is in place; a power cut before step 4 has finished
// may bring back the old file whole, with or without the temporary, never a
// mix: the new content was on the disk before it had any name. On a file
// system that cannot make a file without a name, step 1 makes it under its
// temporary name (O_EXCL), so a crash during steps 1 to 3 may leave a
// temporary, possibly half written, beside the old file whole. A failure
// (rather than a crash) at any step removes the temporary, or, should even
// that fail, leaves it to a later run as if the process had been killed.
//
// A temporary of the file <file> is named ".<file>.uninstall-tavio-" and eight
// characters out of 0-9 and a-z, a pattern of this program's own; see
// PreferencesTemporary.h. Whenever removeAll() or removeKeys() opens a host's
// folder, it first removes the leftover temporaries there of that host's
// file: entries whose name matches exactly, that are regular files of the
// user's with one name, last changed more than kLeftoverTemporaryAge (an
// hour) ago, so that another running copy's rewrite is never taken for a
// leftover. Each is looked at without following links and removed by its name
// in the folder where it was listed. Anything else with such a name (a link, a
// second name of a file, another user's file) is left alone.
//
// hasValues() removes nothing: it is the look of a scan, also made while the
// app may run again and nothing may be touched. But it answers true while a
// leftover of ours of any age is there, since a leftover holds the domain's
// settings: a scan then shows the settings as present, an uninstall calls
// removeAll(), and a leftover that could not be removed (too recent, or in a
// folder that refuses) makes the final check report the settings as still
// there. A folder that cannot be listed holds no leftovers, as a file that
// cannot be read holds no keys.
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
