// What every benchmark needs: a folder of its own to work in, a clock, the
// median of its runs, and a way out that says what went wrong.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

[[noreturn]] inline void fail(const std::string& what) {
#if defined(__APPLE__)
    const char* name = ::getprogname();
#else
    const char* name = program_invocation_short_name;
#endif
    std::fprintf(stderr, "%s: %s\n", name, what.c_str());
    std::exit(1);
}

// For system calls: the failure is told with errno's sentence.
inline void check(bool ok, const std::string& what) {
    if (!ok) {
        fail(what + ": " + std::strerror(errno));
    }
}

// Where the work folder goes unless --dir says otherwise.
inline std::string temporaryParent() {
    const char* parent = std::getenv("TMPDIR");
    return parent != nullptr ? parent : "/tmp";
}

// A fresh folder below `parent`, named after the benchmark.
inline std::string makeWorkFolder(const std::string& parent, const std::string& prefix) {
    std::string path = parent + "/" + prefix + "-XXXXXX";
    check(::mkdtemp(path.data()) != nullptr, "mkdtemp");
    return path;
}

}  // namespace bench
