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
using PhaseKind = UninstallerModel::PhaseKind;
using namespace std::chrono_literals;

namespace {

// The phase that a screen of these tests stands for; "waiting" is the
// working phase while Tavio is asked to quit.
PhaseKind phaseOf(const QString& screen) {
    if (screen == QLatin1String("review"))
        return PhaseKind::Review;
    if (screen == QLatin1String("nothingToRemove"))
        return PhaseKind::NothingToRemove;
    if (screen == QLatin1String("finished"))
        return PhaseKind::Finished;
    if (screen == QLatin1String("quitFailed"))
        return PhaseKind::QuitFailed;
    return PhaseKind::Working;
}

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

    void endingIsAllowed_data();
    void endingIsAllowed();
    void endingIsRefusedWhileRemoving_data();
    void endingIsRefusedWhileRemoving();
    void everyTerminationSignalIsCaught_data();
    void everyTerminationSignalIsCaught();
    void signalWhileRemovingIsHonouredWhenTheRunEnds();
    void signalHandlersAreRestoredWhenTheGuardGoes();

  private:
    UninstallerModel& makeModel(std::chrono::milliseconds quitTimeout = 10s);
    void plantCache();
    // Runs the application's event loop with `action` queued, until
    // something quits it or `limitMs` passes. Returns exec()'s result.
    int runApplication(const std::function<void()>& action, int limitMs = 300);
    void holdInTheMiddleOfRemoving();
    // Brings the model to the screen named, for real.
    void reach(const QString& screen);
    // Asks for the end of the program in the way named.
    void requestEnd(const QString& way);

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

void TerminationTests::reach(const QString& screen) {
    if (screen != QLatin1String("nothingToRemove")) {
        plantCache();
    }
    const bool tavioRuns =
        screen == QLatin1String("quitFailed") || screen == QLatin1String("waiting");
    processes_->setRunning(tavioRuns);
    UninstallerModel& model = makeModel(screen == QLatin1String("quitFailed") ? 100ms : 10s);
    QVERIFY(guard_->catchTerminationSignals());
    if (screen == QLatin1String("waiting")) {
        model.startUninstall();
        QTRY_VERIFY_WITH_TIMEOUT(model.waitingForQuit(), kWaitMs);
        QCOMPARE(model.phase(), PhaseKind::Working);
    } else if (screen == QLatin1String("finished") || screen == QLatin1String("quitFailed")) {
        model.startUninstall();
        QTRY_COMPARE_WITH_TIMEOUT(model.phase(), phaseOf(screen), kWaitMs);
    } else {
        QCOMPARE(model.phase(), phaseOf(screen));
    }
    QCOMPARE(model.isBusy(), false);
}

void TerminationTests::requestEnd(const QString& way) {
    if (way == QLatin1String("quit")) {
        QCoreApplication::quit();
    } else if (way == QLatin1String("model quit")) {
        model_->quit();
    } else if (way == QLatin1String("window close")) {
        (void)window_->close();
    } else {
        ::kill(::getpid(), SIGTERM);
    }
}

namespace {

const QStringList kWays = {QStringLiteral("quit"), QStringLiteral("model quit"),
                           QStringLiteral("window close"), QStringLiteral("signal")};

}  // namespace

void TerminationTests::endingIsAllowed_data() {
    QTest::addColumn<QString>("screen");
    QTest::addColumn<QString>("way");
    for (const char* screen : {"review", "nothingToRemove", "finished", "quitFailed", "waiting"}) {
        for (const QString& way : kWays) {
            QTest::addRow("%s, %s", screen, qPrintable(way)) << QString::fromLatin1(screen) << way;
        }
    }
}

// On every screen but the one of a removal, and while the engine still
// waits for Tavio to quit (nothing has been touched then), every way of
// ending the program ends it.
void TerminationTests::endingIsAllowed() {
    QFETCH(QString, screen);
    QFETCH(QString, way);
    reach(screen);
    QVERIFY(guard_->shouldTerminate());
    QCOMPARE(runApplication([&] { requestEnd(way); }, 5000), 0);
    QVERIFY(!window_->isVisible());
}

void TerminationTests::endingIsRefusedWhileRemoving_data() {
    QTest::addColumn<QString>("way");
    for (const QString& way : kWays) {
        QTest::newRow(qPrintable(way)) << way;
    }
}

// While an item is being removed, no way of ending the program ends it, and
// the run goes on to its end.
void TerminationTests::endingIsRefusedWhileRemoving() {
    QFETCH(QString, way);
    plantCache();
    makeModel();
    QVERIFY(guard_->catchTerminationSignals());
    holdInTheMiddleOfRemoving();
    QVERIFY(!guard_->shouldTerminate());
    QCOMPARE(runApplication([&] { requestEnd(way); }), kStillRunning);
    QVERIFY(window_->isVisible());

    processes_->release();
    QTRY_COMPARE_WITH_TIMEOUT(model_->phase(), PhaseKind::Finished, kWaitMs);
    QVERIFY(!testsupport::exists(*temp_ / "home/Library/Caches/io.tavio.Tavio"));
}

void TerminationTests::everyTerminationSignalIsCaught_data() {
    QTest::addColumn<int>("signalNumber");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void TerminationTests::everyTerminationSignalIsCaught() {
    QFETCH(int, signalNumber);
    reach(QStringLiteral("review"));
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
    QCOMPARE(model_->phase(), PhaseKind::Finished);
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
