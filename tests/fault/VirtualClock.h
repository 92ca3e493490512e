#pragma once

#include <time.h>

#include <chrono>
#include <functional>
#include <vector>

// Puts the clock of the program in the test's hands. While it runs, every
// clock_gettime() of the process reads a virtual time that only sleeps (and
// jump()) move, and every timed wait on a condition variable (how
// a sleep that a stop request can cut short is made) returns at once as
// timed out, after moving the virtual time by the length asked for. A wait of
// thirty seconds of polling thus takes a few milliseconds of the test's time.
namespace faults {

class VirtualClock {
  public:
    using Nanoseconds = std::chrono::nanoseconds;

    // Decides how far one sleep moves the virtual time, given the length the
    // code asked for; by default exactly that. A suspend of the machine is a
    // sleep that moves the time much further.
    using SleepRule = std::function<Nanoseconds(Nanoseconds requested)>;

    explicit VirtualClock(SleepRule rule = nullptr);
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    // The sleeps asked for, in order.
    std::vector<Nanoseconds> sleeps() const;
    // The clocks that the code under test read itself, in order.
    std::vector<clockid_t> clocksRead() const;
    // Moves every clock on, as a jump of the clock would.
    void jump(Nanoseconds by);
};

}  // namespace faults
