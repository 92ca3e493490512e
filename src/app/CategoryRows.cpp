#include "app/CategoryRows.h"

#include <QCoreApplication>
#include <QStringList>
#include <iterator>

#include "app/ModelValues.h"

namespace {

using Category = CategoryRows::Category;
using RowState = CategoryRows::RowState;
using ItemState = app::UninstallerModel::ItemState;

struct CategoryInfo {
    Category category;
    const char* title;
    const char* symbol;
};

// Display order, titles and symbols of the categories, in one table.
constexpr CategoryInfo kCategories[] = {
    {Category::Settings, QT_TRANSLATE_NOOP("CategoryRows", "Settings"), "gearshape"},
    {Category::TorrentCopies, QT_TRANSLATE_NOOP("CategoryRows", "Recent torrent copies"),
     "doc.on.doc"},
    {Category::History, QT_TRANSLATE_NOOP("CategoryRows", "Playback history and positions"),
     "clock.arrow.circlepath"},
    {Category::Cache, QT_TRANSLATE_NOOP("CategoryRows", "Temporary cache and update downloads"),
     "internaldrive"},
    {Category::LogsAndState, QT_TRANSLATE_NOOP("CategoryRows", "Logs and saved window state"),
     "list.bullet.rectangle"},
    {Category::App, QT_TRANSLATE_NOOP("CategoryRows", "Tavio app"), "app"},
};
constexpr int kRowCount = static_cast<int>(std::size(kCategories));

const CategoryInfo& infoOf(Category category) {
    for (const CategoryInfo& info : kCategories) {
        if (info.category == category)
            return info;
    }
    return kCategories[kRowCount - 1];
}

// An enumeration value as the model publishes it: a number. Anything else
// (a name, say) is no value of the enumeration, so it matches no row.
template <typename Enumeration>
Enumeration enumeration(const QVariant& value) {
    bool isNumber = false;
    const int number = value.toInt(&isNumber);
    if (!isNumber || value.typeId() == QMetaType::QString)
        return static_cast<Enumeration>(-1);
    return static_cast<Enumeration>(number);
}

// The items of one category, in inventory order.
QList<QVariantMap> itemsIn(const QVariantList& items, Category category) {
    QList<QVariantMap> result;
    for (const QVariant& value : items) {
        QVariantMap item = value.toMap();
        if (enumeration<Category>(item.value(QStringLiteral("category"))) == category)
            result.append(item);
    }
    return result;
}

ItemState stateOf(const QVariantMap& item) {
    return enumeration<ItemState>(item.value(QStringLiteral("state")));
}

// What the review shows for one category.
struct ReviewRow {
    QStringList paths;
    QString trailing;
    QString reason;
    bool warning = false;
};

ReviewRow reviewRow(const QVariantList& items, Category category) {
    const QList<QVariantMap> inCategory = itemsIn(items, category);
    QStringList skipReasons, notes;
    bool nonePresent = true;
    for (const QVariantMap& item : inCategory) {
        const QString reason = item.value(QStringLiteral("reason")).toString();
        if (stateOf(item) == ItemState::Skipped)
            skipReasons.append(reason);
        if (stateOf(item) == ItemState::Present) {
            nonePresent = false;
            // What the scan says of an item it will remove (a copy whose
            // earlier removal was cut off) is shown beside it, calmly.
            if (!reason.isEmpty())
                notes.append(reason);
        }
    }
    ReviewRow row;
    for (const QVariantMap& item : inCategory) {
        if (nonePresent || stateOf(item) != ItemState::Absent)
            row.paths.append(item.value(QStringLiteral("displayPath")).toString());
    }
    row.warning = !skipReasons.isEmpty();
    if (row.warning) {
        row.reason = skipReasons.first();
    } else {
        row.reason = notes.isEmpty() ? QString() : notes.first();
        row.trailing = nonePresent ? CategoryRows::tr("Not found") : CategoryRows::tr("Found");
    }
    return row;
}

// A category's state while items are removed: running while any of its items
// is, failed once none waits and one failed, done when every item is, and
// pending otherwise.
RowState workingStatus(const QVariantList& items, const QVariantMap& rowStates, Category category) {
    bool anyPending = false, anyRunning = false, anyFailed = false, any = false, allDone = true;
    for (const QVariantMap& item : itemsIn(items, category)) {
        const auto found = rowStates.constFind(item.value(QStringLiteral("id")).toString());
        if (found == rowStates.constEnd())
            continue;
        const auto state = enumeration<RowState>(*found);
        any = true;
        anyPending |= state == RowState::Pending;
        anyRunning |= state == RowState::Running;
        allDone &= state == RowState::Done;
        anyFailed |= state == RowState::Failed;
    }
    if (anyRunning)
        return RowState::Running;
    if (anyFailed && !anyPending)
        return RowState::Failed;
    if (any && allDone)
        return RowState::Done;
    return RowState::Pending;
}

QString statusSymbol(RowState status) {
    switch (status) {
        case RowState::Running:
            return QStringLiteral("ellipsis.circle");
        case RowState::Done:
            return QStringLiteral("checkmark.circle.fill");
        case RowState::Failed:
            return QStringLiteral("exclamationmark.triangle.fill");
        case RowState::Pending:
            break;
    }
    return QStringLiteral("circle");
}

QString statusText(RowState status) {
    switch (status) {
        case RowState::Running:
            return CategoryRows::tr("removing");
        case RowState::Done:
            return CategoryRows::tr("removed");
        case RowState::Failed:
            return CategoryRows::tr("could not be removed");
        case RowState::Pending:
            break;
    }
    return CategoryRows::tr("waiting");
}

}  // namespace

