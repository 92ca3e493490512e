#pragma once

#include <string>

namespace target {

// Why an installed app bundle was not accepted as the target product. Values
// compare by case and payload; the order of Kind is the order of the cases.
class AppVerificationProblem {
  public:
    enum class Kind {
        identifierMismatch,  // payload: the identifier the bundle declares
        missingIdentifier,   // no bundle identifier, or not a string
        notAnAppBundle,      // the layout or the property list is unusable
        missingExecutable,   // the declared main executable is absent or unusable
        invalidSignature,    // the signature (the seal on Linux) is missing or wrong
        unreadable,          // the system refused to read the layout (I/O error, …)
    };

    static AppVerificationProblem identifierMismatch(std::string found) {
        return AppVerificationProblem(Kind::identifierMismatch, std::move(found));
    }
    static AppVerificationProblem missingIdentifier() {
        return AppVerificationProblem(Kind::missingIdentifier);
    }
    static AppVerificationProblem notAnAppBundle() {
        return AppVerificationProblem(Kind::notAnAppBundle);
    }
    static AppVerificationProblem missingExecutable() {
        return AppVerificationProblem(Kind::missingExecutable);
    }
    static AppVerificationProblem invalidSignature() {
        return AppVerificationProblem(Kind::invalidSignature);
    }
    static AppVerificationProblem unreadable() { return AppVerificationProblem(Kind::unreadable); }

    Kind kind() const { return kind_; }
    // The identifier found in the bundle; empty for every case but
    // identifierMismatch.
    const std::string& foundIdentifier() const { return foundIdentifier_; }

    // The sentence shown to the user, through the installed text lookup.
    std::string explanation() const;

    bool operator==(const AppVerificationProblem&) const = default;

  private:
    explicit AppVerificationProblem(Kind kind, std::string found = {})
        : kind_(kind), foundIdentifier_(std::move(found)) {}

    Kind kind_;
    std::string foundIdentifier_;
};

}  // namespace target
