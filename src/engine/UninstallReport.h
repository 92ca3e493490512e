#pragma once

#include <string>
#include <vector>

#include "engine/ItemOutcome.h"
#include "target/InventoryItem.h"

namespace engine {

// One row of a report: the item as the run was given it (or as the final
// check found it, for a row that check added) and what happened to it.
struct ItemResult {
    target::InventoryItem item;
    ItemOutcome outcome;

    bool operator==(const ItemResult&) const = default;
};

enum class UninstallOutcome {
    completed,
    incomplete,
    didNotQuit,
    cancelled,
};

// A path still on disk (or still holding settings) after a run, with why.
struct RemainingPath {
    std::string path;    // full path, never the "~" form
    std::string reason;  // a sentence for the user

    bool operator==(const RemainingPath&) const = default;
};

// The result of one run. `results` is empty for didNotQuit and cancelled.
struct UninstallReport {
    UninstallOutcome outcome = UninstallOutcome::completed;
    std::vector<ItemResult> results;

    // How many results are exactly alreadyAbsent.
    int alreadyAbsentCount() const;

    // Every leftover in the order of the results: one row per skipped result
    // (its full path and the skipped text) and one per failure of a failed
    // result (the failure's path and its reason's sentence). Not deduplicated.
    std::vector<RemainingPath> remaining() const;

    bool operator==(const UninstallReport&) const = default;
};

}  // namespace engine
