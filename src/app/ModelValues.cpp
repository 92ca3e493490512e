#include "app/ModelValues.h"

namespace app::values {

using engine::ItemOutcome;
using engine::UninstallOutcome;
using target::ItemCategory;
using target::ItemState;

QString categoryName(ItemCategory category) {
    switch (category) {
        case ItemCategory::settings:
            return QStringLiteral("settings");
        case ItemCategory::torrentCopies:
            return QStringLiteral("torrentCopies");
        case ItemCategory::history:
            return QStringLiteral("history");
        case ItemCategory::cache:
            return QStringLiteral("cache");
        case ItemCategory::logsAndState:
            return QStringLiteral("logsAndState");
        case ItemCategory::app:
            break;
    }
    return QStringLiteral("app");
}

QString stateName(ItemState::Kind state) {
    switch (state) {
        case ItemState::Kind::skipped:
            return QStringLiteral("skipped");
        case ItemState::Kind::present:
            return QStringLiteral("present");
        case ItemState::Kind::absent:
            break;
    }
    return QStringLiteral("absent");
}

QString outcomeName(ItemOutcome::Kind outcome) {
    switch (outcome) {
        case ItemOutcome::Kind::skipped:
            return QStringLiteral("skipped");
        case ItemOutcome::Kind::failed:
            return QStringLiteral("failed");
        case ItemOutcome::Kind::removed:
            return QStringLiteral("removed");
        case ItemOutcome::Kind::alreadyAbsent:
            return QStringLiteral("alreadyAbsent");
        case ItemOutcome::Kind::linkRemoved:
            break;
    }
    return QStringLiteral("linkRemoved");
}

QString outcomeName(UninstallOutcome outcome) {
    switch (outcome) {
        case UninstallOutcome::completed:
            return QStringLiteral("completed");
        case UninstallOutcome::incomplete:
            return QStringLiteral("incomplete");
        case UninstallOutcome::didNotQuit:
            return QStringLiteral("didNotQuit");
        case UninstallOutcome::cancelled:
            break;
    }
    return QStringLiteral("cancelled");
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
            {QStringLiteral("category"), categoryName(item.category)},
            {QStringLiteral("path"), text(item.path)},
            {QStringLiteral("displayPath"), text(item.displayPath)},
            {QStringLiteral("state"), stateName(item.state.kind())},
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
            {QStringLiteral("category"), categoryName(result.item.category)},
            {QStringLiteral("path"), text(result.item.path)},
            {QStringLiteral("displayPath"), text(result.item.displayPath)},
            {QStringLiteral("outcome"), outcomeName(result.outcome.kind())},
        });
    }
    return QVariantMap{
        {QStringLiteral("outcome"), outcomeName(report.outcome)},
        {QStringLiteral("alreadyAbsentCount"), report.alreadyAbsentCount()},
        {QStringLiteral("remaining"), remaining},
        {QStringLiteral("results"), results},
    };
}

}  // namespace app::values
