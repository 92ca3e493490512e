#include "ModelTests.h"

#include <unistd.h>

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QtTest>
#include <thread>

#include "DescriptorCheck.h"
#include "QtTestMain.h"

using app::UninstallerModel;
using namespace modeltest;
using namespace std::chrono_literals;

void UninstallerModelTests::init() {
    descriptors_ = testsupport::openDescriptors();
    temp_ = std::make_unique<testsupport::TempDir>();
    testsupport::makeDirectories(home() + "/Library");
    testsupport::makeDirectories(apps(1));
    testsupport::makeDirectories(apps(2));
    context_ = target::UninstallContext::make(::getuid(), {home(), "alice"}, kId);
    context_.applicationDirectories = {apps(1), apps(2)};
    processes_ = std::make_shared<apptest::ControlledProcesses>();
    preferences_ = std::make_shared<testsupport::FakePreferences>();
    verifier_ = std::make_shared<testsupport::FakeVerifier>();
    actions_ = std::make_shared<apptest::RecordingActions>();
}

void UninstallerModelTests::cleanup() {
    processes_->setRunning(false);
    processes_->release();
    model_.reset();
    temp_.reset();
    QCoreApplication::processEvents();
    const std::set<int> now = testsupport::openDescriptors();
    QVERIFY2(now == descriptors_, "a descriptor was left open");
}

UninstallerModel& UninstallerModelTests::makeModel(std::chrono::milliseconds quitTimeout) {
    engine::UninstallEngine engine{context_,  processes_,  preferences_,
                                   verifier_, quitTimeout, 10ms};
    model_ = std::make_unique<UninstallerModel>(std::move(engine), actions_);
    return *model_;
}

void UninstallerModelTests::plantFolder(const std::string& relative) {
    testsupport::makeDirectories(library(relative));
    testsupport::writeFile(library(relative) + "/data", "x");
}

// An app copy where the app is expected that fails the app check: skipped.
void UninstallerModelTests::plantRefusedApp(int n) {
    testsupport::makeDirectories(appPath(n) + "/Contents");
    verifier_->refuse(appPath(n), target::AppVerificationProblem::invalidSignature());
}

int UninstallerModelTests::rowsIn(UninstallerModel::RowState state) const {
    int count = 0;
    for (const auto& [id, row] : model_->rowStates()) {
        count += row == state ? 1 : 0;
    }
    return count;
}

void UninstallerModelTests::firstScanShowsReviewWithTheInventory() {
    plantFolder("Caches/io.tavio.Tavio");
    UninstallerModel& model = makeModel();

    QCOMPARE(model.phase(), PhaseKind::Review);
    QCOMPARE(model.userName(), QStringLiteral("alice"));
    QCOMPARE(model.removableCount(), 1);
    QCOMPARE(model.waitingForQuit(), false);
    QVERIFY(model.rowStatesMap().isEmpty());
    QCOMPARE(model.isConfirming(), false);
    QCOMPARE(model.isBusy(), false);
    QCOMPARE(model.finishedCount(), 0);
    QVERIFY(model.report().isEmpty());
    QVERIFY(!model.hasTask());

    const QVariantList items = model.items();
    QCOMPARE(items.size(), static_cast<qsizetype>(model.inventory().items.size()));
    const QString cachePath = QString::fromStdString(library("Caches/io.tavio.Tavio"));
    const QVariantMap cache = items.at(5).toMap();
    QCOMPARE(cache.value("id").toString(), "tree:" + cachePath);
    QCOMPARE(as<Category>(cache.value("category")), Category::Cache);
    QCOMPARE(cache.value("path").toString(), cachePath);
    QCOMPARE(cache.value("displayPath").toString(),
             QStringLiteral("~/Library/Caches/io.tavio.Tavio"));
    QCOMPARE(as<ItemState>(cache.value("state")), ItemState::Present);
    QCOMPARE(cache.value("reason").toString(), QString());
    const QVariantMap prefs = items.at(0).toMap();
    QCOMPARE(prefs.value("id").toString(), QStringLiteral("prefs:io.tavio.Tavio"));
    QCOMPARE(as<Category>(prefs.value("category")), Category::Settings);
    QCOMPARE(as<ItemState>(prefs.value("state")), ItemState::Absent);
    QCOMPARE(as<Category>(items.last().toMap().value("category")), Category::App);
}

