#pragma once

#include <ostream>
#include <string>

#include "removal/Presence.h"
#include "removal/RemovalOutcome.h"

// Readable values in test failures, and a stable text form for results that
// come back from child processes.
namespace removal {

std::string describe(const RemovalReason& reason);
std::string describe(const RemovalFailure& failure);
std::string describe(const RemovalOutcome& outcome);
std::string describe(const Presence& presence);

inline void PrintTo(const RemovalReason& value, std::ostream* out) {
    *out << describe(value);
}
inline void PrintTo(const RemovalFailure& value, std::ostream* out) {
    *out << describe(value);
}
inline void PrintTo(const RemovalOutcome& value, std::ostream* out) {
    *out << describe(value);
}
inline void PrintTo(const Presence& value, std::ostream* out) {
    *out << describe(value);
}

}  // namespace removal
