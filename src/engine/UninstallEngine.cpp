#include "engine/UninstallEngine.h"

#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <set>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"
#include "engine/ContinuousClock.h"
#include "removal/SafeRemover.h"
#include "target/InventoryBuilder.h"
#include "target/RemovalRecords.h"

namespace engine {
namespace {

using removal::Presence;
using removal::RemovalFailure;
using removal::RemovalReason;
using target::InventoryItem;
using target::ItemState;
using target::ItemTarget;
using target::RemovalRecords;

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

// Lets only what a record vouches for go: entries that still match what the
// copy held when its removal began.
class RemainderFilter final : public removal::RemovalFilter {
  public:
    explicit RemainderFilter(const target::BundleManifest& manifest) : manifest_(manifest) {}

    bool mayRemove(const std::string& relativePath,
                   int folderFD,
                   const std::string& name,
                   const struct stat& status) const override {
        return manifest_.stillHolds(relativePath, folderFD, name, status);
    }
    RemovalReason reasonToKeep() const override { return RemovalReason::notVerifiedBefore(); }

  private:
    const target::BundleManifest& manifest_;
};

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
    dropObsoleteRecords();
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
// What is left of a copy whose removal was cut off goes only as far as its
// record vouches for it.
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
    if (bundle.copy == ItemTarget::AppCopy::remainder) {
        return removeRemainder(item);
    }
    if (const auto problem = verifier->verify(item.path, context.bundleIdentifier)) {
        return failedAt(item, RemovalReason::other(problem->explanation()));
    }
    if (auto problem = recordRemoval(item)) {
        return failedAt(item, std::move(*problem));
    }
    ItemOutcome outcome = ItemOutcome::from(remover.remove({bundle.name}, bundle.identity));
    finishRecords(item);
    return outcome;
}

// Writes down the copy and everything it holds before its first file goes,
// so that a run cut off in the middle can be finished by the next one. A copy
// that cannot be written down is not begun: a crash could leave it broken for
// good.
std::optional<RemovalReason> UninstallEngine::recordRemoval(const InventoryItem& item) const {
    const auto& bundle = std::get<ItemTarget::AppBundle>(item.target.value);
    const base::UniqueFd folder(sys::open(item.path.c_str(), sys::kFolderFlags));
    struct stat status {};
    if (!folder || ::fstat(folder.get(), &status) != 0) {
        return errno == ENOTDIR || errno == ELOOP ? RemovalReason::changedSinceVerification()
                                                  : removal::reasonForErrno(errno);
    }
    if (removal::FileIdentity{status.st_dev, status.st_ino} != *bundle.identity) {
        return RemovalReason::changedSinceVerification();
    }
    auto manifest = target::BundleManifest::of(folder.get());
    if (!manifest) {
        return RemovalReason::notRecorded();
    }
    target::RemovalRecord record{context.bundleIdentifier, bundle.anchor, bundle.name,
                                 *bundle.identity,         status.st_uid, std::move(*manifest)};
    const auto written = RemovalRecords::forUser(context).write(record);
    if (std::holds_alternative<std::string>(written)) {
        return std::nullopt;
    }
    return RemovalReason::notRecorded();
}

// The rest of a copy whose removal was cut off: only with a record of this
// folder, and only what still matches it.
ItemOutcome UninstallEngine::removeRemainder(const InventoryItem& item) const {
    const auto& bundle = std::get<ItemTarget::AppBundle>(item.target.value);
    const auto records = RemovalRecords::forUser(context).of(item.path);
    const auto found = std::find_if(records.begin(), records.end(), [&](const auto& stored) {
        return stored.record.identity == *bundle.identity &&
               stored.record.identifier == context.bundleIdentifier;
    });
    if (found == records.end()) {
        return failedAt(item, RemovalReason::changedSinceVerification());
    }
    const RemainderFilter filter(found->record.manifest);
    const removal::SafeRemover remover{bundle.anchor, context.userID, false};
    ItemOutcome outcome =
        ItemOutcome::from(remover.remove({bundle.name}, bundle.identity, &filter));
    finishRecords(item);
    return outcome;
}

// A record goes once the copy it describes is gone from its place.
void UninstallEngine::finishRecords(const InventoryItem& item) const {
    const auto& bundle = std::get<ItemTarget::AppBundle>(item.target.value);
    const removal::SafeRemover remover{bundle.anchor, context.userID, false};
    if (remover.presence({bundle.name}) != Presence::absent()) {
        return;
    }
    const RemovalRecords records = RemovalRecords::forUser(context);
    for (const RemovalRecords::Stored& stored : records.of(item.path)) {
        records.drop(stored);
    }
}

// After a run, no record outlives what it describes: one whose place is
// empty, or holds another folder, vouches for nothing any more. A place that
// cannot be looked at keeps its record.
void UninstallEngine::dropObsoleteRecords() const {
    const RemovalRecords records = RemovalRecords::forUser(context);
    for (const RemovalRecords::Stored& stored : records.all()) {
        const target::RemovalRecord& record = stored.record;
        const removal::SafeRemover remover{record.anchor, context.userID, false};
        const Presence presence = remover.presence({record.name});
        if (presence == Presence::absent() ||
            (presence == Presence::present() &&
             remover.identity({record.name}) != record.identity)) {
            records.drop(stored);
        }
    }
    records.tidy();
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
