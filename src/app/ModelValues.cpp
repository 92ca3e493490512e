#include "app/ModelValues.h"

namespace app::values {

using engine::ItemOutcome;
using engine::UninstallOutcome;
using target::ItemCategory;
using target::ItemState;

using Model = UninstallerModel;

Model::Category category(ItemCategory category) {
    switch (category) {
        case ItemCategory::settings:
            return Model::Category::Settings;
        case ItemCategory::torrentCopies:
            return Model::Category::TorrentCopies;
        case ItemCategory::history:
            return Model::Category::History;
        case ItemCategory::cache:
            return Model::Category::Cache;
        case ItemCategory::logsAndState:
            return Model::Category::LogsAndState;
        case ItemCategory::app:
            break;
    }
    return Model::Category::App;
}

Model::ItemState state(ItemState::Kind state) {
    switch (state) {
        case ItemState::Kind::skipped:
            return Model::ItemState::Skipped;
        case ItemState::Kind::present:
            return Model::ItemState::Present;
        case ItemState::Kind::absent:
            break;
    }
    return Model::ItemState::Absent;
}

Model::ItemOutcome outcome(ItemOutcome::Kind outcome) {
    switch (outcome) {
        case ItemOutcome::Kind::skipped:
            return Model::ItemOutcome::Skipped;
        case ItemOutcome::Kind::failed:
            return Model::ItemOutcome::Failed;
        case ItemOutcome::Kind::removed:
            return Model::ItemOutcome::Removed;
        case ItemOutcome::Kind::alreadyAbsent:
            return Model::ItemOutcome::AlreadyAbsent;
        case ItemOutcome::Kind::linkRemoved:
            break;
    }
    return Model::ItemOutcome::LinkRemoved;
}

Model::Outcome outcome(UninstallOutcome outcome) {
    switch (outcome) {
        case UninstallOutcome::completed:
            return Model::Outcome::Completed;
        case UninstallOutcome::incomplete:
            return Model::Outcome::Incomplete;
        case UninstallOutcome::didNotQuit:
            return Model::Outcome::DidNotQuit;
        case UninstallOutcome::cancelled:
            break;
    }
    return Model::Outcome::Cancelled;
}

QString text(const std::string& utf8) {
    return QString::fromStdString(utf8);
}

QVariantList items(const target::Inventory& inventory) {
    QVariantList list;
    list.reserve(static_cast<qsizetype>(inventory.items.size()));
    for (const target::InventoryItem& item : inventory.items) {
        list.append(QVariantMap{
            {QStringLiteral("id"), text(item.id)},
            {QStringLiteral("category"), number(category(item.category))},
            {QStringLiteral("path"), text(item.path)},
            {QStringLiteral("displayPath"), text(item.displayPath)},
            {QStringLiteral("state"), number(state(item.state.kind()))},
            {QStringLiteral("reason"), text(item.state.reason())},
        });
    }
    return list;
}

QVariantMap report(const engine::UninstallReport& report) {
    QVariantList remaining;
    for (const engine::RemainingPath& leftover : report.remaining()) {
        remaining.append(QVariantMap{
            {QStringLiteral("path"), text(leftover.path)},
            {QStringLiteral("reason"), text(leftover.reason)},
        });
    }
    QVariantList results;
    for (const engine::ItemResult& result : report.results) {
        results.append(QVariantMap{
            {QStringLiteral("id"), text(result.item.id)},
            {QStringLiteral("category"), number(category(result.item.category))},
            {QStringLiteral("path"), text(result.item.path)},
            {QStringLiteral("displayPath"), text(result.item.displayPath)},
            {QStringLiteral("outcome"), number(outcome(result.outcome.kind()))},
        });
    }
    return QVariantMap{
        {QStringLiteral("outcome"), number(outcome(report.outcome))},
        {QStringLiteral("alreadyAbsentCount"), report.alreadyAbsentCount()},
        {QStringLiteral("remaining"), remaining},
        {QStringLiteral("results"), results},
    };
}

}  // namespace app::values
