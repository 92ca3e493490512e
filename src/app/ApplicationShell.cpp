#include "app/ApplicationShell.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QGuiApplication>
#include <QIcon>
#include <QLoggingCategory>
#include <QQmlApplicationEngine>
#include <QQmlComponent>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QSGRendererInterface>
#include <QTranslator>
#include <QUrl>
#include <ctime>
#include <future>
#include <memory>
#include <utility>

#include "app/AccessibleControls.h"
#include "app/DesktopColorScheme.h"
#include "app/SingleInstance.h"
#include "app/SystemServices.h"
#include "app/TemporaryCopy.h"
#include "app/TerminationGuard.h"
#include "app/Translations.h"
#include "app/UninstallerModel.h"
#include "target/Inventory.h"
#include "target/UninstallContext.h"

namespace app {
namespace {

// Marks on the way to the first frame, for the start-up benchmark's
// breakdown (QT_LOGGING_RULES="uninstall.startup.debug=true"): each names a
// step and the monotonic clock's reading when it ended, the clock that the
// benchmark reads when it spawns the program.
Q_LOGGING_CATEGORY(lcStartup, "uninstall.startup", QtWarningMsg)

long long monotonicNanoseconds() {
    timespec now{};
    (void)::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

void markStartup(const char* step) {
    if (lcStartup().isDebugEnabled()) {
        qCDebug(lcStartup, "startup mark: %s %lld", step, monotonicNanoseconds());
    }
}

// A step that ran beside the others, on a thread of its own: when it began
// and when it ended.
void markStartupSpan(const char* step, long long began) {
    if (lcStartup().isDebugEnabled()) {
        qCDebug(lcStartup, "startup span: %s %lld %lld", step, began, monotonicNanoseconds());
    }
}

// The program keeps nothing between launches and writes nothing under the
// home folder: no compiled QML and no shaders cached on disk, by Qt or by
// the graphics driver. Its QML comes compiled inside it (and Qt's inside
// Qt), which Qt uses only while its QML disk cache is on; so the cache
// stays on but lives in a folder that can never be made, below a device
// file, where nothing can be written or found. Turning the cache off would
// compile every QML file from source at each start. Without a session bus,
// the bus library would start one for the display and note its address
// under the home folder; the program can do without a bus (revealing then
// opens the folder instead). These are read once, so they are set before
// the application exists.
void keepNoState() {
    qputenv("QML_DISK_CACHE_PATH", "/dev/null/qmlcache");
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

// The desktop ties a window to its desktop entry by this name, and through
// the entry to its name and icon in the task switcher. Qt gives Wayland the
// desktop file name as the app id; on X11 it takes the window class from
// the application name, which would otherwise be the name the program was
// started by. Both must be known before the window exists.
void identifyWithDesktopEntry() {
    const QString entry = QString::fromLatin1(kDesktopEntryName);
    QGuiApplication::setDesktopFileName(entry);
    QCoreApplication::setApplicationName(entry);
}

// The window's own icon is the one the package installs in the icon theme,
// so that a theme may restyle it, with the copy compiled into the program
// for a build that is not installed. Looking it up searches every folder of
// the theme, which the review's first frame does not need: it is done as
// soon as that frame is on screen.
void giveIconAfterFirstFrame(QQuickWindow* window) {
    QObject::connect(
        window, &QQuickWindow::frameSwapped, window,
        [window] {
            const QString entry = QString::fromLatin1(kDesktopEntryName);
            const QIcon icon =
                QIcon::fromTheme(entry, QIcon(QString::fromLatin1(kBundledIconPath)));
            window->setIcon(icon);
        },
        static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::SingleShotConnection));
}

// The first inventory, scanned on a thread of its own while the window's
// QML is compiled: the two take about as long as each other and neither
// needs the other. The scan touches only the core and its adapters, and the
// core's sentences come from QCoreApplication::translate, which any thread
// may call.
std::future<target::Inventory> scanInBackground(const engine::UninstallEngine& engine) {
    return std::async(std::launch::async, [engine] {
        const long long began = monotonicNanoseconds();
        target::Inventory inventory = UninstallerModel::scan(engine);
        markStartupSpan("scan", began);
        return inventory;
    });
}

// Whether the desktop prefers dark, asked beside the compile: the question
// goes over the session bus (connecting to it takes longer than the rest of
// the window's set-up), and the answer is only needed once the window is
// about to be made.
std::future<bool> askDesktopInBackground() {
    return std::async(std::launch::async, [] {
        const long long began = monotonicNanoseconds();
        const bool dark = desktopPrefersDark();
        markStartupSpan("desktop", began);
        return dark;
    });
}

// Makes the window from its compiled QML, for the model, and gives it the
// program's name. Null (with Qt's reasons printed) when the QML failed.
std::unique_ptr<QQuickWindow> makeWindow(QQmlComponent& component, UninstallerModel& model) {
    std::unique_ptr<QObject> root(component.createWithInitialProperties(
        {{QStringLiteral("model"), QVariant::fromValue(&model)}}));
    if (!root) {
        qWarning().noquote() << component.errorString();
        return nullptr;
    }
    std::unique_ptr<QQuickWindow> window(qobject_cast<QQuickWindow*>(root.get()));
    if (window) {
        (void)root.release();
        window->setTitle(QCoreApplication::translate("Shell", "Uninstall Tavio"));
    }
    return window;
}

// What the window needs before its QML is compiled: its style, its scene
// graph and its accessible controls.
void prepareWindow() {
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    chooseSceneGraph();
    installAccessibleControls();
    markStartup("window-setup");
}

// The window's life once it is on screen: the guard watches it, a second
// start may raise it, and its icon follows the first frame.
int showWindow(QGuiApplication& application, QQuickWindow* window, TerminationGuard& guard) {
    // Qt took the window class from the application name when it made the
    // window. Screen readers read that name each time they ask, and should
    // hear the program's name rather than its desktop entry's.
    QCoreApplication::setApplicationName(QCoreApplication::translate("Shell", "Uninstall Tavio"));
    markStartup("window-loaded");
    QObject::connect(
        window, &QQuickWindow::frameSwapped, window, [] { markStartup("frame"); },
        Qt::SingleShotConnection);
    giveIconAfterFirstFrame(window);
    guard.guardWindow(window);
    offerActivation(window);
    return application.exec();
}

// Everything that lives while the window is up, torn down in reverse order
// (the window before the guard, the guard before the model, the model
// before the QML engine) when it returns. The model is made, with the
// inventory it shows first, only once both the scan and the compiled QML
// are ready, so the first frame is the real review.
int runWindow(QGuiApplication& application, engine::UninstallEngine engine) {
    std::future<target::Inventory> firstScan = scanInBackground(engine);
    std::future<bool> desktopIsDark = askDesktopInBackground();
    prepareWindow();
    QQmlApplicationEngine qml;
    qml.addImportPath(QStringLiteral("qrc:/qt/qml"));
    markStartup("qml-engine");
    QQmlComponent component(&qml, QUrl(QString::fromLatin1(kMainQmlUrl)));
    markStartup("qml-compiled");
    followDesktopColorScheme(desktopIsDark.get());
    markStartup("desktop-awaited");
    UninstallerModel model(std::move(engine), makeSystemDesktopActions(), firstScan.get());
    markStartup("scan-awaited");
    TerminationGuard guard(&model);
    (void)guard.catchTerminationSignals();
    const std::unique_ptr<QQuickWindow> window = makeWindow(component, model);
    if (!window) {
        return 1;
    }
    return showWindow(application, window.get(), guard);
}

// Translations, then one copy at a time, then the window.
int runProgram(QGuiApplication& application) {
    // The core's sentences are translated like every other text of the
    // window; without a translation for the user's language English stands.
    QTranslator translator;
    (void)installTranslations(translator);
    installCoreTextLookup();
    markStartup("translations");

    // A second start ends here, before it has looked at a single file.
    SingleInstance instance(SingleInstance::defaultFolders());
    const SingleInstance::Outcome lock = instance.acquire();
    if (lock == SingleInstance::Outcome::heldByAnotherCopy) {
        (void)activateRunningCopy();
        return 0;
    }
    if (lock == SingleInstance::Outcome::unguarded) {
        qWarning("uninstall-tavio: running without the guard against a second copy: %s",
                 qPrintable(instance.problem()));
    }
    const target::UninstallContext context = target::UninstallContext::current();
    return runWindow(application, makeSystemEngine(context));
}

}  // namespace

int runApplication(int& argc, char** argv) {
    keepNoState();
    needNoInputMethod();
    QString bundlePath;
    int code = 0;
    {
        markStartup("main");
        QGuiApplication application(argc, argv);
        bundlePath = bundlePathForExecutable(QCoreApplication::applicationFilePath());
        identifyWithDesktopEntry();
        markStartup("application");
        code = runProgram(application);
    }
    removeTemporaryCopy(bundlePath, QDir::tempPath());
    return code;
}

}  // namespace app
