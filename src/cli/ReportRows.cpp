#include "cli/ReportRows.h"

#include <string_view>
#include <utility>

#include "base/Text.h"

namespace cli {
namespace {

using removal::RemovalReason;

// Every sentence the core can write, by its English text, with its code.
// A sentence with "%d" stands for all its numbers.
constexpr std::pair<std::string_view, std::string_view> kSentenceCodes[] = {
    // Why a removal failed, or an item could not be looked at.
    {"System error %d", "system-error"},
    {"Permission denied", "permission-denied"},
    {"A symbolic link in the path was refused", "symbolic-link-refused"},
    {"Not owned by this user", "not-owned-by-user"},
    {"Another volume is mounted inside; it was not entered", "another-volume"},
    {"Changed since it was checked", "changed-since-checked"},
    {"Folder nesting is too deep", "nesting-too-deep"},
    {"Tavio is still running", "tavio-running"},
    {"It was created again after removal", "created-again"},
    {"A parent is not a folder", "parent-not-a-folder"},
    {"Could not check whether Tavio is running", "running-not-checked"},
    {"added or changed after the app was verified", "changed-after-verification"},
    {"Could not save a record of the removal, so it was not started", "record-not-saved"},
    // Why a copy of the app was not taken for Tavio's.
    {"Skipped: not a verified Tavio app", "not-verified"},
    {"Not an app bundle", "not-an-app-bundle"},
    {"Skipped: not a verified Tavio app (the executable is missing)", "executable-missing"},
    {"Skipped: not a verified Tavio app (the code signature is not valid)", "seal-not-valid"},
    {"Skipped: the app could not be read", "app-unreadable"},
    // A copy whose removal was cut off.
    {"An earlier removal of this copy was interrupted", "interrupted-removal"},
    {"Skipped: not the copy that an interrupted removal had verified", "not-the-recorded-copy"},
};

// Whether `sentence` is the (translated) `format` with a number in place of
// its "%d".
bool matchesWithNumber(const std::string& sentence, const std::string& format) {
    const std::size_t at = format.find("%d");
    if (at == std::string::npos || sentence.size() <= format.size() - 2 ||
        sentence.compare(0, at, format, 0, at) != 0) {
        return false;
    }
    const std::size_t tail = format.size() - at - 2;
    if (sentence.compare(sentence.size() - tail, tail, format, at + 2, tail) != 0) {
        return false;
    }
    const std::string number = sentence.substr(at, sentence.size() - tail - at);
    const std::size_t digits = number[0] == '-' ? 1 : 0;
    return number.size() > digits &&
           number.find_first_not_of("0123456789", digits) == std::string::npos;
}

// Whether the run may have removed part of an item that it reports failed:
// these reasons mean that it was not begun.
bool mayHaveChanged(const engine::ItemOutcome& outcome) {
    using Kind = RemovalReason::Kind;
    for (const auto& failure : outcome.failures()) {
        const Kind kind = failure.reason.kind();
        if (kind != Kind::applicationRunning && kind != Kind::runningNotChecked &&
            kind != Kind::notRecorded) {
            return true;
        }
    }
    return false;
}

Reason reasonOf(const std::string& sentence) {
    return {codeOfSentence(sentence), sentence};
}

Row rowOf(const target::InventoryItem& item) {
    Row row;
    row.category = item.category;
    row.location = item.path;
    row.displayPath = item.displayPath;
    return row;
}

void fillLeft(Row& row, const engine::ItemResult& result) {
    using OutcomeKind = engine::ItemOutcome::Kind;
    row.outcome = Row::Outcome::left;
    if (result.outcome.kind() == OutcomeKind::skipped) {
        row.leftovers.push_back({result.item.path, reasonOf(result.outcome.reason())});
    }
    for (const auto& failure : result.outcome.failures()) {
        row.leftovers.push_back({failure.path, reasonOf(failure.reason.explanation())});
    }
    row.reason = row.leftovers.front().reason;
    row.changed = mayHaveChanged(result.outcome);
}

}  // namespace

std::string codeOfSentence(const std::string& sentence) {
    for (const auto& [english, code] : kSentenceCodes) {
        const std::string translated = base::localizedText(english);
        if (sentence == translated || matchesWithNumber(sentence, translated)) {
            return std::string(code);
        }
    }
    return "other";
}

std::vector<Row> previewRows(const target::Inventory& inventory) {
    using StateKind = target::ItemState::Kind;
    std::vector<Row> rows;
    for (const auto& item : inventory.items) {
        Row row = rowOf(item);
        switch (item.state.kind()) {
            case StateKind::present:
                row.outcome = Row::Outcome::wouldRemove;
                break;
            case StateKind::absent:
                row.outcome = Row::Outcome::notFound;
                break;
            case StateKind::skipped:
                row.outcome = Row::Outcome::wouldKeep;
                break;
        }
        // The reason of a skipped item, or the note of a present one.
        if (!item.state.reason().empty()) {
            row.reason = reasonOf(item.state.reason());
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<Row> reportRows(const engine::UninstallReport& report) {
    using OutcomeKind = engine::ItemOutcome::Kind;
    std::vector<Row> rows;
    for (const auto& result : report.results) {
        Row row = rowOf(result.item);
        switch (result.outcome.kind()) {
            case OutcomeKind::removed:
            case OutcomeKind::linkRemoved:
                row.outcome = Row::Outcome::removed;
                row.changed = true;
                break;
            case OutcomeKind::alreadyAbsent:
                row.outcome = Row::Outcome::alreadyGone;
                break;
            case OutcomeKind::skipped:
            case OutcomeKind::failed:
                fillLeft(row, result);
                break;
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

const char* categoryWord(target::ItemCategory category) {
    using target::ItemCategory;
    switch (category) {
        case ItemCategory::settings:
            return "settings";
        case ItemCategory::torrentCopies:
            return "torrent-copies";
        case ItemCategory::history:
            return "history";
        case ItemCategory::cache:
            return "cache";
        case ItemCategory::logsAndState:
            return "logs-and-state";
        case ItemCategory::app:
            return "app";
    }
    return "unknown";
}

const char* outcomeWord(Row::Outcome outcome) {
    switch (outcome) {
        case Row::Outcome::removed:
            return "removed";
        case Row::Outcome::alreadyGone:
            return "already-gone";
        case Row::Outcome::left:
            return "left";
        case Row::Outcome::wouldRemove:
            return "would-remove";
        case Row::Outcome::notFound:
            return "not-found";
        case Row::Outcome::wouldKeep:
            return "would-keep";
    }
    return "unknown";
}

}  // namespace cli
