#pragma once

#include <optional>

#include "engine/ItemOutcome.h"
#include "target/InventoryItem.h"

namespace engine {

// Progress of a run, sent synchronously from the thread that runs it.
class UninstallEvent {
  public:
    enum class Kind {
        removing,        // the engine starts on item()
        finished,        // the engine is done with item(); see outcome()
        waitingForQuit,  // Tavio runs; it was asked to quit and the engine waits
    };

    static UninstallEvent removing(target::InventoryItem item) {
        return UninstallEvent(Kind::removing, std::move(item), std::nullopt);
    }
    // `outcome` is the one before the final check, which may still overturn it.
    static UninstallEvent finished(target::InventoryItem item, ItemOutcome outcome) {
        return UninstallEvent(Kind::finished, std::move(item), std::move(outcome));
    }
    static UninstallEvent waitingForQuit() {
        return UninstallEvent(Kind::waitingForQuit, std::nullopt, std::nullopt);
    }

    Kind kind() const { return kind_; }
    // Set for removing and finished.
    const std::optional<target::InventoryItem>& item() const { return item_; }
    // Set for finished.
    const std::optional<ItemOutcome>& outcome() const { return outcome_; }

  private:
    UninstallEvent(Kind kind,
                   std::optional<target::InventoryItem> item,
                   std::optional<ItemOutcome> outcome)
        : kind_(kind), item_(std::move(item)), outcome_(std::move(outcome)) {}

    Kind kind_;
    std::optional<target::InventoryItem> item_;
    std::optional<ItemOutcome> outcome_;
};

}  // namespace engine
