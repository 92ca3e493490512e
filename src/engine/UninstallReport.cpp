#include "engine/UninstallReport.h"

namespace engine {

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
