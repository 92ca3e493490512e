#include <signal.h>
#include <unistd.h>

#include <QTimer>
#include <QWindow>
#include <QtTest>
#include <array>
#include <functional>
#include <memory>

#include "FakeAdapters.h"
#include "ModelFakes.h"
#include "QtTestMain.h"
#include "TempDir.h"
#include "app/TerminationGuard.h"
#include "app/UninstallerModel.h"

using app::TerminationGuard;
using app::UninstallerModel;
using namespace std::chrono_literals;

namespace {

constexpr int kWaitMs = 20'000;
// What the application's event loop returns when nothing ended it.
constexpr int kStillRunning = 42;

}  // namespace

// The termination guard in a real application event loop, with one window
// and a model whose runs can be held in the middle of removing. Every way
// of ending is tried: a quit request, the window's close, and signals.
class TerminationTests : public QObject {
    Q_OBJECT

  private slots:
    void init();
    void cleanup();

    void quitIsAllowedOnReview();
    void quitIsAllowedOnNothingToRemove();
    void quitIsAllowedOnFinished();
    void quitIsAllowedOnQuitFailed();
    void quitIsAllowedWhileWaitingForTavio();
    void quitIsRefusedWhileRemoving();
    void modelQuitGoesThroughTheGuard();
    void windowCloseIsRefusedOnlyWhileRemoving();
    void windowCloseIsAllowedWhileWaitingForTavio();
    void signalsQuitWhenNotBusy_data();
    void signalsQuitWhenNotBusy();
    void signalWhileRemovingIsHonouredWhenTheRunEnds();
    void signalHandlersAreRestoredWhenTheGuardGoes();

  private:
    UninstallerModel& makeModel(std::chrono::milliseconds quitTimeout = 10s);
    void plantCache();
    // Runs the application's event loop with `action` queued, until
    // something quits it or `limitMs` passes. Returns exec()'s result.
    int runApplication(const std::function<void()>& action, int limitMs = 300);
    void holdInTheMiddleOfRemoving();

    std::unique_ptr<testsupport::TempDir> temp_;
    std::shared_ptr<apptest::ControlledProcesses> processes_;
    std::unique_ptr<UninstallerModel> model_;
    std::unique_ptr<TerminationGuard> guard_;
    std::unique_ptr<QWindow> window_;
};

void TerminationTests::init() {
    temp_ = std::make_unique<testsupport::TempDir>();
    testsupport::makeDirectories(*temp_ / "home/Library");
    processes_ = std::make_shared<apptest::ControlledProcesses>();
    window_ = std::make_unique<QWindow>();
    window_->resize(200, 100);
    window_->show();
}

void TerminationTests::cleanup() {
    guard_.reset();
    processes_->setRunning(false);
    processes_->release();
    model_.reset();
    window_.reset();
    temp_.reset();
}

UninstallerModel& TerminationTests::makeModel(std::chrono::milliseconds quitTimeout) {
    target::UninstallContext context =
        target::UninstallContext::make(::getuid(), {*temp_ / "home", "alice"}, "io.tavio.Tavio");
    context.applicationDirectories = {*temp_ / "Applications"};
    engine::UninstallEngine engine{context,
                                   processes_,
                                   std::make_shared<testsupport::FakePreferences>(),
                                   std::make_shared<testsupport::FakeVerifier>(),
                                   quitTimeout,
                                   10ms};
    model_ = std::make_unique<UninstallerModel>(std::move(engine),
                                                std::make_shared<apptest::RecordingActions>());
    guard_ = std::make_unique<TerminationGuard>(model_.get());
    guard_->guardWindow(window_.get());
    return *model_;
}

void TerminationTests::plantCache() {
    testsupport::makeDirectories(*temp_ / "home/Library/Caches/io.tavio.Tavio");
}

int TerminationTests::runApplication(const std::function<void()>& action, int limitMs) {
    // Local timers, so that none of them outlives this loop and ends a
    // later one.
    QTimer start;
    start.setSingleShot(true);
    QObject::connect(&start, &QTimer::timeout, action);
    QTimer limit;
    limit.setSingleShot(true);
    QObject::connect(&limit, &QTimer::timeout, [] { QCoreApplication::exit(kStillRunning); });
    start.start(0);
    limit.start(limitMs);
    return QCoreApplication::exec();
}

void TerminationTests::holdInTheMiddleOfRemoving() {
    processes_->holdAtCall(1);  // the check before the first item
    model_->startUninstall();
    QTRY_VERIFY_WITH_TIMEOUT(processes_->isHeld() && model_->isBusy(), kWaitMs);
}

void TerminationTests::quitIsAllowedOnReview() {
    plantCache();
    UninstallerModel& model = makeModel();
    QCOMPARE(model.phase(), QStringLiteral("review"));
    QCOMPARE(runApplication([] { QCoreApplication::quit(); }), 0);
    QVERIFY(!window_->isVisible());
}

void TerminationTests::quitIsAllowedOnNothingToRemove() {
    UninstallerModel& model = makeModel();
    QCOMPARE(model.phase(), QStringLiteral("nothingToRemove"));
    QCOMPARE(runApplication([] { QCoreApplication::quit(); }), 0);
}

void TerminationTests::quitIsAllowedOnFinished() {
    plantCache();
    UninstallerModel& model = makeModel();
    model.startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), QStringLiteral("finished"), kWaitMs);
    QCOMPARE(runApplication([] { QCoreApplication::quit(); }), 0);
}

