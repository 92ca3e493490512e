#include "target/Inventory.h"

namespace target {

std::vector<InventoryItem> Inventory::removableItems() const {
    std::vector<InventoryItem> result;
    for (const InventoryItem& item : items) {
        if (item.state.kind() == ItemState::Kind::present) {
            result.push_back(item);
        }
    }
    return result;
}

std::vector<InventoryItem> Inventory::itemsIn(ItemCategory category) const {
    std::vector<InventoryItem> result;
    for (const InventoryItem& item : items) {
        if (item.category == category) {
            result.push_back(item);
        }
    }
    return result;
}

}  // namespace target
