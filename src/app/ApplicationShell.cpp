#include "app/ApplicationShell.h"

#include <QCoreApplication>
#include <QDir>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QSGRendererInterface>
#include <QTranslator>
#include <QUrl>

#include "app/AccessibleControls.h"
#include "app/DesktopColorScheme.h"
#include "app/SingleInstance.h"
#include "app/SystemServices.h"
#include "app/TemporaryCopy.h"
#include "app/TerminationGuard.h"
#include "app/Translations.h"
#include "app/UninstallerModel.h"
#include "target/UninstallContext.h"

namespace app {
namespace {

// The program keeps nothing between launches and writes nothing under the
// home folder: no compiled QML and no shaders cached on disk, by Qt or by
// the graphics driver. Without a session bus, the bus library would start
// one for the display and note its address under the home folder; the
// program can do without a bus (revealing then opens the folder instead).
// These are read once, so they are set before the application exists.
void keepNoState() {
    qputenv("QML_DISABLE_DISK_CACHE", "1");
    qputenv("QT_DISABLE_SHADER_DISK_CACHE", "1");
    qputenv("MESA_SHADER_CACHE_DISABLE", "true");
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) {
        qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    }
}

// The window takes no typed text (paths can be selected and copied, never
// edited), so it asks for no input method. That also keeps Qt 6.4's Wayland
// plugin away from its text-input support, which crashes while the window
// loads when the compositor offers no seat (kiosk and remote sessions, a
// headless compositor). Read when the application starts.
void needNoInputMethod() {
    qputenv("QT_IM_MODULE", "none");
}

// The window is still text and a few icons. The software scene graph draws
// it without compiling a single shader, which on a machine without a GPU
// driver (a virtual machine, a remote display) costs more than everything
// else the program does before its first frame, and it needs no graphics
// driver at all. A person who sets QT_QUICK_BACKEND still chooses.
void chooseSceneGraph() {
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND") &&
        qEnvironmentVariableIsEmpty("QMLSCENE_DEVICE")) {
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    }
}

QQuickWindow* loadWindow(QQmlApplicationEngine& qml, UninstallerModel& model) {
    qml.addImportPath(QStringLiteral("qrc:/qt/qml"));
    qml.setInitialProperties({{QStringLiteral("model"), QVariant::fromValue(&model)}});
    qml.load(QUrl(QString::fromLatin1(kMainQmlUrl)));
    const QList<QObject*> roots = qml.rootObjects();
    auto* window = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
    if (window) {
        window->setTitle(QCoreApplication::translate("Shell", "Uninstall Tavio"));
    }
    return window;
}

// Everything that lives while the window is up, torn down in reverse order
// (the window before the guard, the guard before the model) when it returns.
int runWindow(QGuiApplication& application) {
    // The core's sentences are translated like every other text of the
    // window; without a translation for the user's language English stands.
    QTranslator translator;
    (void)installTranslations(translator);
    installCoreTextLookup();
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    chooseSceneGraph();
    installAccessibleControls();
    followDesktopColorScheme();

    // A second start ends here, before it has looked at a single file.
    SingleInstance instance(SingleInstance::defaultFolder());
    if (!instance.acquire()) {
        (void)activateRunningCopy();
        return 0;
    }

    const target::UninstallContext context = target::UninstallContext::current();
    UninstallerModel model(makeSystemEngine(context), makeSystemDesktopActions());
    TerminationGuard guard(&model);
    (void)guard.catchTerminationSignals();
    QQmlApplicationEngine qml;
    QQuickWindow* window = loadWindow(qml, model);
    if (!window) {
        return 1;
    }
    guard.guardWindow(window);
    offerActivation(window);
    return application.exec();
}

}  // namespace

int runApplication(int& argc, char** argv) {
    keepNoState();
    needNoInputMethod();
    QString bundlePath;
    int code = 0;
    {
        QGuiApplication application(argc, argv);
        bundlePath = bundlePathForExecutable(QCoreApplication::applicationFilePath());
        code = runWindow(application);
    }
    removeTemporaryCopy(bundlePath, QDir::tempPath());
    return code;
}

}  // namespace app
