#include "app/RemainingRows.h"

#include <QStringList>
#include <QVariantMap>

RemainingRows::RemainingRows(QObject* parent) : QAbstractListModel(parent) {}

void RemainingRows::setRemaining(const QVariantList& remaining) {
    if (remaining == remaining_)
        return;
    // The rows themselves come and go, so the views rebuild them all.
    beginResetModel();
    remaining_ = remaining;
    endResetModel();
    emit remainingChanged();
}

int RemainingRows::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(remaining_.size());
}

QVariant RemainingRows::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const QVariantMap leftover = remaining_.at(index.row()).toMap();
    const QString path = leftover.value(QStringLiteral("path")).toString();
    switch (role) {
        case symbolRole:
            return QStringLiteral("exclamationmark.triangle");
        case titleRole:
            return lastPathComponent(path);
        case pathsRole:
            return QStringList{path};
        case reasonRole:
            return leftover.value(QStringLiteral("reason")).toString();
        case warningRole:
            return true;
        default:
            return {};
    }
}

QHash<int, QByteArray> RemainingRows::roleNames() const {
    return {
        {symbolRole, "symbol"}, {titleRole, "title"},     {pathsRole, "paths"},
        {reasonRole, "reason"}, {warningRole, "warning"},
    };
}

QString RemainingRows::lastPathComponent(const QString& path) {
    qsizetype end = path.size();
    while (end > 0 && path.at(end - 1) == QLatin1Char('/'))
        --end;
    if (end == 0)
        return path.isEmpty() ? QString() : QStringLiteral("/");
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'), end - 1);
    return path.mid(slash + 1, end - slash - 1);
}
