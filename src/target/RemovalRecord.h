#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "removal/FileIdentity.h"
#include "target/BundleManifest.h"

namespace target {

// What a run writes down, and makes durable, before it deletes the first
// file of a verified copy of the app: which copy (its place, the identity and
// owner of its folder, the identifier it was verified for) and everything it
// held (its manifest). A later run finishes a removal that was cut off only
// on this evidence: the folder must still be that very folder, and only
// entries that still match the manifest may go.
struct RemovalRecord {
    std::string identifier;  // the bundle identifier the copy was verified for
    std::string anchor;      // the application folder
    std::string name;        // the bundle's name in it
    removal::FileIdentity identity;
    uid_t owner = 0;  // of the bundle folder
    BundleManifest manifest;

    bool operator==(const RemovalRecord&) const = default;

    // The copy's absolute path.
    std::string path() const;

    // The record as an XML property list, and back. Reading is strict: a
    // missing or mistyped field, or a manifest of an unknown shape, gives
    // nothing.
    std::optional<std::string> serialized() const;
    static std::optional<RemovalRecord> parse(std::string_view bytes);
};

}  // namespace target
