#pragma once

#include <string>

#include "target/ItemCategory.h"
#include "target/ItemState.h"
#include "target/ItemTarget.h"

namespace target {

// One thing an uninstall would remove, as it stood when last scanned.
struct InventoryItem {
    // Stable key, the same from one scan to the next for the same location:
    // "tree:" + full path, "prefs:" + domain, or "app:" + full bundle path.
    // Unique within one inventory.
    std::string id;
    ItemCategory category = ItemCategory::settings;
    ItemTarget target;
    // The full path the item stands for; the domain name for preferences.
    std::string path;
    // What the screens show: the path with the home folder written "~"; for
    // preferences the domain followed by " preferences".
    std::string displayPath;
    // The only field that changes after the item is made.
    ItemState state = ItemState::absent();

    bool operator==(const InventoryItem&) const = default;
};

}  // namespace target
