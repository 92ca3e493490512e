#include "engine/ItemOutcome.h"
#include "engine/UninstallReport.h"
#include "base/Trap.h"

namespace engine {

ItemOutcome ItemOutcome::failed(std::vector<removal::RemovalFailure> failures) {
    if (failures.empty()) {
        base::trap("a failed item must name at least one failure");
    }
    return ItemOutcome(Kind::failed, {}, std::move(failures));
}

ItemOutcome ItemOutcome::from(const removal::RemovalOutcome& outcome) {
    using Kind = removal::RemovalOutcome::Kind;
    switch (outcome.kind()) {
        case Kind::failed:
            return failed(outcome.failures());
        case Kind::removed:
            return removed();
        case Kind::alreadyAbsent:
            return alreadyAbsent();
        case Kind::linkRemoved:
            return linkRemoved();
    }
    base::trap("unknown removal outcome");
}

int UninstallReport::alreadyAbsentCount() const {
    int count = 0;
    for (const ItemResult& result : results) {
        count += result.outcome.kind() == ItemOutcome::Kind::alreadyAbsent ? 1 : 0;
    }
    return count;
}

std::vector<RemainingPath> UninstallReport::remaining() const {
    std::vector<RemainingPath> paths;
    for (const ItemResult& result : results) {
        if (result.outcome.kind() == ItemOutcome::Kind::skipped) {
            paths.push_back({result.item.path, result.outcome.reason()});
        }
        for (const removal::RemovalFailure& failure : result.outcome.failures()) {
            paths.push_back({failure.path, failure.reason.explanation()});
        }
    }
    return paths;
}

}  // namespace engine
