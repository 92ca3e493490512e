#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QPointer>
#include <QWindow>

#include "app/SingleInstance.h"

namespace app {
namespace {

const QString kService = QStringLiteral("io.tavio.Tavio.Uninstaller");
const QString kPath = QStringLiteral("/io/tavio/Tavio/Uninstaller");
const QString kInterface = QStringLiteral("io.tavio.Tavio.Uninstaller");

// Brings the window to the front when a later start asks. On Wayland a
// window cannot take the focus by itself: the compositor may only mark it as
// wanting attention.
class Activator : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "io.tavio.Tavio.Uninstaller")

  public:
    explicit Activator(QWindow* window) : QObject(window), window_(window) {}

  public slots:
    // The method's name is the one the freedesktop interface gives it.
    Q_SCRIPTABLE void Activate() {  // NOLINT(readability-identifier-naming)
        if (!window_) {
            return;
        }
        window_->setWindowStates(window_->windowStates() & ~Qt::WindowMinimized);
        window_->show();
        window_->raise();
        window_->requestActivate();
    }

  private:
    QPointer<QWindow> window_;
};

}  // namespace

void offerActivation(QWindow* window) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!window || !bus.isConnected()) {
        return;
    }
    auto* activator = new Activator(window);
    (void)bus.registerObject(kPath, activator, QDBusConnection::ExportScriptableSlots);
    (void)bus.registerService(kService);
}

bool activateRunningCopy() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return false;
    }
    const QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Activate"));
    return bus.call(call, QDBus::Block, 2000).type() == QDBusMessage::ReplyMessage;
}

}  // namespace app

#include "InstanceActivationLinux.moc"
