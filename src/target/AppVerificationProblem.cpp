#include "target/AppVerificationProblem.h"

#include <string_view>

#include "base/Text.h"

namespace target {
namespace {

std::string_view englishText(AppVerificationProblem::Kind kind) {
    using Kind = AppVerificationProblem::Kind;
    switch (kind) {
        case Kind::identifierMismatch:
        case Kind::missingIdentifier:
            return "Skipped: not a verified Tavio app";
        case Kind::notAnAppBundle:
            return "Not an app bundle";
        case Kind::missingExecutable:
            return "Skipped: not a verified Tavio app (the executable is missing)";
        case Kind::invalidSignature:
            return "Skipped: not a verified Tavio app (the code signature is not valid)";
        case Kind::unreadable:
            return "Skipped: the app could not be read";
    }
    return "Not an app bundle";
}

}  // namespace

std::string AppVerificationProblem::explanation() const {
    return base::localizedText(englishText(kind_));
}

}  // namespace target
