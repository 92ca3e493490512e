#include "app/CategoryRows.h"

#include <QCoreApplication>

namespace {

struct CategoryInfo {
    const char* category;
    const char* title;
    const char* symbol;
};

// Display order, titles and symbols of the categories, in one table.
constexpr CategoryInfo kCategories[] = {
    {"settings", QT_TRANSLATE_NOOP("CategoryRows", "Settings"), "gearshape"},
    {"torrentCopies", QT_TRANSLATE_NOOP("CategoryRows", "Recent torrent copies"), "doc.on.doc"},
    {"history", QT_TRANSLATE_NOOP("CategoryRows", "Playback history and positions"),
     "clock.arrow.circlepath"},
    {"cache", QT_TRANSLATE_NOOP("CategoryRows", "Temporary cache and update downloads"),
     "internaldrive"},
    {"logsAndState", QT_TRANSLATE_NOOP("CategoryRows", "Logs and saved window state"),
     "list.bullet.rectangle"},
    {"app", QT_TRANSLATE_NOOP("CategoryRows", "Tavio app"), "app"},
};

const CategoryInfo* find(const QString& category) {
    for (const CategoryInfo& info : kCategories) {
        if (category == QLatin1String(info.category))
            return &info;
    }
    return nullptr;
}

QString translated(const char* text) {
    return QCoreApplication::translate("CategoryRows", text);
}

// The items of one category, in inventory order.
QList<QVariantMap> itemsIn(const QVariantList& items, const QString& category) {
    QList<QVariantMap> result;
    for (const QVariant& value : items) {
        QVariantMap item = value.toMap();
        if (item.value(QStringLiteral("category")).toString() == category)
            result.append(item);
    }
    return result;
}

QString stateOf(const QVariantMap& item) {
    return item.value(QStringLiteral("state")).toString();
}

// A category's state while items are removed: running while any of its items
// is, failed once none waits and one failed, done when every item is, and
// pending otherwise.
QString workingStatus(const QVariantList& items,
                      const QVariantMap& rowStates,
                      const QString& category) {
    bool anyPending = false, anyRunning = false, anyFailed = false, any = false, allDone = true;
    for (const QVariantMap& item : itemsIn(items, category)) {
        const auto found = rowStates.constFind(item.value(QStringLiteral("id")).toString());
        if (found == rowStates.constEnd())
            continue;
        const QString state = found->toString();
        any = true;
        anyPending |= state == QLatin1String("pending");
        anyRunning |= state == QLatin1String("running");
        allDone &= state == QLatin1String("done");
        anyFailed |= state == QLatin1String("failed");
    }
    if (anyRunning)
        return QStringLiteral("running");
    if (anyFailed && !anyPending)
        return QStringLiteral("failed");
    if (any && allDone)
        return QStringLiteral("done");
    return QStringLiteral("pending");
}

}  // namespace

CategoryRows::CategoryRows(QObject* parent) : QObject(parent) {}

QStringList CategoryRows::categories() {
    QStringList names;
    for (const CategoryInfo& info : kCategories)
        names.append(QLatin1String(info.category));
    return names;
}

QString CategoryRows::title(const QString& category) {
    const CategoryInfo* info = find(category);
    return info ? translated(info->title) : category;
}

QVariantMap CategoryRows::reviewRow(const QVariantList& items, const QString& category) {
    const QList<QVariantMap> inCategory = itemsIn(items, category);

    QStringList skipReasons;
    bool nonePresent = true;
    for (const QVariantMap& item : inCategory) {
        const QString state = stateOf(item);
        if (state == QLatin1String("skipped"))
            skipReasons.append(item.value(QStringLiteral("reason")).toString());
        if (state == QLatin1String("present"))
            nonePresent = false;
    }

    QStringList paths;
    for (const QVariantMap& item : inCategory) {
        if (nonePresent || stateOf(item) != QLatin1String("absent"))
            paths.append(item.value(QStringLiteral("displayPath")).toString());
    }

    const CategoryInfo* info = find(category);
    const bool warning = !skipReasons.isEmpty();
    QString trailing;
    if (!warning)
        trailing = nonePresent ? tr("Not found") : tr("Found");

    return {
        {QStringLiteral("symbol"), warning ? QStringLiteral("exclamationmark.triangle")
                                           : QString::fromLatin1(info ? info->symbol : "")},
        {QStringLiteral("title"), title(category)},
        {QStringLiteral("paths"), paths},
        {QStringLiteral("trailing"), trailing},
        {QStringLiteral("reason"), warning ? skipReasons.first() : QString()},
        {QStringLiteral("warning"), warning},
    };
}

QVariantMap CategoryRows::workingRow(const QVariantList& items,
                                     const QVariantMap& rowStates,
                                     const QString& category) {
    const QString status = workingStatus(items, rowStates, category);
    QString symbol = QStringLiteral("circle");
    QString value = tr("waiting");
    if (status == QLatin1String("running")) {
        symbol = QStringLiteral("ellipsis.circle");
        value = tr("removing");
    } else if (status == QLatin1String("done")) {
        symbol = QStringLiteral("checkmark.circle.fill");
        value = tr("removed");
    } else if (status == QLatin1String("failed")) {
        symbol = QStringLiteral("exclamationmark.triangle.fill");
        value = tr("could not be removed");
    }

    return {
        {QStringLiteral("title"), title(category)},
        {QStringLiteral("status"), status},
        {QStringLiteral("symbol"), symbol},
        {QStringLiteral("value"), value},
    };
}

QVariantMap CategoryRows::remainingRow(const QString& path, const QString& reason) {
    return {
        {QStringLiteral("symbol"), QStringLiteral("exclamationmark.triangle")},
        {QStringLiteral("title"), lastPathComponent(path)},
        {QStringLiteral("paths"), QStringList{path}},
        {QStringLiteral("trailing"), QString()},
        {QStringLiteral("reason"), reason},
        {QStringLiteral("warning"), true},
    };
}

QString CategoryRows::lastPathComponent(const QString& path) {
    qsizetype end = path.size();
    while (end > 0 && path.at(end - 1) == QLatin1Char('/'))
        --end;
    if (end == 0)
        return path.isEmpty() ? QString() : QStringLiteral("/");
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'), end - 1);
    return path.mid(slash + 1, end - slash - 1);
}
