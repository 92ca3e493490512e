#include "ScenarioWindow.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QQmlComponent>
#include <cstdio>

#include "app/ColorScheme.h"

std::unique_ptr<ScenarioWindow> showScenario(QQmlEngine& engine, const Scenario& scenario) {
    if (!engine.importPathList().contains(QStringLiteral("qrc:/qt/qml"))) {
        engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
    }
    // The screen tests' own fake model, so that the screenshots and the
    // rendered-screen tests show exactly what those tests hold to the model.
    QQmlComponent fakeModel(&engine, QUrl(QStringLiteral("qrc:/ui-screenshots/FakeModel.qml")));
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
