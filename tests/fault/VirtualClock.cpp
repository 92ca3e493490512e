#include "VirtualClock.h"

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>

#include <mutex>

namespace faults {
namespace {

using Nanoseconds = VirtualClock::Nanoseconds;

// Virtual clocks start far from zero, as real ones do after boot.
constexpr Nanoseconds kStart = std::chrono::hours(50);

struct State {
    std::mutex mutex;
    bool running = false;
    Nanoseconds now{};
    VirtualClock::SleepRule rule;
    std::vector<Nanoseconds> sleeps;
    std::vector<clockid_t> clocksRead;
};

State& state() {
    static State instance;
    return instance;
}

timespec toTimespec(Nanoseconds value) {
    return timespec{static_cast<time_t>(value.count() / 1'000'000'000),
                    static_cast<long>(value.count() % 1'000'000'000)};
}

Nanoseconds fromTimespec(const timespec& value) {
    return std::chrono::seconds(value.tv_sec) + Nanoseconds(value.tv_nsec);
}

}  // namespace

VirtualClock::VirtualClock(SleepRule rule) {
    State& s = state();
    const std::lock_guard lock(s.mutex);
    s.running = true;
    s.now = kStart;
    s.rule = std::move(rule);
    s.sleeps.clear();
    s.clocksRead.clear();
}

VirtualClock::~VirtualClock() {
    State& s = state();
    const std::lock_guard lock(s.mutex);
    s.running = false;
    s.rule = nullptr;
}

std::vector<Nanoseconds> VirtualClock::sleeps() const {
    const std::lock_guard lock(state().mutex);
    return state().sleeps;
}

std::vector<clockid_t> VirtualClock::clocksRead() const {
    const std::lock_guard lock(state().mutex);
    return state().clocksRead;
}

void VirtualClock::jump(Nanoseconds by) {
    const std::lock_guard lock(state().mutex);
    state().now += by;
}

}  // namespace faults

using faults::Nanoseconds;
using faults::state;

namespace {

using RealClock = int (*)(clockid_t, timespec*);

int realClock(clockid_t clock, timespec* value) {
    static const auto real = reinterpret_cast<RealClock>(::dlsym(RTLD_NEXT, "clock_gettime"));
    return real(clock, value);
}

}  // namespace

extern "C" {

int __real_pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);

// Every clock of the process, the C++ library's steady clock included: a
// timed wait there checks that clock once more before it reports a timeout,
// so it must read the virtual time as well. This definition takes the place
// of the C library's for the whole program (it is exported for that).
int clock_gettime(clockid_t clock, timespec* value) {
    auto& s = state();
    {
        const std::lock_guard lock(s.mutex);
        if (s.running) {
            *value = faults::toTimespec(s.now);
            return 0;
        }
    }
    return realClock(clock, value);
}

// The code under test's own reads of the clock (those that the link-time
// wrapping reaches): which clocks it asks for.
int __wrap_clock_gettime(clockid_t clock, timespec* value) {
    {
        auto& s = state();
        const std::lock_guard lock(s.mutex);
        if (s.running) {
            s.clocksRead.push_back(clock);
        }
    }
    return clock_gettime(clock, value);
}

// The timed wait returns at once, timed out, with the virtual time moved by
// the length that was asked for (the deadline less the virtual time now).
int __wrap_pthread_cond_clockwait(pthread_cond_t* cond,
                                  pthread_mutex_t* mutex,
                                  clockid_t clock,
                                  const timespec* deadline) {
    auto& s = state();
    {
        const std::lock_guard lock(s.mutex);
        if (s.running) {
            const Nanoseconds requested = faults::fromTimespec(*deadline) - s.now;
            s.sleeps.push_back(requested);
            s.now += s.rule ? s.rule(requested) : requested;
            return ETIMEDOUT;
        }
    }
    return __real_pthread_cond_clockwait(cond, mutex, clock, deadline);
}

}  // extern "C"
