#pragma once

#include <QtQml/qqml.h>
#include <QtQml/qqmlregistration.h>

#include <QAbstractListModel>
#include <QHash>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include "app/UninstallerModel.h"

// One row per item category, in display order, with what the review and the
// working screens show for it, worked out from the model's items and row
// states. It lives in C++ so that the screens stay declarative and the rules
// can be read (and tested) in one place.
//
// Items are maps with the keys id, category, path, displayPath, state and
// reason, as the model publishes them; row states map an item id to a
// UninstallerModel::RowState. Both are set from QML by binding them to the
// model's properties; every row changes when either does.
class CategoryRows : public QAbstractListModel {
    Q_OBJECT
    QML_ELEMENT

    Q_PROPERTY(QVariantList items READ items WRITE setItems NOTIFY itemsChanged)
    Q_PROPERTY(QVariantMap rowStates READ rowStates WRITE setRowStates NOTIFY rowStatesChanged)

  public:
    using Category = app::UninstallerModel::Category;
    using RowState = app::UninstallerModel::RowState;

    enum Role {
        categoryRole = Qt::UserRole + 1,  // Category
        titleRole,                        // "Settings", "Tavio app", …
        // The review row: a category where something is present lists only
        // what is not absent; one where nothing is present lists every
        // location looked at, so the user sees where the search went. A
        // skipped item makes the row a warning with its reason.
        symbolRole,
        pathsRole,
        trailingRole,
        reasonRole,
        warningRole,
        // The progress row: a RowState for the whole category, its symbol and
        // the status word a screen reader speaks. A failure is shown only
        // once nothing else in the category is queued or under way.
        statusRole,
        statusSymbolRole,
        statusTextRole,
    };

    explicit CategoryRows(QObject* parent = nullptr);

    QVariantList items() const { return items_; }
    void setItems(const QVariantList& items);
    QVariantMap rowStates() const { return rowStates_; }
    void setRowStates(const QVariantMap& rowStates);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // The display title of a category.
    static QString title(Category category);

  signals:
    void itemsChanged();
    void rowStatesChanged();

  private:
    void rowsChanged();
    QVariant reviewData(Category category, int role) const;
    QVariant workingData(Category category, int role) const;

    QVariantList items_;
    QVariantMap rowStates_;
};

// Qt 6.4 describes QAbstractListModel to the QML tools but not its base
// class, so qmllint cannot follow the row models' ancestry. Naming the base
// here puts its description in this module's type information.
struct ItemModelForeign {
    Q_GADGET
    QML_FOREIGN(QAbstractItemModel)
    QML_ANONYMOUS
};
