#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "engine/UninstallEvent.h"
#include "engine/UninstallReport.h"
#include "target/AppVerifying.h"
#include "target/Inventory.h"
#include "target/PreferencesAccess.h"
#include "target/ProcessControlling.h"
#include "target/UninstallContext.h"

namespace engine {

// How long a run waits for Tavio to quit after asking it to, and how often it
// looks meanwhile, unless its front end says otherwise: the window and the
// command line both wait this long.
inline constexpr std::chrono::milliseconds kQuitTimeout{30'000};
inline constexpr std::chrono::milliseconds kPollInterval{200};

// Carries out one uninstall: makes sure Tavio is not running (asking it once
// to quit and waiting a bounded time), removes every item of the inventory in
// its order through the means its target calls for, then scans again to
// check what is really gone. Holds no state between runs.
struct UninstallEngine {
    using EventHandler = std::function<void(const UninstallEvent&)>;

    target::UninstallContext context;
    std::shared_ptr<const target::ProcessControlling> processes;
    std::shared_ptr<const target::PreferencesAccess> preferences;
    std::shared_ptr<const target::AppVerifying> verifier;
    std::chrono::milliseconds quitTimeout = kQuitTimeout;
    std::chrono::milliseconds pollInterval = kPollInterval;

    // Runs on the calling thread and never fails: every problem ends up in the
    // report. `onEvent` is called synchronously from this thread. A stop
    // request is honoured only while waiting for Tavio to quit and at one gate
    // just before the first item; once an item has begun, the run goes on to
    // the end. The wait between polls ends early on a stop request.
    UninstallReport run(const target::Inventory& inventory,
                        const EventHandler& onEvent,
                        const std::stop_token& stop = {}) const;

  private:
    enum class QuitResult { notRunning, quit, timedOut, cancelled };

    QuitResult waitForQuit(const EventHandler& onEvent, const std::stop_token& stop) const;
    ItemOutcome removeUnlessRunning(const target::InventoryItem& item) const;
    ItemOutcome remove(const target::InventoryItem& item) const;
    ItemOutcome removeAppBundle(const target::InventoryItem& item) const;
    std::optional<removal::RemovalReason> recordRemoval(const target::InventoryItem& item) const;
    ItemOutcome removeRemainder(const target::InventoryItem& item) const;
    void finishRecords(const target::InventoryItem& item) const;
    void dropObsoleteRecords() const;
    bool isAbsentNow(const target::InventoryItem& item) const;
    void verify(std::vector<ItemResult>& results) const;
    target::Inventory freshInventory() const;
};

}  // namespace engine
