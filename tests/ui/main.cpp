// Runs the screen tests against the same QML module that the application
// loads, in the Fusion style that the application uses.
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

#include <QQmlEngine>
#include <QQuickStyle>

Q_IMPORT_QML_PLUGIN(UninstallTavioPlugin)
Q_IMPORT_QML_PLUGIN(UninstallTavioAppPlugin)

class Setup : public QObject {
    Q_OBJECT

  public slots:
    void applicationAvailable() { QQuickStyle::setStyle(QStringLiteral("Fusion")); }

    void qmlEngineAvailable(QQmlEngine* engine) {
        engine->addImportPath(QStringLiteral("qrc:/qt/qml"));
    }
};

QUICK_TEST_MAIN_WITH_SETUP(ui, Setup)

#include "main.moc"
