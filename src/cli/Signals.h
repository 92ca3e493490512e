#pragma once

#include <optional>

#include "base/UniqueFd.h"

namespace cli {

// SIGINT, SIGTERM and SIGHUP, blocked in every thread from the start and
// taken only where the program is ready for them, through a descriptor, so
// that no signal ever cuts a removal short: before removal begins one ends
// the program with nothing changed; once it has begun, the removal finishes
// and the report is printed in full.
class Signals {
  public:
    // Blocks the three signals in the calling thread (and so in every thread
    // it starts later). Call first thing in main.
    static void block();

    // A descriptor that becomes readable when one arrives.
    static base::UniqueFd open();

    // The signal that arrived, if any; takes it. Never waits.
    static std::optional<int> take(int fd);
};

}  // namespace cli
