// The screens are tested against FakeModel.qml. These tests keep it the real
// model's double: the same properties with the same types as QML sees them,
// the same change signals and the same operations, so that a screen test
// cannot pass against a model that the program does not have.
#include <QtQml/qqmlextensionplugin.h>

#include <QMetaMethod>
#include <QMetaProperty>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QSet>
#include <QtTest>
#include <memory>

#include "app/UninstallerModel.h"

Q_IMPORT_QML_PLUGIN(UninstallTavioAppPlugin)

namespace {

// What the fake keeps for its own tests, which the real model has no need of.
const QSet<QString> kFakeOnly = {QStringLiteral("calls"), QStringLiteral("callsChanged"),
                                 QStringLiteral("record")};

// A property's type as QML sees it: lists and maps arrive as `var`, and an
// enumeration is a number, which a QML object declares as `int`.
QString qmlType(const QMetaProperty& property) {
    if (property.isEnumType()) {
        return QStringLiteral("int");
    }
    switch (property.metaType().id()) {
        case QMetaType::QVariant:
        case QMetaType::QVariantList:
        case QMetaType::QVariantMap:
            return QStringLiteral("var");
        default:
            return QString::fromLatin1(property.metaType().name());
    }
}

// "name: type" for each property that the object adds to QObject's.
QSet<QString> propertiesOf(const QMetaObject& meta) {
    QSet<QString> found;
    for (int i = QObject::staticMetaObject.propertyCount(); i < meta.propertyCount(); ++i) {
        const QMetaProperty property = meta.property(i);
        const QString name = QString::fromLatin1(property.name());
        if (!kFakeOnly.contains(name)) {
            found.insert(name + QStringLiteral(": ") + qmlType(property));
        }
    }
    return found;
}

// The names of the object's own methods of one kind: signals, or operations
// (the model's are invokable methods, the fake's QML functions are slots).
QSet<QString> methodsOf(const QMetaObject& meta, QMetaMethod::MethodType type) {
    QSet<QString> found;
    for (int i = QObject::staticMetaObject.methodCount(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        const QString name = QString::fromLatin1(method.name());
        const QMetaMethod::MethodType kind =
            method.methodType() == QMetaMethod::Slot ? QMetaMethod::Method : method.methodType();
        if (kind == type && method.access() == QMetaMethod::Public && !kFakeOnly.contains(name)) {
            found.insert(name);
        }
    }
    return found;
}

}  // namespace

class FakeModelTests : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() {
        // The fake is loaded as the screen tests load it, where QtQuick has
        // brought in the QML modules it depends on.
        QQmlComponent quick(&engine_);
        quick.setData("import QtQuick\nQtObject {}", QUrl());
        std::unique_ptr<QObject> warmUp(quick.create());
        QVERIFY2(warmUp != nullptr, qPrintable(quick.errorString()));
        engine_.addImportPath(QStringLiteral("qrc:/qt/qml"));
        QQmlComponent component(&engine_, QUrl::fromLocalFile(QStringLiteral(FAKE_MODEL_QML)));
        fake_.reset(component.create());
        QVERIFY2(fake_ != nullptr, qPrintable(component.errorString()));
    }

    void hasTheModelsProperties() {
        QVERIFY(propertiesOf(app::UninstallerModel::staticMetaObject)
                    .contains(QStringLiteral("phase: int")));
        QCOMPARE(propertiesOf(*fake_->metaObject()),
                 propertiesOf(app::UninstallerModel::staticMetaObject));
    }

    // The fake can only say `int`; the model's states are its enumerations.
    void statesAreEnumerations() {
        const QMetaObject& meta = app::UninstallerModel::staticMetaObject;
        const QMetaProperty phase = meta.property(meta.indexOfProperty("phase"));
        QVERIFY(phase.isEnumType());
        QCOMPARE(phase.enumerator().enumName(), "PhaseKind");
        QVERIFY(phase.enumerator().isScoped());
        for (const char* name : {"RowState", "Category", "ItemState", "ItemOutcome", "Outcome"}) {
            QVERIFY2(meta.indexOfEnumerator(name) >= 0, name);
        }
    }

    void hasTheModelsSignals() {
        QVERIFY(methodsOf(app::UninstallerModel::staticMetaObject, QMetaMethod::Signal)
                    .contains(QStringLiteral("phaseChanged")));
        QCOMPARE(methodsOf(*fake_->metaObject(), QMetaMethod::Signal),
                 methodsOf(app::UninstallerModel::staticMetaObject, QMetaMethod::Signal));
    }

    void hasTheModelsOperations() {
        QVERIFY(methodsOf(app::UninstallerModel::staticMetaObject, QMetaMethod::Method)
                    .contains(QStringLiteral("startUninstall")));
        QCOMPARE(methodsOf(*fake_->metaObject(), QMetaMethod::Method),
                 methodsOf(app::UninstallerModel::staticMetaObject, QMetaMethod::Method));
    }

  private:
    QQmlEngine engine_;
    std::unique_ptr<QObject> fake_;
};

QTEST_GUILESS_MAIN(FakeModelTests)

#include "FakeModelTests.moc"
