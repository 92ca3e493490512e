#pragma once

#include <string>

namespace target {

// Whether an inventory item is there. Compared by case and by the text that
// goes with it: the reason of a `skipped` item, or a note on a `present` one.
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
    // `note`, when given, says something the user should know about what
    // will be removed (a copy whose earlier removal was cut off), already
    // translated.
    static ItemState present(std::string note = {}) {
        return ItemState(Kind::present, std::move(note));
    }
    static ItemState absent() { return ItemState(Kind::absent); }

    Kind kind() const { return kind_; }
    // The reason of a skipped item or the note of a present one; empty
    // otherwise.
    const std::string& reason() const { return reason_; }

    bool operator==(const ItemState&) const = default;

  private:
    explicit ItemState(Kind kind, std::string reason = {})
        : kind_(kind), reason_(std::move(reason)) {}

    Kind kind_;
    std::string reason_;
};

}  // namespace target
