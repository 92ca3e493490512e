#pragma once

#include <string>
#include <vector>

#include "cli/ReportRows.h"

namespace cli {

// What one invocation tells a tool: the document that --json prints, laid
// out in report.schema.json. Its keys and words are fixed English whatever
// the language; only the reasons' texts are translated. `kSchema` changes
// only when a change would break a reader of the old document.
inline constexpr int kSchema = 1;

struct Summary {
    // "preview" (--list: nothing was changed), "complete" (nothing of Tavio
    // is left), "incomplete" (items are left), "did-not-quit" (Tavio ran,
    // nothing was changed) or "cancelled" (stopped before removal began).
    std::string result;
    std::string account;
    std::string version;
    std::vector<Row> rows;

    bool dryRun() const { return result == "preview"; }
    // True exactly when something was (or, for an item left half-removed,
    // may have been) removed.
    bool changed() const;
    int count(Row::Outcome outcome) const;
};

std::string jsonDocument(const Summary& summary);

// `text` as a JSON string, quotes included.
std::string jsonString(const std::string& text);

}  // namespace cli
