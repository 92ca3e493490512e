#include <QClipboard>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QUrl>
#include <QtTest>

#include "QtTestMain.h"
#include "TempDir.h"
#include "app/SystemDesktopActions.h"

namespace {

const QString kService = QStringLiteral("org.freedesktop.FileManager1");
const QString kPath = QStringLiteral("/org/freedesktop/FileManager1");

}  // namespace

// A file manager on the test's own session bus, as far as revealing goes.
class FakeFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

  public slots:
    void ShowItems(const QStringList& uris, const QString& startupId) {
        calls.append(uris);
        startupIds.append(startupId);
    }

  public:
    QList<QStringList> calls;
    QStringList startupIds;
};

// Catches what would otherwise open a real folder window.
class OpenedUrls : public QObject {
    Q_OBJECT

  public slots:
    void open(const QUrl& url) { urls.append(url); }

  public:
    QList<QUrl> urls;
};

// The Linux desktop services: Qt's clipboard, an existence test that
// follows links, and revealing through the session's file manager with the
// folder of the first path as the fallback. Run on a private session bus.
class DesktopActionsTests : public QObject {
    Q_OBJECT

  private slots:
    void init();
    void cleanup();

    void clipboardHoldsExactlyTheText();
    void existenceFollowsLinks();
    void revealAsksTheFileManager();
    void revealWithNoPathsStillAsks();
    void revealFallsBackToTheFolderOfTheFirstPath();
    void revealFallbackWithNoPathsOpensNothing();

  private:
    bool requireBus();
    bool requireNoFileManager();

    app::SystemDesktopActions actions_;
    OpenedUrls opened_;
};

void DesktopActionsTests::init() {
    opened_.urls.clear();
    QDesktopServices::setUrlHandler(QStringLiteral("file"), &opened_, "open");
}

void DesktopActionsTests::cleanup() {
    QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
}

// Each tells whether the test can go on; a test that cannot has failed or
// been skipped with the reason.
bool DesktopActionsTests::requireBus() {
    if (!QDBusConnection::sessionBus().isConnected()) {
        // CTest runs it under dbus-run-session (scripts/setup.sh installs
        // dbus): without a bus, the checks that need one must not pass.
        QTest::qFail("no session bus (run the test under dbus-run-session)", __FILE__, __LINE__);
        return false;
    }
    return true;
}

bool DesktopActionsTests::requireNoFileManager() {
    if (!requireBus()) {
        return false;
    }
    const QStringList activatable =
        QDBusConnection::sessionBus().interface()->activatableServiceNames().value();
    if (activatable.contains(kService)) {
        QTest::qSkip("a real file manager can be started on this bus", __FILE__, __LINE__);
        return false;
    }
    return true;
}

void DesktopActionsTests::clipboardHoldsExactlyTheText() {
    actions_.setClipboardText(QStringLiteral("/a/one\n/b/two"));
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("/a/one\n/b/two"));
    actions_.setClipboardText(QString());
    QCOMPARE(QGuiApplication::clipboard()->text(), QString());
}

void DesktopActionsTests::existenceFollowsLinks() {
    const testsupport::TempDir temp;
    testsupport::writeFile(temp / "file", "x");
    testsupport::makeDirectories(temp / "folder");
    testsupport::makeLink(temp / "file", temp / "link");
    testsupport::makeLink(temp / "gone", temp / "dangling");

    const auto exists = [&](const char* name) {
        return actions_.exists(QString::fromStdString(temp / name));
    };
    QVERIFY(exists("file"));
    QVERIFY(exists("folder"));
    QVERIFY(exists("link"));
    QVERIFY(!exists("dangling"));
    QVERIFY(!exists("missing"));
}

void DesktopActionsTests::revealAsksTheFileManager() {
    if (!requireBus()) {
        return;
    }
    FakeFileManager manager;
    QDBusConnection bus = QDBusConnection::sessionBus();
    QVERIFY(bus.registerObject(kPath, &manager, QDBusConnection::ExportAllSlots));
    QVERIFY(bus.registerService(kService));

    actions_.reveal({QStringLiteral("/tmp/with space/a"), QStringLiteral("/tmp/b")});
    QTRY_COMPARE(manager.calls.size(), 1);
    QCOMPARE(manager.calls.first(), (QStringList{QStringLiteral("file:///tmp/with%20space/a"),
                                                 QStringLiteral("file:///tmp/b")}));
    QCOMPARE(manager.startupIds, QStringList{QString()});
    QTest::qWait(100);
    QVERIFY(opened_.urls.isEmpty());

    QVERIFY(bus.unregisterService(kService));
    bus.unregisterObject(kPath);
}

void DesktopActionsTests::revealWithNoPathsStillAsks() {
    if (!requireBus()) {
        return;
    }
    FakeFileManager manager;
    QDBusConnection bus = QDBusConnection::sessionBus();
    QVERIFY(bus.registerObject(kPath, &manager, QDBusConnection::ExportAllSlots));
    QVERIFY(bus.registerService(kService));

    actions_.reveal({});
    QTRY_COMPARE(manager.calls.size(), 1);
    QVERIFY(manager.calls.first().isEmpty());

    QVERIFY(bus.unregisterService(kService));
    bus.unregisterObject(kPath);
}

void DesktopActionsTests::revealFallsBackToTheFolderOfTheFirstPath() {
    if (!requireNoFileManager()) {
        return;
    }
    actions_.reveal({QStringLiteral("/tmp/first/a"), QStringLiteral("/tmp/second/b")});
    QTRY_COMPARE(opened_.urls.size(), 1);
    QCOMPARE(opened_.urls.first(), QUrl::fromLocalFile(QStringLiteral("/tmp/first")));
}

void DesktopActionsTests::revealFallbackWithNoPathsOpensNothing() {
    if (!requireNoFileManager()) {
        return;
    }
    actions_.reveal({});
    QTest::qWait(500);  // long enough for the bus to answer that nobody is there
    QVERIFY(opened_.urls.isEmpty());
}

int main(int argc, char** argv) {
    // The bus connection and the clipboard stay open for the life of the
    // process once used; they are not leaks.
    return apptest::runTests<DesktopActionsTests>(argc, argv, [] {
        (void)QDBusConnection::sessionBus().isConnected();
        (void)QGuiApplication::clipboard();
    });
}

#include "DesktopActionsTests.moc"
