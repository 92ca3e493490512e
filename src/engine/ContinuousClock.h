#pragma once

#include <time.h>

#include <chrono>

namespace engine {

// A monotonic clock that keeps counting while the machine sleeps, so that a
// wait for Tavio to quit ends on time even across a lid close. Linux calls it
// CLOCK_BOOTTIME; on macOS CLOCK_MONOTONIC already counts sleep.
struct ContinuousClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<ContinuousClock>;
    static constexpr bool is_steady = true;

    static time_point now() noexcept {
#ifdef CLOCK_BOOTTIME
        constexpr clockid_t kClock = CLOCK_BOOTTIME;
#else
        constexpr clockid_t kClock = CLOCK_MONOTONIC;
#endif
        timespec ts{};
        (void)::clock_gettime(kClock, &ts);
        return time_point(std::chrono::seconds(ts.tv_sec) + std::chrono::nanoseconds(ts.tv_nsec));
    }
};

}  // namespace engine
