#include "app/UninstallerModel.h"

#include <QCoreApplication>
#include <QFile>
#include <QMetaObject>
#include <QPointer>
#include <QStringList>
#include <algorithm>
#include <utility>

#include "app/ModelValues.h"
#include "base/Trap.h"
#include "target/InventoryBuilder.h"

namespace app {
namespace {

using Kind = UninstallerModel::Phase::Kind;

// Review stays up when something could not be handled, so that the user
// sees why; only an account with nothing of Tavio at all gets the short
// screen.
Kind phaseFor(const target::Inventory& inventory) {
    if (!inventory.removableItems().empty()) {
        return Kind::Review;
    }
    const bool anySkipped = std::any_of(
        inventory.items.begin(), inventory.items.end(),
        [](const auto& item) { return item.state.kind() == target::ItemState::Kind::skipped; });
    return anySkipped ? Kind::Review : Kind::NothingToRemove;
}

QString pathText(const std::string& path) {
    return QFile::decodeName(QByteArray::fromStdString(path));
}

}  // namespace

UninstallerModel::UninstallerModel(const engine::UninstallEngine& engine,
                                   std::shared_ptr<DesktopActions> actions,
                                   QObject* parent)
    : UninstallerModel(engine, std::move(actions), scan(engine), parent) {}

UninstallerModel::UninstallerModel(engine::UninstallEngine engine,
                                   std::shared_ptr<DesktopActions> actions,
                                   target::Inventory firstInventory,
                                   QObject* parent)
    : QObject(parent), engine_(std::move(engine)), actions_(std::move(actions)) {
    inventory_ = std::move(firstInventory);
    items_ = values::items(inventory_);
    if (phaseFor(inventory_) == Kind::NothingToRemove) {
        phase_ = Phase{Kind::NothingToRemove, std::nullopt};
    }
}

UninstallerModel::~UninstallerModel() {
    // Joined here, before the QObject part goes, so that no run can post to
    // a model that is being torn down.
    task_.request_stop();
    for (auto& [serial, thread] : retired_) {
        thread.request_stop();
    }
    if (task_.joinable()) {
        task_.join();
    }
    retired_.clear();
}

QString UninstallerModel::userName() const {
    return values::text(inventory_.userName);
}

int UninstallerModel::removableCount() const {
    return static_cast<int>(inventory_.removableItems().size());
}

QVariantMap UninstallerModel::rowStatesMap() const {
    QVariantMap map;
    for (const auto& [id, state] : rowStates_) {
        map.insert(values::text(id), values::number(state));
    }
    return map;
}

void UninstallerModel::setIsConfirming(bool confirming) {
    if (isConfirming_ == confirming) {
        return;
    }
    isConfirming_ = confirming;
    emit isConfirmingChanged();
}

bool UninstallerModel::isBusy() const {
    return phase_.kind == Kind::Working && !waitingForQuit_;
}

int UninstallerModel::finishedCount() const {
    return static_cast<int>(
        std::count_if(rowStates_.begin(), rowStates_.end(), [](const auto& row) {
            return row.second == RowState::Done || row.second == RowState::Failed;
        }));
}

void UninstallerModel::refresh() {
    publishInventory(scan());
    publishRowStates({});
    publishPhaseFromInventory();
}

void UninstallerModel::startUninstall() {
    if (phase_.kind != Kind::Review && phase_.kind != Kind::QuitFailed) {
        return;
    }
    // The run works on what is there now, not on what the review showed.
    target::Inventory fresh = scan();
    publishInventory(fresh);
    std::map<std::string, RowState> rows;
    for (const target::InventoryItem& item : fresh.items) {
        if (!rows.emplace(item.id, RowState::Pending).second) {
            base::trap("inventory item ids must be unique");
        }
    }
    publishRowStates(std::move(rows));
    publishWaitingForQuit(false);
    publishPhase(Phase{Kind::Working, std::nullopt});
    launch(std::move(fresh));
}

void UninstallerModel::cancel() {
    if (waitingForQuit_ && task_.joinable()) {
        task_.request_stop();
    }
}

void UninstallerModel::revealRemaining() {
    if (phase_.kind != Kind::Finished || !phase_.report) {
        return;
    }
    QStringList existing;
    for (const engine::RemainingPath& leftover : phase_.report->remaining()) {
        const QString path = pathText(leftover.path);
        if (actions_->exists(path)) {
            existing.append(path);
        }
    }
    actions_->reveal(existing);
}

void UninstallerModel::copyRemainingPaths() {
    if (phase_.kind != Kind::Finished || !phase_.report) {
        return;
    }
    QStringList paths;
    for (const engine::RemainingPath& leftover : phase_.report->remaining()) {
        paths.append(pathText(leftover.path));
    }
    actions_->setClipboardText(paths.join(QLatin1Char('\n')));
}

void UninstallerModel::quit() {
    QCoreApplication::quit();
}

target::Inventory UninstallerModel::scan(const engine::UninstallEngine& engine) {
    return target::InventoryBuilder{engine.context, engine.verifier, engine.preferences}.build();
}

target::Inventory UninstallerModel::scan() const {
    return scan(engine_);
}

void UninstallerModel::publishInventory(target::Inventory inventory) {
    inventory_ = std::move(inventory);
    items_ = values::items(inventory_);
    emit userNameChanged();
    emit itemsChanged();
    emit removableCountChanged();
}

void UninstallerModel::publishRowStates(std::map<std::string, RowState> rowStates) {
    rowStates_ = std::move(rowStates);
    emit rowStatesChanged();
    emit finishedCountChanged();
}

void UninstallerModel::publishWaitingForQuit(bool waiting) {
    waitingForQuit_ = waiting;
    emit waitingForQuitChanged();
    updateBusy();
}

void UninstallerModel::publishPhase(Phase phase) {
    phase_ = std::move(phase);
    reportMap_ = phase_.report ? values::report(*phase_.report) : QVariantMap{};
    emit phaseChanged();
    emit reportChanged();
    updateBusy();
}

void UninstallerModel::publishPhaseFromInventory() {
    publishPhase(Phase{phaseFor(inventory_), std::nullopt});
}

void UninstallerModel::updateBusy() {
    const bool busy = isBusy();
    if (busy != busy_) {
        busy_ = busy;
        emit isBusyChanged();
    }
}

// The run gets its own copies of the engine and the inventory, and reaches
// the model only through queued calls on the model's thread. Each call
// checks that the model still exists when it is delivered.
void UninstallerModel::launch(target::Inventory inventory) {
    retireTask();
    const std::uint64_t serial = ++taskSerial_;
    taskReturned_ = false;
    const QPointer<UninstallerModel> guard(this);
    UninstallerModel* const receiver = this;
    task_ = std::jthread([engine = engine_, inventory = std::move(inventory), guard, receiver,
                          serial](const std::stop_token& stop) {
        const auto post = [&](auto call) {
            QMetaObject::invokeMethod(
                receiver,
                [guard, call = std::move(call)] {
                    if (guard) {
                        call(*guard);
                    }
                },
                Qt::QueuedConnection);
        };
        const auto onEvent = [&](const engine::UninstallEvent& event) {
            post([event](UninstallerModel& model) { model.apply(event); });
        };
        engine::UninstallReport report = engine.run(inventory, onEvent, stop);
        post([serial, report = std::move(report)](UninstallerModel& model) {
            model.finishRun(serial, report);
        });
    });
}

// A jthread handed a new thread would stop and join the old one; the old run
// must instead go on undisturbed, and the GUI thread must not wait for it.
void UninstallerModel::retireTask() {
    if (!task_.joinable()) {
        return;
    }
    if (taskReturned_) {
        task_.join();  // its last act was to post its report: over at once
        return;
    }
    retired_.emplace(taskSerial_, std::move(task_));
}

void UninstallerModel::apply(const engine::UninstallEvent& event) {
    switch (event.kind()) {
        case engine::UninstallEvent::Kind::waitingForQuit:
            publishWaitingForQuit(true);
            return;
        case engine::UninstallEvent::Kind::removing:
            publishWaitingForQuit(false);
            setRowState(*event.item(), RowState::Running);
            return;
        case engine::UninstallEvent::Kind::finished:
            // A skipped item is not done, so it shows as failed in progress.
            setRowState(*event.item(),
                        event.outcome()->isDone() ? RowState::Done : RowState::Failed);
            return;
    }
}

void UninstallerModel::setRowState(const target::InventoryItem& item, RowState state) {
    rowStates_[item.id] = state;
    emit rowStatesChanged();
    emit finishedCountChanged();
}

void UninstallerModel::finishRun(std::uint64_t serial, const engine::UninstallReport& report) {
    if (serial == taskSerial_) {
        taskReturned_ = true;
    } else if (const auto retired = retired_.find(serial); retired != retired_.end()) {
        retired->second.join();  // it has just posted this: over at once
        retired_.erase(retired);
    }
    publishWaitingForQuit(false);
    switch (report.outcome) {
        case engine::UninstallOutcome::completed:
        case engine::UninstallOutcome::incomplete:
            publishPhase(Phase{Kind::Finished, report});
            return;
        case engine::UninstallOutcome::didNotQuit:
            // Rows stay pending: nothing was touched, and a retry resets them.
            publishPhase(Phase{Kind::QuitFailed, std::nullopt});
            return;
        case engine::UninstallOutcome::cancelled:
            refresh();
            return;
    }
}

}  // namespace app
