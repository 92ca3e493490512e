#pragma once

#include <QtQml/qqmlregistration.h>

#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "app/DesktopActions.h"
#include "engine/UninstallEngine.h"
#include "engine/UninstallEvent.h"
#include "engine/UninstallReport.h"
#include "target/Inventory.h"

class UninstallerModelTests;

namespace app {

// The one object behind the window: the inventory on show, which screen is
// up, how far a run has come and, once it is over, its report. The screens
// read its properties and drive it only through the invokable operations;
// the termination guard asks it whether the program may quit (isBusy).
//
// Everything here lives on the GUI thread. A run of the engine goes on a
// worker thread owned by the model (its task); each event of the run, and
// its end, comes back as a queued call on the GUI thread, so nothing in the
// model is ever touched from two threads.
class UninstallerModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The application makes the one model and hands it to the window.")

    // Scoped only: QML names each value with its enumeration
    // (UninstallerModel.RowState.Failed), so equal case names in two
    // enumerations cannot stand for one another.
    Q_CLASSINFO("RegisterEnumClassesUnscoped", "false")

    Q_PROPERTY(PhaseKind phase READ phase NOTIFY phaseChanged)
    Q_PROPERTY(QString userName READ userName NOTIFY userNameChanged)
    // {id, category: Category, path, displayPath, state: ItemState, reason}
    // per item, in order.
    Q_PROPERTY(QVariantList items READ items NOTIFY itemsChanged)
    Q_PROPERTY(int removableCount READ removableCount NOTIFY removableCountChanged)
    Q_PROPERTY(bool waitingForQuit READ waitingForQuit NOTIFY waitingForQuitChanged)
    // Item id → RowState.
    Q_PROPERTY(QVariantMap rowStates READ rowStatesMap NOTIFY rowStatesChanged)
    Q_PROPERTY(bool isConfirming READ isConfirming WRITE setIsConfirming NOTIFY isConfirmingChanged)
    Q_PROPERTY(bool isBusy READ isBusy NOTIFY isBusyChanged)
    Q_PROPERTY(int finishedCount READ finishedCount NOTIFY finishedCountChanged)
    // Empty unless the phase is finished; see values::report().
    Q_PROPERTY(QVariantMap report READ report NOTIFY reportChanged)

  public:
    // The values the screens compare, as QML reads them: by name, and QML
    // takes a name for an enumeration value only when it begins with a
    // capital. So these, and only these, depart from the lowerCamel case
    // names of the rest of the code.
    // NOLINTBEGIN(readability-identifier-naming)

    // Which screen the model stands for.
    enum class PhaseKind { Finished, Review, Working, QuitFailed, NothingToRemove };
    Q_ENUM(PhaseKind)

    // How far the removal of one item has come.
    enum class RowState { Pending, Running, Done, Failed };
    Q_ENUM(RowState)

    // An item's category, in the order the screens list them.
    enum class Category { Settings, TorrentCopies, History, Cache, LogsAndState, App };
    Q_ENUM(Category)

    // What the scan found at an item's place.
    enum class ItemState { Present, Absent, Skipped };
    Q_ENUM(ItemState)

    // What a run did with one item.
    enum class ItemOutcome { Removed, LinkRemoved, AlreadyAbsent, Skipped, Failed };
    Q_ENUM(ItemOutcome)

    // How a run ended.
    enum class Outcome { Completed, Incomplete, DidNotQuit, Cancelled };
    Q_ENUM(Outcome)

    // NOLINTEND(readability-identifier-naming)

    // The current phase. Only `finished` carries a value: the report of the
    // run that ended there.
    struct Phase {
        using Kind = PhaseKind;

        Kind kind = Kind::Review;
        std::optional<engine::UninstallReport> report;

        bool operator==(const Phase&) const = default;
    };

