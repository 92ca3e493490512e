// ui-screenshots FOLDER: renders every screen of the window offscreen, with a
// fake model, into PNG files in FOLDER. For looking at the layout without a
// desktop, and for reviews. Exits non-zero when a screen fails to load, a QML
// warning is printed, or an image cannot be written.
//
// ui-screenshots --show NAME: shows one of those screens in a real window on
// the desktop, for trying the keyboard and screen readers by hand; the fake
// model prints every call it receives.
#include <QtQml/qqmlextensionplugin.h>

#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickStyle>
#include <QQuickWindow>
#include <cstdio>
#include <memory>

#include "Scenarios.h"

Q_IMPORT_QML_PLUGIN(UninstallTavioPlugin)

namespace {

bool sawWarning = false;

void noteMessages(QtMsgType type, const QMessageLogContext&, const QString& message) {
    // The offscreen platform cannot pass a window's size limits on; that is
    // expected here and says nothing about the screens.
    const bool expected = message.contains(QLatin1String("does not support propagateSizeHints"));
    if (type != QtDebugMsg && type != QtInfoMsg && !expected)
        sawWarning = true;
    std::fprintf(stderr, "%s\n", qPrintable(message));
}

// Lets the window lay itself out and draw a few frames.
void settle(QQuickWindow* window) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 400) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        window->requestUpdate();
    }
}

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

// A fake model and the window that shows it, destroyed window first.
struct Shown {
    std::unique_ptr<QObject> model;
    std::unique_ptr<QObject> window;
    ~Shown() { window.reset(); }
};

std::unique_ptr<Shown> show(QQmlEngine& engine, const Scenario& scenario) {
    QQmlComponent fakeModel(&engine);
    fakeModel.setData(kFakeModel, QUrl(QStringLiteral("qrc:/ui-screenshots/FakeModel.qml")));
    QQmlComponent main(&engine, QUrl(QStringLiteral("qrc:/qt/qml/UninstallTavio/Main.qml")));
    if (!fakeModel.isReady() || !main.isReady()) {
        std::fprintf(stderr, "%s: %s%s\n", qPrintable(scenario.name),
                     qPrintable(fakeModel.errorString()), qPrintable(main.errorString()));
        return nullptr;
    }
    auto shown = std::make_unique<Shown>();
    shown->model.reset(fakeModel.createWithInitialProperties(scenario.model));
    shown->window.reset(main.createWithInitialProperties(
        {{QStringLiteral("model"), QVariant::fromValue(shown->model.get())}}));
    if (!qobject_cast<QQuickWindow*>(shown->window.get())) {
        std::fprintf(stderr, "%s: %s\n", qPrintable(scenario.name), qPrintable(main.errorString()));
        return nullptr;
    }
    return shown;
}

bool render(QQmlEngine& engine, const Scenario& scenario, const QDir& folder) {
    const std::unique_ptr<Shown> shown = show(engine, scenario);
    if (!shown)
        return false;
    auto* window = qobject_cast<QQuickWindow*>(shown->window.get());
    settle(window);
    const QImage image = window->grabWindow();
    const QString file = folder.filePath(scenario.name + QStringLiteral(".png"));
    if (image.isNull() || !image.save(file)) {
        std::fprintf(stderr, "%s: cannot write %s\n", qPrintable(scenario.name), qPrintable(file));
        return false;
    }
    std::printf("%s (%dx%d)\n", qPrintable(file), image.width(), image.height());
    return true;
}

int showOne(const QString& name) {
    QQmlEngine engine;
    engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
    for (const Scenario& scenario : scenarios()) {
        if (scenario.name != name)
            continue;
        const std::unique_ptr<Shown> shown = show(engine, scenario);
        return shown ? QGuiApplication::exec() : 1;
    }
    std::fprintf(stderr, "no screen named %s\n", qPrintable(name));
    return 2;
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc == 3 && QByteArray(argv[1]) == "--show") {
        QGuiApplication app(argc, argv);
        QQuickStyle::setStyle(QStringLiteral("Fusion"));
        return showOne(QString::fromLocal8Bit(argv[2]));
    }
    if (argc != 2) {
        std::fprintf(stderr, "usage: ui-screenshots FOLDER | ui-screenshots --show NAME\n");
        return 2;
    }
    const QString folderPath = QString::fromLocal8Bit(argv[1]);
    // Offscreen and software-rendered, so that it runs anywhere and gives the
    // same pixels every time.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QGuiApplication app(argc, argv);
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    qInstallMessageHandler(noteMessages);

    QDir folder;
    if (!folder.mkpath(folderPath)) {
        std::fprintf(stderr, "cannot create %s\n", argv[1]);
        return 1;
    }
    folder.setPath(folderPath);

    QQmlEngine engine;
    engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
    bool ok = true;
    for (const Scenario& scenario : scenarios())
        ok = render(engine, scenario, folder) && ok;
    return ok && !sawWarning ? 0 : 1;
}
