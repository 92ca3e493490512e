#include "engine/ItemOutcome.h"

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

}  // namespace engine
