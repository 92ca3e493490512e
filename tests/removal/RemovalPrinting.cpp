#include "RemovalPrinting.h"

namespace removal {
namespace {

const char* kindName(RemovalReason::Kind kind) {
    using Kind = RemovalReason::Kind;
    switch (kind) {
        case Kind::other:
            return "other";
        case Kind::system:
            return "system";
        case Kind::permissionDenied:
            return "permissionDenied";
        case Kind::symbolicLinkInPath:
            return "symbolicLinkInPath";
        case Kind::notOwnedByCurrentUser:
            return "notOwnedByCurrentUser";
        case Kind::crossesVolume:
            return "crossesVolume";
        case Kind::changedSinceVerification:
            return "changedSinceVerification";
        case Kind::tooDeep:
            return "tooDeep";
        case Kind::applicationRunning:
            return "applicationRunning";
        case Kind::reappeared:
            return "reappeared";
        case Kind::runningNotChecked:
            return "runningNotChecked";
        case Kind::notVerifiedBefore:
            return "notVerifiedBefore";
        case Kind::notRecorded:
            return "notRecorded";
        case Kind::notADirectory:
            return "notADirectory";
    }
    return "?";
}

}  // namespace

std::string describe(const RemovalReason& reason) {
    std::string text = kindName(reason.kind());
    if (reason.kind() == RemovalReason::Kind::system) {
        text += "(" + std::to_string(reason.code()) + ")";
    } else if (reason.kind() == RemovalReason::Kind::other) {
        text += "(\"" + reason.text() + "\")";
    }
    return text;
}

std::string describe(const RemovalFailure& failure) {
    return failure.path + " " + describe(failure.reason);
}

std::string describe(const RemovalOutcome& outcome) {
    switch (outcome.kind()) {
        case RemovalOutcome::Kind::removed:
            return "removed";
        case RemovalOutcome::Kind::alreadyAbsent:
            return "alreadyAbsent";
        case RemovalOutcome::Kind::linkRemoved:
            return "linkRemoved";
        case RemovalOutcome::Kind::failed:
            break;
    }
    std::string text = "failed[";
    for (std::size_t i = 0; i < outcome.failures().size(); ++i) {
        text += (i == 0 ? "" : "; ") + describe(outcome.failures()[i]);
    }
    return text + "]";
}

std::string describe(const Presence& presence) {
    switch (presence.kind()) {
        case Presence::Kind::present:
            return "present";
        case Presence::Kind::absent:
            return "absent";
        case Presence::Kind::unknown:
            break;
    }
    return "unknown(" + describe(*presence.reason()) + ")";
}

}  // namespace removal
