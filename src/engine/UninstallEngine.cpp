#include "engine/UninstallEngine.h"

#include <condition_variable>
#include <mutex>
#include <set>

#include "engine/ContinuousClock.h"
#include "removal/SafeRemover.h"
#include "target/InventoryBuilder.h"

namespace engine {
namespace {

using removal::Presence;
using removal::RemovalFailure;
using removal::RemovalReason;
using target::InventoryItem;
using target::ItemState;
using target::ItemTarget;

ItemOutcome failedAt(const InventoryItem& item, RemovalReason reason) {
    return ItemOutcome::failed({RemovalFailure{item.path, std::move(reason)}});
}

// Sleeps for `interval`, or less when a stop is requested meanwhile.
void pause(std::chrono::milliseconds interval, const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any wakeUp;
    std::unique_lock<std::mutex> lock(mutex);
    (void)wakeUp.wait_for(lock, stop, interval, [] { return false; });
}

}  // namespace

UninstallReport UninstallEngine::run(const target::Inventory& inventory,
                                     const EventHandler& onEvent,
                                     const std::stop_token& stop) const {
    switch (waitForQuit(onEvent, stop)) {
        case QuitResult::timedOut:
            return {UninstallOutcome::didNotQuit, {}};
        case QuitResult::cancelled:
            return {UninstallOutcome::cancelled, {}};
        case QuitResult::notRunning:
        case QuitResult::quit:
            break;
    }
    // The last moment a run may be cancelled: half an uninstall is worse than
    // a whole one, so once the first item has begun the run goes on.
    if (stop.stop_requested()) {
        return {UninstallOutcome::cancelled, {}};
    }
    std::vector<ItemResult> results;
    for (const InventoryItem& item : inventory.items) {
        onEvent(UninstallEvent::removing(item));
        ItemOutcome outcome = removeUnlessRunning(item);
        results.push_back({item, outcome});
        onEvent(UninstallEvent::finished(item, std::move(outcome)));
    }
    verify(results);
    bool allDone = true;
    for (const ItemResult& result : results) {
        allDone = allDone && result.outcome.isDone();
    }
    return {allDone ? UninstallOutcome::completed : UninstallOutcome::incomplete,
            std::move(results)};
}

// Asks Tavio once to quit and polls until it is gone, the deadline passes or
// a stop is requested. The first check follows the request at once.
UninstallEngine::QuitResult UninstallEngine::waitForQuit(const EventHandler& onEvent,
                                                         const std::stop_token& stop) const {
    if (!processes->isRunning()) {
        return QuitResult::notRunning;
    }
    onEvent(UninstallEvent::waitingForQuit());
    processes->requestQuit();
    const auto deadline = ContinuousClock::now() + quitTimeout;
    for (;;) {
        if (!processes->isRunning()) {
            return QuitResult::quit;
        }
        if (stop.stop_requested()) {
            return QuitResult::cancelled;
        }
        if (ContinuousClock::now() >= deadline) {
            return QuitResult::timedOut;
        }
        pause(pollInterval, stop);
    }
}

ItemOutcome UninstallEngine::remove(const InventoryItem& item) const {
    if (item.state.kind() == ItemState::Kind::skipped) {
        return ItemOutcome::skipped(item.state.reason());
    }
    if (const auto* tree = std::get_if<ItemTarget::Tree>(&item.target.value)) {
        const removal::SafeRemover remover{tree->anchor, context.userID, tree->requiresOwnedAnchor};
        return ItemOutcome::from(remover.remove(tree->components));
    }
    if (const auto* prefs = std::get_if<ItemTarget::Preferences>(&item.target.value)) {
        if (!preferences->hasValues(prefs->domain)) {
            return ItemOutcome::alreadyAbsent();
        }
        // Whether the keys really went is the final check's business.
        preferences->removeAll(prefs->domain);
        return ItemOutcome::removed();
    }
    return removeAppBundle(item);
}

// Tavio is looked for again before each item. While it runs, or while the
// look cannot tell, nothing is touched, and the reason says which of the two
// it was.
ItemOutcome UninstallEngine::removeUnlessRunning(const InventoryItem& item) const {
    using Running = target::ProcessControlling::Running;
    const Running running = processes->lookForCopies();
    if (running == Running::no) {
        return remove(item);
    }
    if (isAbsentNow(item)) {
        return ItemOutcome::alreadyAbsent();
    }
    return failedAt(item, running == Running::yes ? RemovalReason::applicationRunning()
                                                  : RemovalReason::runningNotChecked());
}

// An app copy is checked once more just before it goes: it must still be
// there as the very folder that was verified, and still pass verification.
ItemOutcome UninstallEngine::removeAppBundle(const InventoryItem& item) const {
    const auto& bundle = std::get<ItemTarget::AppBundle>(item.target.value);
    const removal::SafeRemover remover{bundle.anchor, context.userID, false};
    const Presence presence = remover.presence({bundle.name});
    switch (presence.kind()) {
        case Presence::Kind::absent:
            return ItemOutcome::alreadyAbsent();
        case Presence::Kind::unknown:
            return failedAt(item, *presence.reason());
        case Presence::Kind::present:
            break;
    }
    if (!bundle.identity) {
        return failedAt(item, RemovalReason::changedSinceVerification());
    }
    if (const auto problem = verifier->verify(item.path, context.bundleIdentifier)) {
        return failedAt(item, RemovalReason::other(problem->explanation()));
    }
    return ItemOutcome::from(remover.remove({bundle.name}, bundle.identity));
}

// Used only while Tavio runs again. A domain that held values is never taken
// for gone while Tavio could be writing it back.
bool UninstallEngine::isAbsentNow(const InventoryItem& item) const {
    if (const auto* tree = std::get_if<ItemTarget::Tree>(&item.target.value)) {
        const removal::SafeRemover remover{tree->anchor, context.userID, tree->requiresOwnedAnchor};
        return remover.presence(tree->components) == Presence::absent();
    }
    if (const auto* prefs = std::get_if<ItemTarget::Preferences>(&item.target.value)) {
        return item.state.kind() == ItemState::Kind::absent &&
               !preferences->hasValues(prefs->domain);
    }
    const auto& bundle = std::get<ItemTarget::AppBundle>(item.target.value);
    const removal::SafeRemover remover{bundle.anchor, context.userID, false};
    return remover.presence({bundle.name}) == Presence::absent();
}

target::Inventory UninstallEngine::freshInventory() const {
    return target::InventoryBuilder{context, verifier, preferences}.build();
}

// Scans again and turns whatever is still (or again) there into a failure:
// a done row whose item is found present "reappeared"; a location that the
// run never saw but that is there now is added as a failed row.
void UninstallEngine::verify(std::vector<ItemResult>& results) const {
    const target::Inventory fresh = freshInventory();
    const auto reasonFor = [](const ItemState& state) {
        return state.kind() == ItemState::Kind::present ? RemovalReason::reappeared()
                                                        : RemovalReason::other(state.reason());
    };
    for (ItemResult& result : results) {
        for (const InventoryItem& found : fresh.items) {
            if (found.id != result.item.id) {
                continue;
            }
            if (found.state.kind() != ItemState::Kind::absent && result.outcome.isDone()) {
                result.outcome = failedAt(result.item, reasonFor(found.state));
            }
            break;  // only the first fresh item with that id counts
        }
    }
    std::set<std::string> seen;
    for (const ItemResult& result : results) {
        seen.insert(result.item.id);
    }
    for (const InventoryItem& found : fresh.items) {
        if (found.state.kind() != ItemState::Kind::absent && seen.insert(found.id).second) {
            results.push_back({found, failedAt(found, reasonFor(found.state))});
        }
    }
}

}  // namespace engine
