#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/UninstallReport.h"
#include "target/Inventory.h"

namespace cli {

// A reason as tools read it: a code that never changes with the language or
// the wording, and the sentence the user reads.
struct Reason {
    std::string code;
    std::string text;

    bool operator==(const Reason&) const = default;
};

// One row of what the command line prints: an item of a preview (--list) or
// of a run's report.
struct Row {
    enum class Outcome { removed, alreadyGone, left, wouldRemove, notFound, wouldKeep };

    target::ItemCategory category = target::ItemCategory::settings;
    std::string location;     // the full path; the domain for preferences
    std::string displayPath;  // as the window shows it
    Outcome outcome = Outcome::notFound;
    // Why it is left or would be kept (the first reason, where there are
    // several); for an item that would be removed, a note the user should
    // read (an earlier removal was cut off), if any.
    std::optional<Reason> reason;
    // What is still there, each with why: a left item's leftovers.
    struct Leftover {
        std::string path;
        Reason reason;
    };
    std::vector<Leftover> leftovers;
    // Whether the run removed, or may have removed, any part of it.
    bool changed = false;
};

// The preview of an uninstall: each item of the scan.
std::vector<Row> previewRows(const target::Inventory& inventory);

// The rows of a run's report, in its order.
std::vector<Row> reportRows(const engine::UninstallReport& report);

// The stable code of a sentence the core wrote (a removal reason, an item's
// skip reason or note), found by the English text behind it in the language
// the core's texts are looked up in; "other" when it is none of the core's
// own.
std::string codeOfSentence(const std::string& sentence);

// The stable word of a category ("settings", "torrent-copies", …).
const char* categoryWord(target::ItemCategory category);

// The stable word of an outcome ("removed", "would-keep", …).
const char* outcomeWord(Row::Outcome outcome);

}  // namespace cli
