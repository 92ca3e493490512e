#include <QtQml/qqmlextensionplugin.h>
#include <unistd.h>

#include <QQmlApplicationEngine>
#include <QQmlError>
#include <QQuickWindow>
#include <QtTest>
#include <memory>

#include "FakeAdapters.h"
#include "ModelFakes.h"
#include "QtTestMain.h"
#include "TempDir.h"
#include "app/ApplicationShell.h"
#include "app/TerminationGuard.h"
#include "app/UninstallerModel.h"

Q_IMPORT_QML_PLUGIN(UninstallTavioPlugin)
Q_IMPORT_QML_PLUGIN(UninstallTavioAppPlugin)

using app::UninstallerModel;
using PhaseKind = UninstallerModel::PhaseKind;
using namespace std::chrono_literals;

namespace {

constexpr int kWaitMs = 20'000;

// Script errors that mean the window and the model disagree about a name
// or a type. (Layout warnings are the window's own business.)
bool isScriptError(const QQmlError& error) {
    const QString text = error.description();
    for (const char* sign : {"TypeError", "ReferenceError", "is not defined", "Unable to assign",
                             "Cannot read property", "is not a function", "Required property"}) {
        if (text.contains(QLatin1String(sign))) {
            return true;
        }
    }
    return false;
}

}  // namespace

// The real window, loaded the way the program loads it, over the real model
// (with scripted adapters): the two halves agree on every name the screens
// use, through a whole run.
class WindowTests : public QObject {
    Q_OBJECT

  private slots:
    void init();
    void cleanup();

    void theWindowShowsTheModel();
    void aWholeRunRendersWithoutScriptErrors();
    void closingIsRefusedWhileRemoving();

  private:
    QQuickWindow* load();

    std::unique_ptr<testsupport::TempDir> temp_;
    std::shared_ptr<apptest::ControlledProcesses> processes_;
    std::unique_ptr<UninstallerModel> model_;
    std::unique_ptr<app::TerminationGuard> guard_;
    std::unique_ptr<QQmlApplicationEngine> qml_;
    QList<QQmlError> errors_;
};

void WindowTests::init() {
    temp_ = std::make_unique<testsupport::TempDir>();
    testsupport::makeDirectories(*temp_ / "home/Library/Caches/io.tavio.Tavio");
    testsupport::makeDirectories(*temp_ / "home/Library/Logs/io.tavio.Tavio");
    processes_ = std::make_shared<apptest::ControlledProcesses>();
    target::UninstallContext context =
        target::UninstallContext::make(::getuid(), {*temp_ / "home", "alice"}, "io.tavio.Tavio");
    context.applicationDirectories = {*temp_ / "Applications"};
    engine::UninstallEngine engine{context,
                                   processes_,
                                   std::make_shared<testsupport::FakePreferences>(),
                                   std::make_shared<testsupport::FakeVerifier>(),
                                   10s,
                                   10ms};
    model_ = std::make_unique<UninstallerModel>(std::move(engine),
                                                std::make_shared<apptest::RecordingActions>());
    errors_.clear();
}

void WindowTests::cleanup() {
    qml_.reset();
    guard_.reset();
    processes_->release();
    model_.reset();
    temp_.reset();
    for (const QQmlError& error : std::as_const(errors_)) {
        QVERIFY2(!isScriptError(error), qPrintable(error.toString()));
    }
}

QQuickWindow* WindowTests::load() {
    qml_ = std::make_unique<QQmlApplicationEngine>();
    connect(qml_.get(), &QQmlEngine::warnings, this,
            [this](const QList<QQmlError>& warnings) { errors_.append(warnings); });
    qml_->addImportPath(QStringLiteral("qrc:/qt/qml"));
    qml_->setInitialProperties({{QStringLiteral("model"), QVariant::fromValue(model_.get())}});
    qml_->load(QUrl(QString::fromLatin1(app::kMainQmlUrl)));
    const QList<QObject*> roots = qml_->rootObjects();
    return roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
}

void WindowTests::theWindowShowsTheModel() {
    QQuickWindow* window = load();
    QVERIFY(window);
    QVERIFY(QTest::qWaitForWindowExposed(window));
    QCOMPARE(window->title(), QStringLiteral("Uninstall Tavio"));
    QCOMPARE(window->property("model").value<QObject*>(), model_.get());
    QVERIFY(window->width() > 0);
    QVERIFY(window->height() > 0);
}

void WindowTests::aWholeRunRendersWithoutScriptErrors() {
    QQuickWindow* window = load();
    QVERIFY(window);
    QVERIFY(QTest::qWaitForWindowExposed(window));
    model_->setIsConfirming(true);
    QTest::qWait(50);
    model_->setIsConfirming(false);
    model_->startUninstall();
    QTRY_COMPARE_WITH_TIMEOUT(model_->phase(), PhaseKind::Finished, kWaitMs);
    QVERIFY(!window->grabWindow().isNull());
    model_->refresh();
    QCOMPARE(model_->phase(), PhaseKind::NothingToRemove);
    QVERIFY(!window->grabWindow().isNull());
}

void WindowTests::closingIsRefusedWhileRemoving() {
    QQuickWindow* window = load();
    QVERIFY(window);
    guard_ = std::make_unique<app::TerminationGuard>(model_.get());
    guard_->guardWindow(window);
    QVERIFY(QTest::qWaitForWindowExposed(window));

    processes_->holdAtCall(1);
    model_->startUninstall();
    QTRY_VERIFY_WITH_TIMEOUT(processes_->isHeld() && model_->isBusy(), kWaitMs);
    QVERIFY(!window->close());
    QVERIFY(window->isVisible());
    processes_->release();
    QTRY_COMPARE_WITH_TIMEOUT(model_->phase(), PhaseKind::Finished, kWaitMs);
    QVERIFY(window->close());
}

int main(int argc, char** argv) {
    return apptest::runTests<WindowTests>(argc, argv);
}

#include "WindowTests.moc"