void UninstallerModelTests::emptyAccountShowsNothingToRemove() {
    UninstallerModel& model = makeModel();
    QCOMPARE(model.phase(), PhaseKind::NothingToRemove);
    QCOMPARE(model.userName(), QStringLiteral("alice"));
    QCOMPARE(model.removableCount(), 0);
}

void UninstallerModelTests::oneSkippedItemShowsReview() {
    plantRefusedApp(1);
    UninstallerModel& model = makeModel();

    QCOMPARE(model.removableCount(), 0);
    QCOMPARE(model.phase(), PhaseKind::Review);
    const QVariantMap app = model.items().last().toMap();
    QCOMPARE(as<ItemState>(app.value("state")), ItemState::Skipped);
    QCOMPARE(
        app.value("reason").toString(),
        QString::fromStdString(target::AppVerificationProblem::invalidSignature().explanation()));
    QVERIFY(!app.value("reason").toString().isEmpty());
}

void UninstallerModelTests::completedRunFinishesWithItsReport() {
    plantFolder("Caches/io.tavio.Tavio");
    plantFolder("Logs/io.tavio.Tavio");
    UninstallerModel& model = makeModel();
    QSignalSpy phases(&model, &UninstallerModel::phaseChanged);

    model.startUninstall();
    QCOMPARE(model.phase(), PhaseKind::Working);
    QCOMPARE(model.rowStates().size(), model.inventory().items.size());
    QCOMPARE(rowsIn(UninstallerModel::RowState::Pending),
             static_cast<int>(model.inventory().items.size()));
    QVERIFY(model.hasTask());

    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);
    QCOMPARE(phases.count(), 2);
    QCOMPARE(model.isBusy(), false);
    QCOMPARE(model.waitingForQuit(), false);
    QCOMPARE(rowsIn(UninstallerModel::RowState::Done), static_cast<int>(model.rowStates().size()));
    QCOMPARE(model.finishedCount(), static_cast<int>(model.rowStates().size()));
    const QVariantMap report = model.report();
    QCOMPARE(as<Outcome>(report.value("outcome")), Outcome::Completed);
    QCOMPARE(report.value("alreadyAbsentCount").toInt(),
             static_cast<int>(model.inventory().items.size()) - 2);
    QVERIFY(report.value("remaining").toList().isEmpty());
    QCOMPARE(report.value("results").toList().size(),
             static_cast<qsizetype>(model.inventory().items.size()));
    QVERIFY(!testsupport::exists(library("Caches/io.tavio.Tavio")));
    QVERIFY(!testsupport::exists(library("Logs/io.tavio.Tavio")));
    QCOMPARE(processes_->quitRequests(), 0);
}

void UninstallerModelTests::startUninstallTwiceStartsOneRun() {
    plantFolder("Caches/io.tavio.Tavio");
    processes_->setRunning(true);
    UninstallerModel& model = makeModel();
    QSignalSpy items(&model, &UninstallerModel::itemsChanged);
    QSignalSpy phases(&model, &UninstallerModel::phaseChanged);

    model.startUninstall();
    model.startUninstall();
    QCOMPARE(items.count(), 1);
    QCOMPARE(phases.count(), 1);
    QTRY_VERIFY_WITH_TIMEOUT(model.waitingForQuit(), kWaitMs);
    model.startUninstall();
    QCOMPARE(items.count(), 1);
    QCOMPARE(model.phase(), PhaseKind::Working);

    model.cancel();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Review, kWaitMs);
    QCOMPARE(processes_->quitRequests(), 1);
}

void UninstallerModelTests::startUninstallIsIgnoredOnOtherScreens() {
    UninstallerModel& model = makeModel();
    QCOMPARE(model.phase(), PhaseKind::NothingToRemove);
    model.startUninstall();
    QCOMPARE(model.phase(), PhaseKind::NothingToRemove);
    QVERIFY(!model.hasTask());

    plantFolder("Caches/io.tavio.Tavio");
    model.refresh();
    model.startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);
    const QVariantMap report = model.report();
    QSignalSpy items(&model, &UninstallerModel::itemsChanged);
    model.startUninstall();
    QTest::qWait(50);
    QCOMPARE(model.phase(), PhaseKind::Finished);
    QCOMPARE(model.report(), report);
    QCOMPARE(items.count(), 0);
}

