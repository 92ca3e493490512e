#include "target/InventoryBuilder.h"

#include <sys/stat.h>

#include <algorithm>

#include "base/Text.h"
#include "removal/SafeRemover.h"
#include "target/AppVerificationProblem.h"
#include "target/Paths.h"
#include "target/RemovalRecords.h"

namespace target {
namespace {

using removal::Presence;

ItemState stateOf(const Presence& presence) {
    switch (presence.kind()) {
        case Presence::Kind::present:
            return ItemState::present();
        case Presence::Kind::absent:
            return ItemState::absent();
        case Presence::Kind::unknown:
            break;
    }
    return ItemState::skipped(presence.reason()->explanation());
}

}  // namespace

Inventory InventoryBuilder::build() const {
    std::vector<InventoryItem> items{preferencesItem()};
    for (InventoryItem& item : treeItems()) {
        items.push_back(std::move(item));
    }
    for (InventoryItem& item : appItems()) {
        items.push_back(std::move(item));
    }
    return Inventory{std::move(items), context.userName};
}

// The preference domain counts as present when its file is there, or when the
// preferences service holds values that were never written to a file.
InventoryItem InventoryBuilder::preferencesItem() const {
    const std::string& id = context.bundleIdentifier;
    const removal::SafeRemover libraryRemover{
        appendingPathComponent(context.homeDirectory, "Library"), context.userID, true};
    const bool prefsFile =
        libraryRemover.presence({"Preferences", id + ".plist"}) == Presence::present();
    const bool prefsPresent = prefsFile || preferences->hasValues(id);
    return {"prefs:" + id,
            ItemCategory::settings,
            ItemTarget::preferences(id),
            id,
            id + " preferences",
            prefsPresent ? ItemState::present() : ItemState::absent()};
}

// The folders and files in the user's Library.
std::vector<InventoryItem> InventoryBuilder::treeItems() const {
    const std::string& home = context.homeDirectory;
    const std::string library = appendingPathComponent(home, "Library");
    const std::string& id = context.bundleIdentifier;
    const removal::SafeRemover libraryRemover{library, context.userID, true};
    std::vector<InventoryItem> items;
    const auto tree = [&](ItemCategory category, std::vector<std::string> components) {
        std::string path = library;
        for (const std::string& component : components) {
            path = appendingPathComponent(path, component);
        }
        const ItemState state = stateOf(libraryRemover.presence(components));
        items.push_back({"tree:" + path, category,
                         ItemTarget::tree(library, std::move(components), true), path,
                         displayPath(path, home), state});
    };
    // Inner folders come before the folders that hold them, so each is
    // removed and reported on its own first.
    tree(ItemCategory::settings, {"Preferences", id + ".plist"});
    tree(ItemCategory::torrentCopies, {"Application Support", id, "History", "Torrents"});
    tree(ItemCategory::history, {"Application Support", id, "History"});
    tree(ItemCategory::history, {"Application Support", id});
    tree(ItemCategory::cache, {"Caches", id});
    tree(ItemCategory::cache, {"HTTPStorages", id});
    tree(ItemCategory::logsAndState, {"Logs", id});
    tree(ItemCategory::logsAndState, {"Saved Application State", id + ".savedState"});
    return items;
}

// One item per application folder that holds something named like the app.
// The app group always has a row: where the app was expected.
std::vector<InventoryItem> InventoryBuilder::appItems() const {
    std::vector<InventoryItem> items;
    for (const std::string& directory : context.applicationDirectories) {
        auto item = appItem(directory);
        if (item && !reachedBefore(*item, items)) {
            items.push_back(std::move(*item));
        }
    }
    if (items.empty() && !context.applicationDirectories.empty()) {
        const std::string& first = context.applicationDirectories.front();
        const std::string path = appendingPathComponent(first, appName);
        items.push_back({"app:" + path, ItemCategory::app,
                         ItemTarget::appBundle(first, appName, std::nullopt), path,
                         displayPath(path, context.homeDirectory), ItemState::absent()});
    }
    return items;
}

// Whether `item` is a copy already listed: the same path, or the same
// verified folder reached through another path (an application folder
// mounted at a second place). One copy is one row, removed once.
bool InventoryBuilder::reachedBefore(const InventoryItem& item,
                                     const std::vector<InventoryItem>& listed) {
    const auto identityOf = [](const InventoryItem& each) {
        return std::get<ItemTarget::AppBundle>(each.target.value).identity;
    };
    const auto identity = identityOf(item);
    return std::any_of(listed.begin(), listed.end(), [&](const InventoryItem& each) {
        return each.id == item.id || (identity && identityOf(each) == identity);
    });
}

// The app in `directory`, when something of its name is there: present only
// when it is verified and is a real folder, whose identity is then recorded so
// that a bundle swapped after the review is refused.
std::optional<InventoryItem> InventoryBuilder::appItem(const std::string& directory) const {
    const std::string path = appendingPathComponent(directory, appName);
    const auto item = [&](ItemState state, std::optional<removal::FileIdentity> identity) {
        return InventoryItem{"app:" + path,
                             ItemCategory::app,
                             ItemTarget::appBundle(directory, appName, identity),
                             path,
                             displayPath(path, context.homeDirectory),
                             std::move(state)};
    };
    // Application folders such as /Applications need not be the user's.
    const removal::SafeRemover remover{directory, context.userID, false};
    const Presence presence = remover.presence({appName});
    if (presence.kind() == Presence::Kind::absent) {
        return std::nullopt;
    }
    if (presence.kind() == Presence::Kind::unknown) {
        return item(stateOf(presence), std::nullopt);
    }
    if (const auto problem = verifier->verify(path, context.bundleIdentifier)) {
        if (auto remainder = remainderItem(directory)) {
            return remainder;
        }
        return item(ItemState::skipped(problem->explanation()), std::nullopt);
    }
    const auto identity = remover.identity({appName});
    if (!identity) {
        // Verified a moment ago, yet no folder to pin: either it is no folder
        // now, or the look at it failed, which says nothing of what it is.
        const bool unreadable = remover.presence({appName}).kind() == Presence::Kind::unknown;
        const std::string reason = unreadable ? AppVerificationProblem::unreadable().explanation()
                                              : base::localizedText("Not an app bundle");
        return item(ItemState::skipped(reason), std::nullopt);
    }
    return item(ItemState::present(), identity);
}

std::string interruptedRemovalNote() {
    return base::localizedText("An earlier removal of this copy was interrupted");
}

std::string notTheRecordedCopyExplanation() {
    return base::localizedText("Skipped: not the copy that an interrupted removal had verified");
}

// What is left of a copy whose removal was cut off: only when a record of
// that removal exists for this very place, and the folder there is still the
// one it describes (the same device, inode and owner, for the same product).
// A record for this place and another folder there refuses the folder;
// without a record, the verifier's answer stands.
std::optional<InventoryItem> InventoryBuilder::remainderItem(const std::string& directory) const {
    const std::string path = appendingPathComponent(directory, appName);
    const auto records = RemovalRecords::forUser(context).of(path);
    if (records.empty()) {
        return std::nullopt;
    }
    const removal::SafeRemover remover{directory, context.userID, false};
    const auto identity = remover.identity({appName});
    struct stat status {};
    const bool examined = identity && ::lstat(path.c_str(), &status) == 0;
    const bool matches = std::any_of(records.begin(), records.end(), [&](const auto& stored) {
        const RemovalRecord& record = stored.record;
        return examined && record.identifier == context.bundleIdentifier &&
               record.identity == *identity && record.owner == status.st_uid;
    });
    const ItemState state = matches ? ItemState::present(interruptedRemovalNote())
                                    : ItemState::skipped(notTheRecordedCopyExplanation());
    return InventoryItem{
        "app:" + path,
        ItemCategory::app,
        ItemTarget::appBundle(directory, appName, matches ? identity : std::nullopt,
                              ItemTarget::AppCopy::remainder),
        path,
        displayPath(path, context.homeDirectory),
        state};
}

}  // namespace target
