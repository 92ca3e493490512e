// macOS: dyld knows the path the executable was started from; realpath()
// resolves the links in it, as the main bundle does.
#include <mach-o/dyld.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "target/MainBundle.h"

namespace target {

std::string runningExecutablePath() {
    std::uint32_t size = 0;
    (void)_NSGetExecutablePath(nullptr, &size);
    std::vector<char> path(size + 1, '\0');
    if (_NSGetExecutablePath(path.data(), &size) != 0) {
        return {};
    }
    char resolved[PATH_MAX];
    if (::realpath(path.data(), resolved) == nullptr) {
        return {};
    }
    return resolved;
}

}  // namespace target
