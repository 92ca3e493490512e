#pragma once

#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include "engine/UninstallReport.h"
#include "target/Inventory.h"

// How the core's values look to the screens: plain maps and lists of
// strings and numbers, with every enumeration case written as its name.
namespace app::values {

QString categoryName(target::ItemCategory category);
QString stateName(target::ItemState::Kind state);
QString outcomeName(engine::ItemOutcome::Kind outcome);
QString outcomeName(engine::UninstallOutcome outcome);

// Text from the core, which is UTF-8 throughout.
QString text(const std::string& utf8);

// One entry per item, in inventory order: {id, category, path, displayPath,
// state, reason}; reason is the skip text, or "" for the other states.
QVariantList items(const target::Inventory& inventory);

// {outcome, alreadyAbsentCount, remaining: [{path, reason}], results: [{id,
// category, path, displayPath, outcome}]}, lists in report order.
QVariantMap report(const engine::UninstallReport& report);

}  // namespace app::values
