#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "removal/FileIdentity.h"

namespace target {

// How an inventory item is reached and removed. Compared case by case and
// field by field.
struct ItemTarget {
    // A file or folder at `anchor` followed by `components`, removed as a
    // whole tree by the guarded removal; requiresOwnedAnchor is passed on to
    // its guard.
    struct Tree {
        std::string anchor;
        std::vector<std::string> components;
        bool requiresOwnedAnchor = true;

        bool operator==(const Tree&) const = default;
    };
    // A preference domain of the current user, emptied through the
    // preferences adapter rather than by deleting files.
    struct Preferences {
        std::string domain;

        bool operator==(const Preferences&) const = default;
    };
    // What an app item is: a copy that verified as it stands, or what is
    // left of one whose removal was cut off, which only the record of that
    // removal vouches for (see RemovalRecord.h).
    enum class AppCopy { installed, remainder };

    // One installed copy of the app: the application folder, the bundle's
    // file name, and the folder's identity as it was verified (nothing when
    // no verified bundle was seen), so that removal can refuse a bundle that
    // was swapped after the review.
    struct AppBundle {
        std::string anchor;
        std::string name;
        std::optional<removal::FileIdentity> identity;
        AppCopy copy = AppCopy::installed;

        bool operator==(const AppBundle&) const = default;
    };

    static ItemTarget tree(std::string anchor,
                           std::vector<std::string> components,
                           bool requiresOwnedAnchor) {
        return {Tree{std::move(anchor), std::move(components), requiresOwnedAnchor}};
    }
    static ItemTarget preferences(std::string domain) { return {Preferences{std::move(domain)}}; }
    static ItemTarget appBundle(std::string anchor,
                                std::string name,
                                std::optional<removal::FileIdentity> identity,
                                AppCopy copy = AppCopy::installed) {
        return {AppBundle{std::move(anchor), std::move(name), identity, copy}};
    }

    std::variant<Tree, Preferences, AppBundle> value;

    bool operator==(const ItemTarget&) const = default;
};

}  // namespace target