void TerminationTests::quitIsAllowedOnQuitFailed() {
    plantCache();
    processes_->setRunning(true);
    UninstallerModel& model = makeModel(100ms);
    model.startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), QStringLiteral("quitFailed"), kWaitMs);
    QCOMPARE(runApplication([] { QCoreApplication::quit(); }), 0);
}

void TerminationTests::quitIsAllowedWhileWaitingForTavio() {
    plantCache();
    processes_->setRunning(true);
    UninstallerModel& model = makeModel();
    model.startUninstall();
    QTRY_VERIFY_WITH_TIMEOUT(model.waitingForQuit(), kWaitMs);
    QCOMPARE(model.phase(), QStringLiteral("working"));
    QVERIFY(guard_->shouldTerminate());
    QCOMPARE(runApplication([] { QCoreApplication::quit(); }), 0);
}

void TerminationTests::quitIsRefusedWhileRemoving() {
    plantCache();
    makeModel();
    holdInTheMiddleOfRemoving();
    QVERIFY(!guard_->shouldTerminate());
    QCOMPARE(runApplication([] { QCoreApplication::quit(); }), kStillRunning);
    QVERIFY(window_->isVisible());

    processes_->release();
    QTRY_COMPARE_WITH_TIMEOUT(model_->phase(), QStringLiteral("finished"), kWaitMs);
    QCOMPARE(runApplication([] { QCoreApplication::quit(); }), 0);
}

void TerminationTests::modelQuitGoesThroughTheGuard() {
    plantCache();
    UninstallerModel& model = makeModel();
    holdInTheMiddleOfRemoving();
    QCOMPARE(runApplication([&] { model.quit(); }), kStillRunning);
    processes_->release();
    QTRY_COMPARE_WITH_TIMEOUT(model.phase(), QStringLiteral("finished"), kWaitMs);
    QCOMPARE(runApplication([&] { model.quit(); }), 0);
}

void TerminationTests::windowCloseIsRefusedOnlyWhileRemoving() {
    plantCache();
    makeModel();
    holdInTheMiddleOfRemoving();
    QVERIFY(!window_->close());
    QVERIFY(window_->isVisible());

    processes_->release();
    QTRY_COMPARE_WITH_TIMEOUT(model_->phase(), QStringLiteral("finished"), kWaitMs);
    // Closing the last window asks the application to quit, which the guard
    // now lets through.
    QCOMPARE(runApplication([this] { QVERIFY(window_->close()); }), 0);
    QVERIFY(!window_->isVisible());
}

void TerminationTests::windowCloseIsAllowedWhileWaitingForTavio() {
    plantCache();
    processes_->setRunning(true);
    UninstallerModel& model = makeModel();
    model.startUninstall();
    QTRY_VERIFY_WITH_TIMEOUT(model.waitingForQuit(), kWaitMs);
    QVERIFY(window_->close());
}

void TerminationTests::signalsQuitWhenNotBusy_data() {
    QTest::addColumn<int>("signalNumber");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void TerminationTests::signalsQuitWhenNotBusy() {
    QFETCH(int, signalNumber);
    plantCache();
    makeModel();
    QVERIFY(guard_->catchTerminationSignals());
    QCOMPARE(runApplication([=] { ::kill(::getpid(), signalNumber); }, 5000), 0);
}

// The signal comes while an item is being removed: the program goes on, and
// ends by itself once the run is over.
void TerminationTests::signalWhileRemovingIsHonouredWhenTheRunEnds() {
    plantCache();
    makeModel();
    QVERIFY(guard_->catchTerminationSignals());
    holdInTheMiddleOfRemoving();

    bool runningAfterSignal = false;
    QTimer later;
    later.setSingleShot(true);
    QObject::connect(&later, &QTimer::timeout, [&] {
        runningAfterSignal = true;
        processes_->release();
    });
    later.start(300);
    QCOMPARE(runApplication([] { ::kill(::getpid(), SIGTERM); }, kWaitMs), 0);
    QVERIFY(runningAfterSignal);
    QCOMPARE(model_->phase(), QStringLiteral("finished"));
    QVERIFY(!testsupport::exists(*temp_ / "home/Library/Caches/io.tavio.Tavio"));
}

// Whatever handled the signals before (the test framework, here) handles
// them again once the guard is gone.
void TerminationTests::signalHandlersAreRestoredWhenTheGuardGoes() {
    const std::array<int, 3> numbers = {SIGTERM, SIGINT, SIGHUP};
    std::array<struct sigaction, 3> before{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        QCOMPARE(::sigaction(numbers[i], nullptr, &before[i]), 0);
    }
    makeModel();
    QVERIFY(guard_->catchTerminationSignals());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        struct sigaction caught {};
        QCOMPARE(::sigaction(numbers[i], nullptr, &caught), 0);
        QVERIFY(caught.sa_handler != before[i].sa_handler);
    }

    guard_.reset();
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        struct sigaction restored {};
        QCOMPARE(::sigaction(numbers[i], nullptr, &restored), 0);
        QVERIFY(restored.sa_handler == before[i].sa_handler);
        QCOMPARE(restored.sa_flags, before[i].sa_flags);
    }
}

int main(int argc, char** argv) {
    return apptest::runTests<TerminationTests>(argc, argv);
}

#include "TerminationTests.moc"
