#pragma once

#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include "app/UninstallerModel.h"
#include "engine/UninstallReport.h"
#include "target/Inventory.h"

// How the core's values look to the screens: plain maps and lists of
// strings and numbers, with every enumeration case one of the model's own
// enumerations, which QML reads by name.
namespace app::values {

UninstallerModel::Category category(target::ItemCategory category);
UninstallerModel::ItemState state(target::ItemState::Kind state);
UninstallerModel::ItemOutcome outcome(engine::ItemOutcome::Kind outcome);
UninstallerModel::Outcome outcome(engine::UninstallOutcome outcome);

// An enumeration value as the screens get it: its number, which is how QML
// compares enumeration values.
template <typename Enumeration>
int number(Enumeration value) {
    return static_cast<int>(value);
}

// Text from the core, which is UTF-8 throughout.
QString text(const std::string& utf8);

// One entry per item, in inventory order: {id, category, path, displayPath,
// state, reason}; reason is the skip text, or "" for the other states.
// Enumeration values are held as their numbers, which is how QML compares
// them.
QVariantList items(const target::Inventory& inventory);

// {outcome, alreadyAbsentCount, remaining: [{path, reason}], results: [{id,
// category, path, displayPath, outcome}]}, lists in report order.
QVariantMap report(const engine::UninstallReport& report);

}  // namespace app::values
