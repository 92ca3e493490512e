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
    enum class Result {
        preview,     // --list: nothing was changed
        complete,    // nothing of Tavio is left
        incomplete,  // items are left
        didNotQuit,  // Tavio ran and did not quit: nothing was changed
        cancelled,   // stopped before removal began: nothing was changed
    };

    Result result = Result::complete;
    std::string account;
    std::string version;
    std::vector<Row> rows;

    bool dryRun() const { return result == Result::preview; }
    // True exactly when something was (or, for an item left half-removed,
    // may have been) removed.
    bool changed() const;
    int count(Row::Outcome outcome) const;
};

std::string jsonDocument(const Summary& summary);

// The stable word of a result ("preview", "did-not-quit", …).
const char* resultWord(Summary::Result result);

// `text` as a JSON string, quotes included.
std::string jsonString(const std::string& text);

}  // namespace cli
