#pragma once

#include <string>
#include <vector>

#include "removal/RemovalFailure.h"
#include "removal/RemovalOutcome.h"

namespace engine {

// What happened to one inventory item. `skipped` and `failed` are not done;
// `removed`, `alreadyAbsent` and `linkRemoved` are done, everywhere.
class ItemOutcome {
  public:
    enum class Kind {
        skipped,  // not touched: the inventory had marked it skipped
        failed,   // could not be (wholly) removed, or was found again afterwards
        removed,
        alreadyAbsent,
        linkRemoved,  // the item was a link, and the link itself was removed
    };

    static ItemOutcome skipped(std::string reason) {
        return ItemOutcome(Kind::skipped, std::move(reason));
    }
    // `failures` must not be empty.
    static ItemOutcome failed(std::vector<removal::RemovalFailure> failures);
    static ItemOutcome removed() { return ItemOutcome(Kind::removed); }
    static ItemOutcome alreadyAbsent() { return ItemOutcome(Kind::alreadyAbsent); }
    static ItemOutcome linkRemoved() { return ItemOutcome(Kind::linkRemoved); }

    // The removal's outcome, case for case.
    static ItemOutcome from(const removal::RemovalOutcome& outcome);

    Kind kind() const { return kind_; }
    bool isDone() const {
        return kind_ == Kind::removed || kind_ == Kind::alreadyAbsent || kind_ == Kind::linkRemoved;
    }
    // The reason text of `skipped`; empty otherwise.
    const std::string& reason() const { return reason_; }
    // The failures of `failed`; empty otherwise.
    const std::vector<removal::RemovalFailure>& failures() const { return failures_; }

    bool operator==(const ItemOutcome&) const = default;

  private:
    explicit ItemOutcome(Kind kind,
                         std::string reason = {},
                         std::vector<removal::RemovalFailure> failures = {})
        : kind_(kind), reason_(std::move(reason)), failures_(std::move(failures)) {}

    Kind kind_;
    std::string reason_;
    std::vector<removal::RemovalFailure> failures_;
};

}  // namespace engine
