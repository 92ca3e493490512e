// ui-screenshots FOLDER: renders every screen of the window offscreen, with a
// fake model and in the words the program would use here (LANGUAGE and LANG
// pick the catalogue), into PNG files in FOLDER/light and FOLDER/dark (the platform's
// palette and the program's dark one). For looking at the layout without a
// desktop, and for reviews. With QT_SCALE_FACTOR set, the images have that
// many device pixels per point. Exits non-zero when a screen fails to load, a
// QML warning is printed, or an image cannot be written.
//
// ui-screenshots --show NAME: shows one of those screens in a real window on
// the desktop, for trying the keyboard and screen readers by hand; the fake
// model prints every call it receives.
#include <QtQml/qqmlextensionplugin.h>

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QQmlEngine>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QTranslator>
#include <cstdio>
#include <memory>

#include "ScenarioWindow.h"
#include "Scenarios.h"
#include "app/Translations.h"

Q_IMPORT_QML_PLUGIN(UninstallTavioPlugin)
Q_IMPORT_QML_PLUGIN(UninstallTavioAppPlugin)

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

bool render(QQmlEngine& engine, const Scenario& scenario, const QDir& folder) {
    const std::unique_ptr<ScenarioWindow> shown = showScenario(engine, scenario);
    if (!shown)
        return false;
    QQuickWindow* window = shown->quickWindow();
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

// Every screen in one palette, with an engine of its own so that nothing of
// the other palette lingers in its singletons.
bool renderAll(const QString& folderPath) {
    QDir folder;
    if (!folder.mkpath(folderPath)) {
        std::fprintf(stderr, "cannot create %s\n", qPrintable(folderPath));
        return false;
    }
    folder.setPath(folderPath);
    QQmlEngine engine;
    bool ok = true;
    for (const Scenario& scenario : scenarios())
        ok = render(engine, scenario, folder) && ok;
    return ok;
}

int showOne(const QString& name) {
    QQmlEngine engine;
    for (const Scenario& scenario : scenarios()) {
        if (scenario.name != name)
            continue;
        const std::unique_ptr<ScenarioWindow> shown = showScenario(engine, scenario);
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
        QTranslator translator;
        (void)app::installTranslations(translator);
        return showOne(QString::fromLocal8Bit(argv[2]));
    }
    if (argc != 2) {
        std::fprintf(stderr, "usage: ui-screenshots FOLDER | ui-screenshots --show NAME\n");
        return 2;
    }
    const QString folderPath = QString::fromLocal8Bit(argv[1]);
    useOffscreenRendering();
    QGuiApplication app(argc, argv);
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    qInstallMessageHandler(noteMessages);
    // The words of this platform's desktop in the user's language, as the
    // program shows them.
    QTranslator translator;
    (void)app::installTranslations(translator);

    bool ok = true;
    for (const NamedPalette& look : lightAndDark(QGuiApplication::palette())) {
        QGuiApplication::setPalette(look.palette);
        ok = renderAll(folderPath + QLatin1Char('/') + look.name) && ok;
    }
    return ok && !sawWarning ? 0 : 1;
}
