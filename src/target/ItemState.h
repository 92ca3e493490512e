#pragma once

#include <string>

namespace target {

// Whether an inventory item is there. Compared by case and, for `skipped`,
// by the reason text.
class ItemState {
  public:
    enum class Kind {
        skipped,  // exists or may exist, but will not be touched; see reason()
        present,  // there, and will be removed
        absent,   // nothing is there
    };

    // `reason` is the sentence shown to the user, already translated.
    static ItemState skipped(std::string reason) {
        return ItemState(Kind::skipped, std::move(reason));
    }
    static ItemState present() { return ItemState(Kind::present); }
    static ItemState absent() { return ItemState(Kind::absent); }

    Kind kind() const { return kind_; }
    // Empty unless kind() is skipped.
    const std::string& reason() const { return reason_; }

    bool operator==(const ItemState&) const = default;

  private:
    explicit ItemState(Kind kind, std::string reason = {})
        : kind_(kind), reason_(std::move(reason)) {}

    Kind kind_;
    std::string reason_;
};

}  // namespace target