CategoryRows::CategoryRows(QObject* parent) : QAbstractListModel(parent) {}

void CategoryRows::setItems(const QVariantList& items) {
    if (items == items_)
        return;
    items_ = items;
    emit itemsChanged();
    rowsChanged();
}

void CategoryRows::setRowStates(const QVariantMap& rowStates) {
    if (rowStates == rowStates_)
        return;
    rowStates_ = rowStates;
    emit rowStatesChanged();
    rowsChanged();
}

void CategoryRows::rowsChanged() {
    emit dataChanged(index(0), index(kRowCount - 1));
}

int CategoryRows::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : kRowCount;
}

QVariant CategoryRows::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Category category = kCategories[index.row()].category;
    switch (role) {
        case categoryRole:
            return app::values::number(category);
        case titleRole:
            return title(category);
        case statusRole:
        case statusSymbolRole:
        case statusTextRole:
            return workingData(category, role);
        default:
            return reviewData(category, role);
    }
}

QVariant CategoryRows::reviewData(Category category, int role) const {
    const ReviewRow row = reviewRow(items_, category);
    switch (role) {
        case symbolRole:
            return row.warning ? QStringLiteral("exclamationmark.triangle")
                               : QString::fromLatin1(infoOf(category).symbol);
        case pathsRole:
            return row.paths;
        case trailingRole:
            return row.trailing;
        case reasonRole:
            return row.reason;
        case warningRole:
            return row.warning;
        default:
            return {};
    }
}

QVariant CategoryRows::workingData(Category category, int role) const {
    const RowState status = workingStatus(items_, rowStates_, category);
    switch (role) {
        case statusRole:
            return app::values::number(status);
        case statusSymbolRole:
            return statusSymbol(status);
        default:
            return statusText(status);
    }
}

QHash<int, QByteArray> CategoryRows::roleNames() const {
    return {
        {categoryRole, "category"},
        {titleRole, "title"},
        {symbolRole, "symbol"},
        {pathsRole, "paths"},
        {trailingRole, "trailing"},
        {reasonRole, "reason"},
        {warningRole, "warning"},
        {statusRole, "status"},
        {statusSymbolRole, "statusSymbol"},
        {statusTextRole, "statusText"},
    };
}

QString CategoryRows::title(Category category) {
    return QCoreApplication::translate("CategoryRows", infoOf(category).title);
}
