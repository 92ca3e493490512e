#pragma once

#include <string>

#include "cli/Catalogue.h"
#include "cli/JsonReport.h"
#include "target/Inventory.h"

namespace cli {

// A category's title, as the window's rows show it.
std::string categoryTitle(target::ItemCategory category, const Catalogue& texts);

// The review an uninstall starts from, as the window's review screen shows
// it: what will be removed, by category, and what stays.
std::string reviewText(const target::Inventory& inventory, const Catalogue& texts);

// What a run, or a preview, came to, in the words of the window's screens.
std::string summaryText(const Summary& summary, const Catalogue& texts);

}  // namespace cli
