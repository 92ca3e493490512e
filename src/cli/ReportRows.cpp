#include "cli/ReportRows.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/Text.h"

namespace cli {
namespace {

using removal::RemovalReason;
using Kind = RemovalReason::Kind;

// Every sentence the core writes into an item's state, by its English text.
// Removal reasons keep the code of their kind (codeOf), so a reason that
// reached an item's state as a sentence gets the same code.
constexpr std::pair<std::string_view, std::string_view> kSentenceCodes[] = {
    {"Skipped: not a verified Tavio app", "not-verified"},
    {"Not an app bundle", "not-an-app-bundle"},
    {"Skipped: not a verified Tavio app (the executable is missing)", "executable-missing"},
    {"Skipped: not a verified Tavio app (the code signature is not valid)", "seal-not-valid"},
    {"Skipped: the app could not be read", "app-unreadable"},
    {"An earlier removal of this copy was interrupted", "interrupted-removal"},
    {"Skipped: not the copy that an interrupted removal had verified", "not-the-recorded-copy"},
};

constexpr Kind kReasonKinds[] = {
    Kind::permissionDenied,
    Kind::symbolicLinkInPath,
    Kind::notOwnedByCurrentUser,
    Kind::crossesVolume,
    Kind::changedSinceVerification,
    Kind::tooDeep,
    Kind::applicationRunning,
    Kind::reappeared,
    Kind::notADirectory,
    Kind::runningNotChecked,
    Kind::notVerifiedBefore,
    Kind::notRecorded,
};

RemovalReason reasonOfKind(Kind kind) {
    switch (kind) {
        case Kind::permissionDenied:
            return RemovalReason::permissionDenied();
        case Kind::symbolicLinkInPath:
            return RemovalReason::symbolicLinkInPath();
        case Kind::notOwnedByCurrentUser:
            return RemovalReason::notOwnedByCurrentUser();
        case Kind::crossesVolume:
            return RemovalReason::crossesVolume();
        case Kind::changedSinceVerification:
            return RemovalReason::changedSinceVerification();
        case Kind::tooDeep:
            return RemovalReason::tooDeep();
        case Kind::applicationRunning:
            return RemovalReason::applicationRunning();
        case Kind::reappeared:
            return RemovalReason::reappeared();
        case Kind::notADirectory:
            return RemovalReason::notADirectory();
        case Kind::runningNotChecked:
            return RemovalReason::runningNotChecked();
        case Kind::notVerifiedBefore:
            return RemovalReason::notVerifiedBefore();
        case Kind::notRecorded:
            return RemovalReason::notRecorded();
        case Kind::other:
        case Kind::system:
            break;
    }
    return RemovalReason::other({});
}

// Whether the run may have removed part of an item that it reports failed:
// these reasons mean that it was not begun.
bool mayHaveChanged(const engine::ItemOutcome& outcome) {
    for (const auto& failure : outcome.failures()) {
        const Kind kind = failure.reason.kind();
        if (kind != Kind::applicationRunning && kind != Kind::runningNotChecked &&
            kind != Kind::notRecorded) {
            return true;
        }
    }
    return false;
}

Reason sentenceReason(const std::string& sentence) {
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
        const Reason reason = sentenceReason(result.outcome.reason());
        row.reasons.push_back(reason);
        row.leftovers.push_back({result.item.path, reason});
        return;
    }
    for (const auto& failure : result.outcome.failures()) {
        const Reason reason{codeOf(failure.reason), failure.reason.explanation()};
        if (std::find(row.reasons.begin(), row.reasons.end(), reason) == row.reasons.end()) {
            row.reasons.push_back(reason);
        }
        row.leftovers.push_back({failure.path, reason});
    }
    row.changed = mayHaveChanged(result.outcome);
}

}  // namespace

std::string codeOfSentence(const std::string& sentence) {
    for (const auto& [english, code] : kSentenceCodes) {
        if (sentence == base::localizedText(english)) {
            return std::string(code);
        }
    }
    for (const Kind kind : kReasonKinds) {
        const RemovalReason reason = reasonOfKind(kind);
        if (sentence == reason.explanation()) {
            return codeOf(reason);
        }
    }
    return "other";
}

std::string codeOf(const RemovalReason& reason) {
    switch (reason.kind()) {
        case Kind::other:
            return codeOfSentence(reason.text());
        case Kind::system:
            return "system-error";
        case Kind::permissionDenied:
            return "permission-denied";
        case Kind::symbolicLinkInPath:
            return "symbolic-link-refused";
        case Kind::notOwnedByCurrentUser:
            return "not-owned-by-user";
        case Kind::crossesVolume:
            return "another-volume";
        case Kind::changedSinceVerification:
            return "changed-since-checked";
        case Kind::tooDeep:
            return "nesting-too-deep";
        case Kind::applicationRunning:
            return "tavio-running";
        case Kind::reappeared:
            return "created-again";
        case Kind::notADirectory:
            return "parent-not-a-folder";
        case Kind::runningNotChecked:
            return "running-not-checked";
        case Kind::notVerifiedBefore:
            return "changed-after-verification";
        case Kind::notRecorded:
            return "record-not-saved";
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
                if (!item.state.reason().empty()) {
                    row.reasons.push_back(sentenceReason(item.state.reason()));
                }
                break;
            case StateKind::absent:
                row.outcome = Row::Outcome::notFound;
                break;
            case StateKind::skipped:
                row.outcome = Row::Outcome::wouldKeep;
                row.reasons.push_back(sentenceReason(item.state.reason()));
                break;
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