void UninstallerModelTests::didNotQuitKeepsRowsPendingAndRetryStartsAgain() {
    plantFolder("Caches/io.tavio.Tavio");
    processes_->setRunning(true);
    UninstallerModel& model = makeModel(200ms);
    bool sawWaiting = false;
    connect(&model, &UninstallerModel::waitingForQuitChanged, this,
            [&] { sawWaiting = sawWaiting || model.waitingForQuit(); });

    model.startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::QuitFailed, kWaitMs);
    QVERIFY(sawWaiting);
    QCOMPARE(model.waitingForQuit(), false);
    QCOMPARE(model.isBusy(), false);
    QCOMPARE(rowsIn(UninstallerModel::RowState::Pending),
             static_cast<int>(model.inventory().items.size()));
    QCOMPARE(model.finishedCount(), 0);
    QVERIFY(model.report().isEmpty());
    QVERIFY(testsupport::exists(library("Caches/io.tavio.Tavio")));

    // The user has closed Tavio meanwhile and tries again.
    processes_->setRunning(false);
    plantFolder("Logs/io.tavio.Tavio");
    model.startUninstall();
    QCOMPARE(model.phase(), PhaseKind::Working);
    QCOMPARE(model.removableCount(), 2);
    QCOMPARE(rowsIn(UninstallerModel::RowState::Pending),
             static_cast<int>(model.inventory().items.size()));
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);
    QCOMPARE(as<Outcome>(model.report().value("outcome")), Outcome::Completed);
    QVERIFY(!testsupport::exists(library("Logs/io.tavio.Tavio")));
    QCOMPARE(processes_->quitRequests(), 1);
}

void UninstallerModelTests::cancelDuringTheWaitRescans() {
    plantFolder("Caches/io.tavio.Tavio");
    processes_->setRunning(true);
    UninstallerModel& model = makeModel();
    model.startUninstall();
    QTRY_VERIFY_WITH_TIMEOUT(model.waitingForQuit(), kWaitMs);
    QCOMPARE(model.phase(), PhaseKind::Working);
    QCOMPARE(model.isBusy(), false);
    QCOMPARE(model.removableCount(), 1);

    plantFolder("Logs/io.tavio.Tavio");
    QSignalSpy items(&model, &UninstallerModel::itemsChanged);
    model.cancel();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Review, kWaitMs);
    QCOMPARE(items.count(), 1);
    QCOMPARE(model.removableCount(), 2);
    QVERIFY(model.rowStates().empty());
    QCOMPARE(model.waitingForQuit(), false);
    QVERIFY(testsupport::exists(library("Caches/io.tavio.Tavio")));
}

void UninstallerModelTests::cancelDuringTheWaitCanEndWithNothingToRemove() {
    plantFolder("Caches/io.tavio.Tavio");
    processes_->setRunning(true);
    UninstallerModel& model = makeModel();
    model.startUninstall();
    QTRY_VERIFY_WITH_TIMEOUT(model.waitingForQuit(), kWaitMs);
    testsupport::removeAll(library("Caches/io.tavio.Tavio"));
    model.cancel();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::NothingToRemove, kWaitMs);
    QVERIFY(model.rowStates().empty());
}

void UninstallerModelTests::cancelOutsideTheWaitDoesNothing() {
    plantFolder("Caches/io.tavio.Tavio");
    UninstallerModel& model = makeModel();
    model.cancel();  // no task yet
    QCOMPARE(model.phase(), PhaseKind::Review);

    processes_->holdAtCall(1);  // the check before the first item
    model.startUninstall();
    QTRY_VERIFY_WITH_TIMEOUT(processes_->isHeld() && model.isBusy(), kWaitMs);
    model.cancel();
    processes_->release();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);
    QCOMPARE(as<Outcome>(model.report().value("outcome")), Outcome::Completed);
}

void UninstallerModelTests::busyOnlyWhileRemoving() {
    plantFolder("Caches/io.tavio.Tavio");
    UninstallerModel& model = makeModel();
    QSignalSpy busy(&model, &UninstallerModel::isBusyChanged);
    processes_->holdAtCall(1);

    model.startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model.rowStates().at(idOf(0)), UninstallerModel::RowState::Running,
                              kWaitMs);
    QCOMPARE(model.isBusy(), true);
    QCOMPARE(model.phase(), PhaseKind::Working);
    QCOMPARE(model.waitingForQuit(), false);
    QCOMPARE(as<RowState>(model.rowStatesMap().value(QString::fromStdString(idOf(0)))),
             RowState::Running);
    QCOMPARE(model.finishedCount(), 0);

    processes_->release();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);
    QCOMPARE(model.isBusy(), false);
    QCOMPARE(busy.count(), 2);
}

