#pragma once

#include <set>

namespace testsupport {

// The descriptors this process has open right now (from /proc/self/fd).
std::set<int> openDescriptors();

// Installs a GoogleTest listener that fails every test which ends with a
// descriptor open that was not open when it started.
void installDescriptorLeakCheck();

}  // namespace testsupport
