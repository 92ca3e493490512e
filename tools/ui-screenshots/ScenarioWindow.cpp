#include "ScenarioWindow.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QQmlComponent>
#include <cstdio>

#include "app/ColorScheme.h"

namespace {

constexpr const char* kFakeModel = R"(
import QtQml
QtObject {
    property string phase: "review"
    property string userName: "alice"
    property var items: []
    property int removableCount: 0
    property bool waitingForQuit: false
    property var rowStates: ({})
    property bool isConfirming: false
    property bool isBusy: false
    property int finishedCount: 0
    property var report: ({})
    function startUninstall() { console.log("called: startUninstall") }
    function refresh() { console.log("called: refresh") }
    function cancel() { console.log("called: cancel") }
    function revealRemaining() { console.log("called: revealRemaining") }
    function copyRemainingPaths() { console.log("called: copyRemainingPaths") }
    function quit() { console.log("called: quit") }
}
)";

}  // namespace

std::unique_ptr<ScenarioWindow> showScenario(QQmlEngine& engine, const Scenario& scenario) {
    if (!engine.importPathList().contains(QStringLiteral("qrc:/qt/qml"))) {
        engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
    }
    QQmlComponent fakeModel(&engine);
    fakeModel.setData(kFakeModel, QUrl(QStringLiteral("qrc:/ui-screenshots/FakeModel.qml")));
    QQmlComponent main(&engine, QUrl(QStringLiteral("qrc:/qt/qml/UninstallTavio/Main.qml")));
    if (!fakeModel.isReady() || !main.isReady()) {
        std::fprintf(stderr, "%s: %s%s\n", qPrintable(scenario.name),
                     qPrintable(fakeModel.errorString()), qPrintable(main.errorString()));
        return nullptr;
    }
    auto shown = std::make_unique<ScenarioWindow>();
    shown->model.reset(fakeModel.createWithInitialProperties(scenario.model));
    shown->window.reset(main.createWithInitialProperties(
        {{QStringLiteral("model"), QVariant::fromValue(shown->model.get())}}));
    if (!shown->quickWindow()) {
        std::fprintf(stderr, "%s: %s\n", qPrintable(scenario.name), qPrintable(main.errorString()));
        return nullptr;
    }
    return shown;
}

void useOffscreenRendering() {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
}

void settle(QQuickWindow* window) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 400) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        window->requestUpdate();
    }
}

QList<NamedPalette> lightAndDark(const QPalette& platform) {
    return {{QStringLiteral("light"), platform},
            {QStringLiteral("dark"), colorscheme::darkPalette()}};
}
