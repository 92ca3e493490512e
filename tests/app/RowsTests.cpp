// The list models behind the screens' rows, as views use them: checked by
// Qt's model tester while their inputs change, and read through their roles.
#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QtTest>

#include "QtTestMain.h"
#include "app/CategoryRows.h"
#include "app/RemainingRows.h"

using Model = app::UninstallerModel;

namespace {

QVariantMap item(Model::Category category,
                 Model::ItemState state,
                 const QString& path,
                 const QString& reason = {}) {
    return {
        {QStringLiteral("id"), QStringLiteral("tree:") + path},
        {QStringLiteral("category"), static_cast<int>(category)},
        {QStringLiteral("path"), path},
        {QStringLiteral("displayPath"), path},
        {QStringLiteral("state"), static_cast<int>(state)},
        {QStringLiteral("reason"), reason},
    };
}

QVariantMap leftover(const QString& path, const QString& reason) {
    return {{QStringLiteral("path"), path}, {QStringLiteral("reason"), reason}};
}

QVariant roleOf(const QAbstractItemModel& model, int row, const QByteArray& name) {
    return model.data(model.index(row, 0), model.roleNames().key(name));
}

}  // namespace

class RowsTests : public QObject {
    Q_OBJECT

  private slots:
    void categoryRowsHoldUpUnderTheModelTester() {
        CategoryRows rows;
        QAbstractItemModelTester tester(&rows,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        rows.setItems({item(Model::Category::Cache, Model::ItemState::Present, "/c")});
        rows.setRowStates({{QStringLiteral("tree:/c"), static_cast<int>(Model::RowState::Done)}});
        rows.setItems({});
        QCOMPARE(rows.rowCount(), 6);
        QCOMPARE(rows.rowCount(rows.index(0)), 0);
        QVERIFY(!rows.data(rows.index(6), Qt::DisplayRole).isValid());
    }

    void categoryRowsComeInDisplayOrder() {
        CategoryRows rows;
        const QList<Model::Category> order = {
            Model::Category::Settings, Model::Category::TorrentCopies, Model::Category::History,
            Model::Category::Cache,    Model::Category::LogsAndState,  Model::Category::App};
        for (int row = 0; row < rows.rowCount(); ++row) {
            QCOMPARE(static_cast<Model::Category>(roleOf(rows, row, "category").toInt()),
                     order.at(row));
            QCOMPARE(roleOf(rows, row, "title").toString(), CategoryRows::title(order.at(row)));
        }
        QCOMPARE(roleOf(rows, 5, "title").toString(), QStringLiteral("Tavio app"));
    }

    void categoryRowsChangeWhenTheirInputsDo() {
        CategoryRows rows;
        QSignalSpy changed(&rows, &QAbstractItemModel::dataChanged);
        const QVariantList items = {item(Model::Category::Cache, Model::ItemState::Present, "/c")};
        rows.setItems(items);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(roleOf(rows, 3, "trailing").toString(), QStringLiteral("Found"));
        rows.setItems(items);
        QCOMPARE(changed.count(), 1);

        rows.setRowStates({{QStringLiteral("tree:/c"), static_cast<int>(Model::RowState::Failed)}});
        QCOMPARE(changed.count(), 2);
        QCOMPARE(static_cast<Model::RowState>(roleOf(rows, 3, "status").toInt()),
                 Model::RowState::Failed);
        QCOMPARE(roleOf(rows, 3, "statusText").toString(), QStringLiteral("could not be removed"));
    }

    // A state spelt as a name is no state: nothing shows as found or done.
    void namesAreNotStates() {
        CategoryRows rows;
        QVariantMap named = item(Model::Category::Settings, Model::ItemState::Present, "/p");
        named.insert(QStringLiteral("category"), QStringLiteral("settings"));
        rows.setItems({named});
        QCOMPARE(roleOf(rows, 0, "trailing").toString(), QStringLiteral("Not found"));
        QCOMPARE(roleOf(rows, 0, "paths").toStringList(), QStringList());

        rows.setItems({item(Model::Category::Settings, Model::ItemState::Present, "/p")});
        rows.setRowStates({{QStringLiteral("tree:/p"), QStringLiteral("done")}});
        QCOMPARE(static_cast<Model::RowState>(roleOf(rows, 0, "status").toInt()),
                 Model::RowState::Pending);
    }

    void skippedItemMakesItsRowAWarning() {
        CategoryRows rows;
        rows.setItems({item(Model::Category::App, Model::ItemState::Skipped, "/A/Tavio.app",
                            QStringLiteral("Skipped: not a verified Tavio app"))});
        QVERIFY(roleOf(rows, 5, "warning").toBool());
        QCOMPARE(roleOf(rows, 5, "symbol").toString(), QStringLiteral("exclamationmark.triangle"));
        QCOMPARE(roleOf(rows, 5, "reason").toString(),
                 QStringLiteral("Skipped: not a verified Tavio app"));
        QCOMPARE(roleOf(rows, 5, "trailing").toString(), QString());
        QCOMPARE(roleOf(rows, 5, "paths").toStringList(), QStringList{"/A/Tavio.app"});
    }

    // A copy whose earlier removal was cut off is removed like any other,
    // and its row says why it looks as it does, without a warning.
    void noteOfAnItemToRemoveIsShownBesideItCalmly() {
        CategoryRows rows;
        const QString note = QStringLiteral("An earlier removal of this copy was interrupted");
        rows.setItems({item(Model::Category::App, Model::ItemState::Present, "/A/Tavio.app", note),
                       item(Model::Category::App, Model::ItemState::Present, "/B/Tavio.app")});
        QVERIFY(!roleOf(rows, 5, "warning").toBool());
        QCOMPARE(roleOf(rows, 5, "reason").toString(), note);
        QCOMPARE(roleOf(rows, 5, "trailing").toString(), QStringLiteral("Found"));
        QCOMPARE(roleOf(rows, 5, "paths").toStringList(),
                 (QStringList{"/A/Tavio.app", "/B/Tavio.app"}));

        rows.setItems({item(Model::Category::App, Model::ItemState::Present, "/B/Tavio.app")});
        QCOMPARE(roleOf(rows, 5, "reason").toString(), QString());
    }

    void remainingRowsHoldUpUnderTheModelTester() {
        RemainingRows rows;
        QAbstractItemModelTester tester(&rows,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        rows.setRemaining({leftover("/a/b", "busy"), leftover("/a/c/", "gone")});
        QCOMPARE(rows.rowCount(), 2);
        rows.setRemaining({});
        QCOMPARE(rows.rowCount(), 0);
        rows.setRemaining({leftover("/x", "r")});
        QCOMPARE(rows.rowCount(), 1);
    }

    void remainingRowIsAWarningTitledWithItsLastComponent() {
        RemainingRows rows;
        rows.setRemaining({leftover("/home/a/Library/Logs/Tavio/", "Permission denied")});
        QCOMPARE(roleOf(rows, 0, "title").toString(), QStringLiteral("Tavio"));
        QCOMPARE(roleOf(rows, 0, "paths").toStringList(),
                 QStringList{"/home/a/Library/Logs/Tavio/"});
        QCOMPARE(roleOf(rows, 0, "reason").toString(), QStringLiteral("Permission denied"));
        QCOMPARE(roleOf(rows, 0, "symbol").toString(), QStringLiteral("exclamationmark.triangle"));
        QVERIFY(roleOf(rows, 0, "warning").toBool());
    }

    void lastPathComponent_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected");
        QTest::newRow("file") << "/home/a/Library/x/y"
                              << "y";
        QTest::newRow("trailing slash") << "/home/a/Library/Logs/Tavio/"
                                        << "Tavio";
        QTest::newRow("spaces") << "/home/a/Library/Saved Application State/org.tavio.savedState"
                                << "org.tavio.savedState";
        QTest::newRow("root") << "/"
                              << "/";
        QTest::newRow("bare name") << "Tavio.app"
                                   << "Tavio.app";
    }

    void lastPathComponent() {
        QFETCH(QString, path);
        QFETCH(QString, expected);
        QCOMPARE(RemainingRows::lastPathComponent(path), expected);
    }
};

int main(int argc, char** argv) {
    return apptest::runTests<RowsTests>(argc, argv);
}

#include "RowsTests.moc"
