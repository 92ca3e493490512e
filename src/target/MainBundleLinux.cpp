// Linux: the kernel keeps the running executable's resolved path behind
// /proc/self/exe.
#include <unistd.h>

#include "target/MainBundle.h"

namespace target {

std::string runningExecutablePath() {
    std::string buffer(4096, '\0');
    const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length <= 0 || static_cast<std::size_t>(length) >= buffer.size()) {
        return {};
    }
    buffer.resize(static_cast<std::size_t>(length));
    return buffer;
}

}  // namespace target
