#include "Scenarios.h"

#include <QVariantList>

namespace {

const QString kHome = QStringLiteral("/home/alice");

QVariantMap item(const QString& category,
                 const QString& state,
                 const QString& displayPath,
                 const QString& reason = {}) {
    QString path = displayPath;
    if (path.startsWith(QLatin1Char('~')))
        path.replace(0, 1, kHome);
    return {{"id", "tree:" + path},       {"category", category}, {"path", path},
            {"displayPath", displayPath}, {"state", state},       {"reason", reason}};
}

// A realistic inventory: most things found, a stale location or two, and an
// app copy that failed verification.
QVariantList inventory() {
    return {
        item("settings", "present", "~/Library/Preferences/org.tavio.Tavio.plist"),
        item("torrentCopies", "present", "~/Library/Application Support/Tavio/torrents"),
        item("history", "present", "~/Library/Application Support/Tavio/history.json"),
        item("history", "absent", "~/Library/Application Support/Tavio/positions"),
        item("cache", "present", "~/Library/Caches/org.tavio.Tavio"),
        item("cache", "present", "~/Library/HTTPStorages/org.tavio.Tavio"),
        item("logsAndState", "absent", "~/Library/Logs/Tavio"),
        item("logsAndState", "absent",
             "~/Library/Saved Application State/org.tavio.Tavio.savedState"),
        item("app", "skipped", "/Applications/Tavio.app", "Skipped: not a verified Tavio app"),
    };
}

QVariantMap rowStates(const QVariantList& items, const QStringList& states) {
    QVariantMap rows;
    for (qsizetype i = 0; i < items.size(); ++i)
        rows.insert(items.at(i).toMap().value("id").toString(), states.value(i, "pending"));
    return rows;
}

QVariantMap remaining(const QString& path, const QString& reason) {
    return {{"path", path}, {"reason", reason}};
}

QVariantMap report(const QString& outcome, int alreadyAbsent, const QVariantList& leftovers) {
    return {{"outcome", outcome},
            {"alreadyAbsentCount", alreadyAbsent},
            {"remaining", leftovers},
            {"results", QVariantList{}}};
}

QVariantList manyRemaining() {
    QVariantList list;
    const QStringList reasons = {"Permission denied", "Tavio is still running",
                                 "The folder is on another volume and was left alone"};
    for (int i = 0; i < 12; ++i)
        list.append(remaining(
            kHome + "/Library/Caches/org.tavio.Tavio/fsCachedData/chunk-" + QString::number(i),
            reasons.at(i % reasons.size())));
    return list;
}

}  // namespace

QList<Scenario> scenarios() {
    const QVariantList items = inventory();
    const QVariantMap base = {{"items", items}, {"removableCount", 5}, {"userName", "alice"}};
    auto with = [&](QVariantMap changes) {
        QVariantMap model = base;
        for (auto it = changes.cbegin(); it != changes.cend(); ++it)
            model.insert(it.key(), it.value());
        return model;
    };

    return {
        {"1-review", with({{"phase", "review"}})},
        {"2-review-confirm", with({{"phase", "review"}, {"isConfirming", true}})},
        {"3-waiting", with({{"phase", "working"},
                            {"waitingForQuit", true},
                            {"rowStates", rowStates(items, {})}})},
        // Every row state at once: settings removed, torrent copies failed,
        // history removed, the cache in progress, the rest still waiting.
        {"4-removing",
         with({{"phase", "working"},
               {"isBusy", true},
               {"rowStates", rowStates(items, {"done", "failed", "done", "done", "running"})},
               {"finishedCount", 4}})},
        {"5-quit-failed", with({{"phase", "quitFailed"}})},
        {"6-finished-completed",
         with({{"phase", "finished"}, {"report", report("completed", 3, {})}})},
        {"7-finished-incomplete",
         with({{"phase", "finished"}, {"report", report("incomplete", 1, manyRemaining())}})},
        {"8-nothing-to-remove",
         with({{"phase", "nothingToRemove"}, {"items", QVariantList{}}, {"removableCount", 0}})},
    };
}
