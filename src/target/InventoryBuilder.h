#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "target/AppVerifying.h"
#include "target/Inventory.h"
#include "target/PreferencesAccess.h"
#include "target/UninstallContext.h"

namespace target {

// Scans the user's account for everything of the product and says, for each
// location of a fixed and closed list, whether it is present, absent or must
// be skipped. It removes and changes nothing, never lists a folder but the
// program's own records' folder (RemovalRecords.h), and never looks anywhere
// but the exact locations below the home folder's Library and the
// application folders.
//
// Every problem becomes an item state (skipped with its reason, or absent);
// build() cannot fail. It holds no shared state and may run on any thread.
// What a scan says of a copy whose removal was cut off: the note of one it
// will finish, and the reason it refuses a folder that is not the recorded
// copy. Both are in the user's language.
std::string interruptedRemovalNote();
std::string notTheRecordedCopyExplanation();

struct InventoryBuilder {
    UninstallContext context;
    std::shared_ptr<const AppVerifying> verifier;
    std::shared_ptr<const PreferencesAccess> preferences;
    // The app bundle's file name, "Tavio.app" unless the uninstaller's own
    // Info.plist names another.
    std::string appName = UninstallContext::appName();

    Inventory build() const;

  private:
    InventoryItem preferencesItem() const;
    std::vector<InventoryItem> treeItems() const;
    std::vector<InventoryItem> appItems() const;
    std::optional<InventoryItem> appItem(const std::string& directory) const;
    std::optional<InventoryItem> remainderItem(const std::string& directory) const;
    static bool reachedBefore(const InventoryItem& item, const std::vector<InventoryItem>& listed);
};

}  // namespace target
