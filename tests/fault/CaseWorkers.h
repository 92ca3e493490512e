#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Faults.h"

namespace faulttest {

// Runs one case; what is wrong with it, naming what to replay, or nothing.
using CaseRunner = std::function<std::optional<std::string>(const faults::Fault&)>;

// Runs every case in a few worker processes; each failing case becomes a test
// failure. Returns how many failed.
std::size_t runCases(const std::vector<faults::Fault>& cases, const CaseRunner& runCase);

}  // namespace faulttest
