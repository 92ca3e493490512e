#pragma once

#include <array>

namespace target {

// What kind of data an inventory item is. The declaration order is the order
// in which the screens show the groups; kAllItemCategories lists them so.
enum class ItemCategory {
    settings,       // the preference domain and its file
    torrentCopies,  // saved torrent copies in the support folder
    history,        // playback history and positions, and the support folder as a whole
    cache,          // caches and HTTP storage
    logsAndState,   // logs and saved application state
    app,            // copies of the app itself
};

inline constexpr std::array<ItemCategory, 6> kAllItemCategories = {
    ItemCategory::settings, ItemCategory::torrentCopies, ItemCategory::history,
    ItemCategory::cache,    ItemCategory::logsAndState,  ItemCategory::app,
};

}  // namespace target
