#pragma once

#include <vector>

#include "removal/RemovalFailure.h"

namespace removal {

// The result of removing one item. `failed` always carries at least one
// failure: nothing, or only part of the item, was removed.
class RemovalOutcome {
  public:
    enum class Kind {
        failed,
        removed,
        alreadyAbsent,  // also when the anchor or a parent folder is missing
        linkRemoved,    // the item was a symbolic link; its target was left alone
    };

    static RemovalOutcome failed(std::vector<RemovalFailure> failures);
    static RemovalOutcome removed() { return RemovalOutcome(Kind::removed); }
    static RemovalOutcome alreadyAbsent() { return RemovalOutcome(Kind::alreadyAbsent); }
    static RemovalOutcome linkRemoved() { return RemovalOutcome(Kind::linkRemoved); }

    Kind kind() const { return kind_; }
    // Empty unless kind() is failed.
    const std::vector<RemovalFailure>& failures() const { return failures_; }

    bool operator==(const RemovalOutcome&) const = default;

  private:
    explicit RemovalOutcome(Kind kind, std::vector<RemovalFailure> failures = {})
        : kind_(kind), failures_(std::move(failures)) {}

    Kind kind_;
    std::vector<RemovalFailure> failures_;
};

}  // namespace removal
