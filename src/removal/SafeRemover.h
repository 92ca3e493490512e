#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/UniqueFd.h"
#include "removal/FileIdentity.h"
#include "removal/Presence.h"
#include "removal/RemovalFailure.h"
#include "removal/RemovalFilter.h"
#include "removal/RemovalOutcome.h"
#include "removal/Volume.h"

namespace removal {

// A path below the anchor, one single name per element: never empty, never
// containing "/", never "." or "..".
using Components = std::vector<std::string>;

// Probes and removes one item: the object named by a list of components below
// an anchor folder. Every operation starts with the same guarded walk: the
// anchor is opened once, then each component is reached relative to the
// previous folder's descriptor, refusing symbolic links and (with
// requiresOwnedAnchor) folders owned by someone else. A link swapped into the
// path between a check and a later use is therefore refused, not followed.
//
// Links in the anchor's own parent path are followed as usual; only the anchor
// itself and everything below it are guarded.
//
// A SafeRemover holds no state between calls; every descriptor it opens is
// closed before the call returns.
struct SafeRemover {
    // Absolute path of the folder below which the item lies.
    std::string anchor;
    // The current user's id, for the owner checks.
    uid_t userID = 0;
    // When true, the anchor, every folder on the way down and a final folder
    // must be owned by userID (the user's own Library). When false no owner is
    // checked anywhere (application folders owned by the system).
    bool requiresOwnedAnchor = true;

    // Whether something exists at the item's path now. Never follows a link:
    // a link, even a dangling one, is `present`. A missing anchor or parent is
    // `absent`; a refused walk is `unknown` with the reason.
    Presence presence(const Components& components) const;

    // The device and inode of the item when it is a folder; nothing for a
    // file, a link (even one to a folder), a missing item or a refused walk.
    std::optional<FileIdentity> identity(const Components& components) const;

    // Deletes the item: a link or file by one unlink relative to its parent,
    // a folder by the descriptor-relative tree removal. `expecting`, used only
    // for a folder, makes the removal refuse a folder that is no longer the
    // object it was when examined; anything but a folder in its place is
    // refused then too. `filter`, when given, decides which entries below
    // the folder may go (see RemovalFilter.h). The components are checked
    // first; an empty list, or an empty, "/"-containing, "." or ".."
    // component, stops the process: it is a programming error, never a
    // user's.
    RemovalOutcome remove(const Components& components,
                          const std::optional<FileIdentity>& expecting = std::nullopt,
                          const RemovalFilter* filter = nullptr) const;

  private:
    // What a successful walk holds open and found. Its descriptors close
    // themselves; the intermediate folders go before the anchor.
    struct Walked {
        base::UniqueFd anchorFD;  // "/dev/null" stands in when the anchor is missing
        std::vector<base::UniqueFd> openedDirectories;
        dev_t anchorDevice = 0;  // of the anchor; 0 when it is missing
        std::optional<struct stat> leafStat;

        int parentFD() const {
            return openedDirectories.empty() ? anchorFD.get() : openedDirectories.back().get();
        }
    };

    // The absolute path of the anchor followed by the components, with single
    // slashes. Used for every path that goes into a failure.
    std::string displayPath(const Components& components, std::size_t count) const;
    std::string displayPath(const Components& components) const {
        return displayPath(components, components.size());
    }

    std::variant<Walked, RemovalFailure> walk(const Components& components) const;
    RemovalOutcome removeFolder(const Walked& walked,
                                const Components& components,
                                const std::optional<FileIdentity>& expecting,
                                const RemovalFilter* filter) const;
    std::variant<base::UniqueFd, RemovalFailure> openAnchor(struct stat& anchorStat) const;
    std::variant<base::UniqueFd, RemovalReason> enterFolder(int parentFD,
                                                            const char* name,
                                                            const struct stat& st) const;
};

}  // namespace removal
