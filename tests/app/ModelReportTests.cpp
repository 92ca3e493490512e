#include <QSignalSpy>
#include <QtTest>

#include "ModelTests.h"

using app::UninstallerModel;
using namespace modeltest;
using namespace std::chrono_literals;

// The report of a finished run, the actions on it, and what may still
// happen to the model after a run has ended.

void UninstallerModelTests::incompleteReportListsWhatRemains() {
    plantRefusedApp(1);
    UninstallerModel& model = makeModel();
    model.startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);

    const QVariantMap report = model.report();
    QCOMPARE(as<Outcome>(report.value("outcome")), Outcome::Incomplete);
    const QVariantList remaining = report.value("remaining").toList();
    QCOMPARE(remaining.size(), 1);
    QCOMPARE(remaining.at(0).toMap().value("path").toString(), QString::fromStdString(appPath(1)));
    QVERIFY(!remaining.at(0).toMap().value("reason").toString().isEmpty());
    const QVariantMap app = report.value("results").toList().last().toMap();
    QCOMPARE(app.value("id").toString(), QString::fromStdString("app:" + appPath(1)));
    QCOMPARE(as<Category>(app.value("category")), Category::App);
    QCOMPARE(app.value("path").toString(), QString::fromStdString(appPath(1)));
    QCOMPARE(app.value("displayPath").toString(), QString::fromStdString(appPath(1)));
    QCOMPARE(as<ItemOutcome>(app.value("outcome")), ItemOutcome::Skipped);
    QCOMPARE(as<ItemOutcome>(report.value("results").toList().first().toMap().value("outcome")),
             ItemOutcome::AlreadyAbsent);
}

void UninstallerModelTests::copyPutsTwoPathsWithOneLineFeedBetween() {
    plantRefusedApp(1);
    plantRefusedApp(2);
    UninstallerModel& model = makeModel();
    model.startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);
    QCOMPARE(model.report().value("remaining").toList().size(), 2);

    model.copyRemainingPaths();
    QCOMPARE(actions_->clipboard,
             QStringList{QString::fromStdString(appPath(1) + "\n" + appPath(2))});
}

void UninstallerModelTests::revealShowsOnlyExistingPathsEvenWhenNoneIsLeft() {
    plantRefusedApp(1);
    plantRefusedApp(2);
    UninstallerModel& model = makeModel();
    model.startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);

    model.revealRemaining();
    testsupport::removeAll(appPath(1));
    model.revealRemaining();
    testsupport::removeAll(appPath(2));
    model.revealRemaining();
    const QString second = QString::fromStdString(appPath(2));
    QCOMPARE(actions_->revealed,
             (QList<QStringList>{{QString::fromStdString(appPath(1)), second}, {second}, {}}));
}

void UninstallerModelTests::reportActionsNeedTheFinishedScreen() {
    plantRefusedApp(1);
    UninstallerModel& model = makeModel();
    model.copyRemainingPaths();
    model.revealRemaining();
    QVERIFY(actions_->clipboard.isEmpty());
    QVERIFY(actions_->revealed.isEmpty());
}

void UninstallerModelTests::lateEventsOnlyTouchRowsAndWaiting() {
    plantFolder("Caches/io.tavio.Tavio");
    UninstallerModel& model = makeModel();
    model.startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);
    const UninstallerModel::Phase finished = model.currentPhase();
    const target::InventoryItem first = model.inventory().items.front();

    model.apply(engine::UninstallEvent::waitingForQuit());
    QCOMPARE(model.waitingForQuit(), true);
    QCOMPARE(model.isBusy(), false);
    model.apply(engine::UninstallEvent::removing(first));
    QCOMPARE(model.waitingForQuit(), false);
    QCOMPARE(model.rowStates().at(first.id), UninstallerModel::RowState::Running);
    model.apply(engine::UninstallEvent::finished(first, engine::ItemOutcome::skipped("late")));
    QCOMPARE(model.rowStates().at(first.id), UninstallerModel::RowState::Failed);
    QVERIFY(model.currentPhase() == finished);
    QCOMPARE(model.isBusy(), false);
}

void UninstallerModelTests::refreshFromFinishedRescansAndClearsRows() {
    plantFolder("Caches/io.tavio.Tavio");
    UninstallerModel& model = makeModel();
    model.startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);
    model.setIsConfirming(true);
    QSignalSpy phases(&model, &UninstallerModel::phaseChanged);

    model.refresh();
    QCOMPARE(model.phase(), PhaseKind::NothingToRemove);
    QCOMPARE(phases.count(), 1);
    QVERIFY(model.rowStates().empty());
    QVERIFY(model.report().isEmpty());
    QCOMPARE(model.isConfirming(), true);

    plantFolder("Logs/io.tavio.Tavio");
    model.refresh();
    QCOMPARE(model.phase(), PhaseKind::Review);
    QCOMPARE(phases.count(), 2);
}

void UninstallerModelTests::confirmingNotifiesOnlyOnChange() {
    plantFolder("Caches/io.tavio.Tavio");
    UninstallerModel& model = makeModel();
    QSignalSpy confirming(&model, &UninstallerModel::isConfirmingChanged);
    QVERIFY(model.setProperty("isConfirming", true));
    model.setIsConfirming(true);
    QCOMPARE(model.property("isConfirming").toBool(), true);
    model.setIsConfirming(false);
    QCOMPARE(confirming.count(), 2);
    QCOMPARE(model.phase(), PhaseKind::Review);
}
