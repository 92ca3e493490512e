#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <optional>

#include "app/DesktopColorScheme.h"

namespace app {
namespace {

// The portal answers within milliseconds when it runs; a session without one
// must not hold up the window.
constexpr int kPortalTimeoutMs = 300;

// The portal's value: 0 no preference, 1 prefer dark, 2 prefer light; or
// nothing when there is no bus or no portal.
std::optional<uint> portalColorScheme() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return std::nullopt;
    }
    QDBusMessage read = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.portal.Desktop"),
        QStringLiteral("/org/freedesktop/portal/desktop"),
        QStringLiteral("org.freedesktop.portal.Settings"), QStringLiteral("Read"));
    read << QStringLiteral("org.freedesktop.appearance") << QStringLiteral("color-scheme");
    const QDBusMessage reply = bus.call(read, QDBus::Block, kPortalTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return std::nullopt;
    }
    // The value comes wrapped in one or two variants, depending on the
    // portal's version.
    QVariant value = reply.arguments().first();
    while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>()) {
        value = value.value<QDBusVariant>().variant();
    }
    bool ok = false;
    const uint scheme = value.toUInt(&ok);
    return ok ? std::optional<uint>(scheme) : std::nullopt;
}

}  // namespace

bool desktopPrefersDark() {
    if (const std::optional<uint> scheme = portalColorScheme()) {
        return *scheme == 1;
    }
    return qEnvironmentVariable("GTK_THEME").endsWith(QLatin1String(":dark"));
}

}  // namespace app
