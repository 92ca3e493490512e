#include <QClipboard>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QGuiApplication>
#include <QUrl>
#include <memory>

#include "app/SystemDesktopActions.h"
#include "app/SystemServices.h"

namespace app {
namespace {

// A file manager that is started on demand by the bus may take a moment.
constexpr int kShowItemsTimeoutMs = 10'000;

void openFolderOfFirst(const QStringList& paths) {
    if (paths.isEmpty()) {
        return;
    }
    (void)QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(paths.first()).absolutePath()));
}

}  // namespace

void SystemDesktopActions::setClipboardText(const QString& text) {
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(text);
}

bool SystemDesktopActions::exists(const QString& path) const {
    return QFileInfo::exists(path);
}

void SystemDesktopActions::reveal(const QStringList& paths) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        openFolderOfFirst(paths);
        return;
    }
    QStringList uris;
    for (const QString& path : paths) {
        uris.append(QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded));
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << uris << QString();
    // The answer comes in the event loop; the window never waits for it.
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, kShowItemsTimeoutMs),
                                                QCoreApplication::instance());
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [paths](QDBusPendingCallWatcher* finished) {
                         if (finished->isError()) {
                             openFolderOfFirst(paths);
                         }
                         finished->deleteLater();
                     });
}

std::shared_ptr<DesktopActions> makeSystemDesktopActions() {
    return std::make_shared<SystemDesktopActions>();
}

}  // namespace app
