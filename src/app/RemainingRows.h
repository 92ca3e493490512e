#pragma once

#include <QtQml/qqmlregistration.h>

#include <QAbstractListModel>
#include <QHash>
#include <QString>
#include <QVariantList>

// The rows of the incomplete end screen, one per path a run left behind, in
// report order: titled with the last component of the path, the path itself
// below it, the reason, and always a warning.
//
// `remaining` is the report's list of {path, reason} maps, set from QML.
class RemainingRows : public QAbstractListModel {
    Q_OBJECT
    QML_ELEMENT

    Q_PROPERTY(QVariantList remaining READ remaining WRITE setRemaining NOTIFY remainingChanged)

  public:
    enum Role {
        symbolRole = Qt::UserRole + 1,
        titleRole,
        pathsRole,
        reasonRole,
        warningRole,
    };

    explicit RemainingRows(QObject* parent = nullptr);

    QVariantList remaining() const { return remaining_; }
    void setRemaining(const QVariantList& remaining);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // The last component of a file path: "/a/b/" gives "b", "/" gives "/".
    static QString lastPathComponent(const QString& path);

  signals:
    void remainingChanged();

  private:
    QVariantList remaining_;
};