void UninstallerModelTests::finishedCountCountsFailedRows() {
    plantFolder("Caches/io.tavio.Tavio");
    plantRefusedApp(1);
    preferences_->setValues(kId, true);
    UninstallerModel& model = makeModel();
    processes_->holdAtCall(3);  // the check before the third item

    model.startUninstall();
    QTRY_VERIFY_WITH_TIMEOUT(processes_->isHeld(), kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(model.finishedCount(), 2, kWaitMs);
    QCOMPARE(model.rowStates().at(idOf(2)), UninstallerModel::RowState::Running);
    processes_->release();

    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::Finished, kWaitMs);
    QCOMPARE(rowsIn(UninstallerModel::RowState::Failed), 1);
    QCOMPARE(model.rowStates().at("app:" + appPath(1)), UninstallerModel::RowState::Failed);
    QCOMPARE(model.finishedCount(), static_cast<int>(model.rowStates().size()));
    QCOMPARE(as<Outcome>(model.report().value("outcome")), Outcome::Incomplete);
}

// A run replaced by a newer one is not cancelled: it goes on to its own end,
// and starting the newer one never waits for it.
void UninstallerModelTests::replacedRunGoesOnWithoutBlocking() {
    plantFolder("Caches/io.tavio.Tavio");
    processes_->setRunning(true);
    UninstallerModel& model = makeModel(600ms);
    model.startUninstall();
    QTRY_VERIFY_WITH_TIMEOUT(model.waitingForQuit(), kWaitMs);
    model.refresh();
    QCOMPARE(model.phase(), PhaseKind::Review);

    QElapsedTimer clock;
    clock.start();
    model.startUninstall();
    QVERIFY(clock.elapsed() < 300);
    QCOMPARE(model.phase(), PhaseKind::Working);
    QTRY_COMPARE_WITH_TIMEOUT(processes_->quitRequests(), 2, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), PhaseKind::QuitFailed, kWaitMs);
    QTest::qWait(800);  // the newer run ends too
    QCOMPARE(model.phase(), PhaseKind::QuitFailed);
    QVERIFY(testsupport::exists(library("Caches/io.tavio.Tavio")));
}

void UninstallerModelTests::modelGoneDuringTheWaitEndsAtOnce() {
    plantFolder("Caches/io.tavio.Tavio");
    processes_->setRunning(true);
    UninstallerModel& model = makeModel(30s);
    model.startUninstall();
    QTRY_VERIFY_WITH_TIMEOUT(model.waitingForQuit(), kWaitMs);

    QElapsedTimer clock;
    clock.start();
    model_.reset();
    QVERIFY(clock.elapsed() < 5000);
    QTest::qWait(50);  // anything still queued for the model is dropped
    QVERIFY(testsupport::exists(library("Caches/io.tavio.Tavio")));
}

// The application scans on a thread of its own while the window compiles,
// and hands the model that inventory: the model shows exactly it, and only
// the next scan sees what has changed since.
void UninstallerModelTests::firstInventoryScannedOnAnotherThreadIsShownAsItWas() {
    plantFolder("Caches/io.tavio.Tavio");
    const engine::UninstallEngine engine{context_, processes_, preferences_, verifier_, 10s, 10ms};
    target::Inventory scanned;
    std::thread([&] { scanned = UninstallerModel::scan(engine); }).join();
    plantFolder("Logs/io.tavio.Tavio");

    model_ = std::make_unique<UninstallerModel>(engine, actions_, scanned);
    QVERIFY(model_->inventory() == scanned);
    QVERIFY(model_->currentPhase().kind == UninstallerModel::Phase::Kind::Review);
    QCOMPARE(model_->items().size(), static_cast<qsizetype>(scanned.items.size()));
    QCOMPARE(model_->removableCount(), 1);
    QVERIFY(!model_->hasTask());

    model_->refresh();
    QCOMPARE(model_->removableCount(), 2);
}

void UninstallerModelTests::emptyFirstInventoryShowsNothingToRemove() {
    const engine::UninstallEngine engine{context_, processes_, preferences_, verifier_, 10s, 10ms};
    target::Inventory scanned;
    std::thread([&] { scanned = UninstallerModel::scan(engine); }).join();

    model_ = std::make_unique<UninstallerModel>(engine, actions_, scanned);
    QVERIFY(model_->currentPhase().kind == UninstallerModel::Phase::Kind::NothingToRemove);
    QCOMPARE(model_->userName(), QStringLiteral("alice"));
}

int main(int argc, char** argv) {
    return apptest::runTests<UninstallerModelTests>(argc, argv);
}
