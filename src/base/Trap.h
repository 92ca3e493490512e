#pragma once

#include <cstdio>
#include <cstdlib>

namespace base {

// Stops the process on a violated precondition. These are programming
// errors, never a user's: going on could delete the wrong thing, so the only
// safe answer is to stop before anything is touched.
[[noreturn]] inline void trap(const char* message) {
    std::fprintf(stderr, "Uninstall Tavio: precondition failed: %s\n", message);
    std::fflush(stderr);
    std::abort();
}

}  // namespace base