    // Scans at once, so the first screen has its inventory. `actions` serve
    // the report's copy and reveal buttons.
    UninstallerModel(const engine::UninstallEngine& engine,
                     std::shared_ptr<DesktopActions> actions,
                     QObject* parent = nullptr);
    // Shows `firstInventory` as the first screen's inventory: a scan that the
    // caller made with scan(engine), for example on another thread while the
    // window was being compiled.
    UninstallerModel(engine::UninstallEngine engine,
                     std::shared_ptr<DesktopActions> actions,
                     target::Inventory firstInventory,
                     QObject* parent = nullptr);
    // Waits for the task to end. Only reachable while nothing is being
    // removed (the termination guard sees to that), so the wait is short: a
    // stop request ends the wait for Tavio at once.
    ~UninstallerModel() override;

    UninstallerModel(const UninstallerModel&) = delete;
    UninstallerModel& operator=(const UninstallerModel&) = delete;

    // The scan that the model makes whenever it needs a fresh inventory: of
    // the engine's context, with its adapters. Touches no model, so it may
    // run on any thread.
    static target::Inventory scan(const engine::UninstallEngine& engine);

    // The values themselves, for C++ callers.
    const Phase& currentPhase() const { return phase_; }
    const target::Inventory& inventory() const { return inventory_; }
    const std::map<std::string, RowState>& rowStates() const { return rowStates_; }
    bool hasTask() const { return task_.joinable(); }

    PhaseKind phase() const { return phase_.kind; }
    QString userName() const;
    QVariantList items() const { return items_; }
    int removableCount() const;
    bool waitingForQuit() const { return waitingForQuit_; }
    QVariantMap rowStatesMap() const;
    bool isConfirming() const { return isConfirming_; }
    void setIsConfirming(bool confirming);
    // A run is removing things: phase working and no longer waiting for
    // Tavio. Until then nothing has been touched, so quitting is harmless.
    bool isBusy() const;
    // Rows that are done or failed.
    int finishedCount() const;
    QVariantMap report() const { return reportMap_; }

    // Scans afresh, clears the row states and shows review, or
    // nothingToRemove when there is nothing to show.
    Q_INVOKABLE void refresh();
    // From review or quitFailed only: scans afresh and runs the engine over
    // that fresh inventory. Does nothing in any other phase.
    Q_INVOKABLE void startUninstall();
    // Cancels the task while it waits for Tavio to quit; nothing otherwise.
    Q_INVOKABLE void cancel();
    // Shows the remaining paths of the finished report that still exist.
    Q_INVOKABLE void revealRemaining();
    // Puts the remaining paths of the finished report on the clipboard, one
    // per line.
    Q_INVOKABLE void copyRemainingPaths();
    // Asks the application to quit; the termination guard decides.
    Q_INVOKABLE void quit();

  signals:
    void phaseChanged();
    void userNameChanged();
    void itemsChanged();
    void removableCountChanged();
    void waitingForQuitChanged();
    void rowStatesChanged();
    void isConfirmingChanged();
    void isBusyChanged();
    void finishedCountChanged();
    void reportChanged();

  private:
    friend class ::UninstallerModelTests;

    target::Inventory scan() const;
    void publishInventory(target::Inventory inventory);
    void publishRowStates(std::map<std::string, RowState> rowStates);
    void publishWaitingForQuit(bool waiting);
    void publishPhase(Phase phase);
    void publishPhaseFromInventory();
    void updateBusy();

    void launch(target::Inventory inventory);
    void retireTask();
    void apply(const engine::UninstallEvent& event);
    void finishRun(std::uint64_t serial, const engine::UninstallReport& report);
    void setRowState(const target::InventoryItem& item, RowState state);

    Phase phase_;
    target::Inventory inventory_;
    bool waitingForQuit_ = false;
    std::map<std::string, RowState> rowStates_;
    bool isConfirming_ = false;
    const engine::UninstallEngine engine_;
    const std::shared_ptr<DesktopActions> actions_;

    // What the screens read, kept ready so that a property read costs
    // nothing.
    QVariantList items_;
    QVariantMap reportMap_;
    bool busy_ = false;

    // The task of the latest run, never cleared. A run that is replaced
    // before it has returned goes on to its end and is joined when it
    // reports back (or when the model goes), never while it still runs.
    std::jthread task_;
    std::uint64_t taskSerial_ = 0;
    bool taskReturned_ = false;
    std::map<std::uint64_t, std::jthread> retired_;
};

}  // namespace app
