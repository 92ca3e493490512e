#pragma once

#include <optional>

#include "removal/RemovalReason.h"

namespace removal {

// The answer of a presence probe.
class Presence {
  public:
    enum class Kind {
        present,  // something of any type (a link included) exists there
        absent,   // nothing is there, or the anchor or a parent is missing
        unknown,  // the walk was refused before the item could be examined
    };

    static Presence present() { return Presence(Kind::present); }
    static Presence absent() { return Presence(Kind::absent); }
    static Presence unknown(RemovalReason reason) {
        return Presence(Kind::unknown, std::move(reason));
    }

    Kind kind() const { return kind_; }
    // Set only for `unknown`.
    const std::optional<RemovalReason>& reason() const { return reason_; }

    bool operator==(const Presence&) const = default;

  private:
    explicit Presence(Kind kind, std::optional<RemovalReason> reason = std::nullopt)
        : kind_(kind), reason_(std::move(reason)) {}

    Kind kind_;
    std::optional<RemovalReason> reason_;
};

}  // namespace removal
