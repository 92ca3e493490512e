#include "Scenarios.h"

#include <QVariantList>

#include "app/ModelValues.h"
#include "app/UninstallerModel.h"

namespace {

using Model = app::UninstallerModel;
using app::values::number;

const QString kHome = QStringLiteral("/home/alice");

QVariantMap item(Model::Category category,
                 Model::ItemState state,
                 const QString& displayPath,
                 const QString& reason = {}) {
    QString path = displayPath;
    if (path.startsWith(QLatin1Char('~')))
        path.replace(0, 1, kHome);
    return {{"id", "tree:" + path},       {"category", number(category)}, {"path", path},
            {"displayPath", displayPath}, {"state", number(state)},       {"reason", reason}};
}

// A realistic inventory: most things found, a stale location or two, and an
// app copy that failed verification.
QVariantList inventory() {
    return {
        item(Model::Category::Settings, Model::ItemState::Present,
             "~/Library/Preferences/org.tavio.Tavio.plist"),
        item(Model::Category::TorrentCopies, Model::ItemState::Present,
             "~/Library/Application Support/Tavio/torrents"),
        item(Model::Category::History, Model::ItemState::Present,
             "~/Library/Application Support/Tavio/history.json"),
        item(Model::Category::History, Model::ItemState::Absent,
             "~/Library/Application Support/Tavio/positions"),
        item(Model::Category::Cache, Model::ItemState::Present, "~/Library/Caches/org.tavio.Tavio"),
        item(Model::Category::Cache, Model::ItemState::Present,
             "~/Library/HTTPStorages/org.tavio.Tavio"),
        item(Model::Category::LogsAndState, Model::ItemState::Absent, "~/Library/Logs/Tavio"),
        item(Model::Category::LogsAndState, Model::ItemState::Absent,
             "~/Library/Saved Application State/org.tavio.Tavio.savedState"),
        item(Model::Category::App, Model::ItemState::Skipped, "/Applications/Tavio.app",
             "Skipped: not a verified Tavio app"),
    };
}

QVariantMap rowStates(const QVariantList& items, const QList<Model::RowState>& states) {
    QVariantMap rows;
    for (qsizetype i = 0; i < items.size(); ++i)
        rows.insert(items.at(i).toMap().value("id").toString(),
                    number(states.value(i, Model::RowState::Pending)));
    return rows;
}

QVariantMap remaining(const QString& path, const QString& reason) {
    return {{"path", path}, {"reason", reason}};
}

QVariantMap report(Model::Outcome outcome, int alreadyAbsent, const QVariantList& leftovers) {
    return {{"outcome", number(outcome)},
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
        {"1-review", with({{"phase", number(Model::PhaseKind::Review)}})},
        {"2-review-confirm",
         with({{"phase", number(Model::PhaseKind::Review)}, {"isConfirming", true}})},
        {"3-waiting", with({{"phase", number(Model::PhaseKind::Working)},
                            {"waitingForQuit", true},
                            {"rowStates", rowStates(items, {})}})},
        // Every row state at once: settings removed, torrent copies failed,
        // history removed, the cache in progress, the rest still waiting.
        {"4-removing",
         with({{"phase", number(Model::PhaseKind::Working)},
               {"isBusy", true},
               {"rowStates", rowStates(items, {Model::RowState::Done, Model::RowState::Failed,
                                               Model::RowState::Done, Model::RowState::Done,
                                               Model::RowState::Running})},
               {"finishedCount", 4}})},
        {"5-quit-failed", with({{"phase", number(Model::PhaseKind::QuitFailed)}})},
        {"6-finished-completed", with({{"phase", number(Model::PhaseKind::Finished)},
                                       {"report", report(Model::Outcome::Completed, 3, {})}})},
        {"7-finished-incomplete",
         with({{"phase", number(Model::PhaseKind::Finished)},
               {"report", report(Model::Outcome::Incomplete, 1, manyRemaining())}})},
        {"8-nothing-to-remove", with({{"phase", number(Model::PhaseKind::NothingToRemove)},
                                      {"items", QVariantList{}},
                                      {"removableCount", 0}})},
    };
}
