#pragma once

#include <string>
#include <vector>

#include "target/InventoryItem.h"

namespace target {

// Everything an uninstall would remove for one user, in the order the
// scan appended it; the screens and the engine keep that order.
struct Inventory {
    std::vector<InventoryItem> items;
    std::string userName;  // whose data this is

    // The items whose state is present, in inventory order; skipped and
    // absent items are never removable.
    std::vector<InventoryItem> removableItems() const;

    // The items of one category, in inventory order, whatever their state.
    std::vector<InventoryItem> itemsIn(ItemCategory category) const;

    bool operator==(const Inventory&) const = default;
};

}  // namespace target
