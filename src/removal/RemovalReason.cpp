#include "removal/RemovalReason.h"

#include <cerrno>
#include <string_view>

#include "base/Text.h"
#include "base/Trap.h"
#include "removal/RemovalOutcome.h"

namespace removal {
namespace {

std::string_view englishText(RemovalReason::Kind kind) {
    using Kind = RemovalReason::Kind;
    switch (kind) {
        case Kind::other:
            return {};
        case Kind::system:
            return "System error %d";
        case Kind::permissionDenied:
            return "Permission denied";
        case Kind::symbolicLinkInPath:
            return "A symbolic link in the path was refused";
        case Kind::notOwnedByCurrentUser:
            return "Not owned by this user";
        case Kind::crossesVolume:
            return "Another volume is mounted inside; it was not entered";
        case Kind::changedSinceVerification:
            return "Changed since it was checked";
        case Kind::tooDeep:
            return "Folder nesting is too deep";
        case Kind::applicationRunning:
            return "Tavio is still running";
        case Kind::reappeared:
            return "It was created again after removal";
        case Kind::notADirectory:
            return "A parent is not a folder";
        case Kind::runningNotChecked:
            return "Could not check whether Tavio is running";
        case Kind::notVerifiedBefore:
            return "added or changed after the app was verified";
        case Kind::notRecorded:
            return "Could not save a record of the removal, so it was not started";
    }
    return {};
}

// Replaces the first "%d" of a (possibly translated) format with the number.
// A translation that dropped the placeholder still shows its own sentence.
std::string fillNumber(std::string format, std::int32_t number) {
    const std::size_t at = format.find("%d");
    if (at != std::string::npos) {
        format.replace(at, 2, std::to_string(number));
    }
    return format;
}

}  // namespace

std::string RemovalReason::explanation() const {
    if (kind_ == Kind::other) {
        return text_;
    }
    std::string text = base::localizedText(englishText(kind_));
    return kind_ == Kind::system ? fillNumber(std::move(text), code_) : text;
}

RemovalReason reasonForErrno(int error) {
    switch (error) {
        case EPERM:
        case EACCES:
        case EROFS:
            return RemovalReason::permissionDenied();
        case ELOOP:
            return RemovalReason::symbolicLinkInPath();
        default:
            return RemovalReason::system(error);
    }
}

RemovalOutcome RemovalOutcome::failed(std::vector<RemovalFailure> failures) {
    if (failures.empty()) {
        base::trap("a failed removal must name at least one failure");
    }
    return RemovalOutcome(Kind::failed, std::move(failures));
}

}  // namespace removal
