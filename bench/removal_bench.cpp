// Measures SafeRemover against `rm -rf` on identical trees, alternating, and
// prints the median ratio; then removes one folder of a million entries and
// prints how much the process's peak memory grew.
//
//   removal_bench [--dir PARENT] [--runs N] [--skip-million]
//   removal_bench --plant DIR FOLDERS FILES   (for strace -c -f comparisons)
//   removal_bench --remove DIR
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "removal/SafeRemover.h"

extern char** environ;

namespace {

using bench::check;
using bench::Clock;
using bench::median;
using bench::secondsSince;

// FOLDERS folders of FILES small files each, below `top`.
void plant(const std::string& top, int folders, int files) {
    check(::mkdir(top.c_str(), 0755) == 0, "mkdir " + top);
    const std::string payload(64, 'x');
    for (int d = 0; d < folders; ++d) {
        const std::string folder = top + "/folder" + std::to_string(d);
        check(::mkdir(folder.c_str(), 0755) == 0, "mkdir " + folder);
        const int dirFD = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        check(dirFD >= 0, "open " + folder);
        for (int f = 0; f < files; ++f) {
            const std::string name = "file" + std::to_string(f);
            const int fd = ::openat(dirFD, name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            check(fd >= 0 && ::write(fd, payload.data(), payload.size()) > 0, "write " + name);
            ::close(fd);
        }
        ::close(dirFD);
    }
}

void syncAndSettle() {
    ::sync();
}

double removeWithSafeRemover(const std::string& parent, const std::string& name) {
    const removal::SafeRemover remover{parent, ::getuid(), true};
    const auto start = Clock::now();
    const auto outcome = remover.remove({name});
    const double seconds = secondsSince(start);
    check(outcome.kind() == removal::RemovalOutcome::Kind::removed, "SafeRemover failed");
    return seconds;
}

// rm runs as a child in this process group, started and waited for here, so
// its figure includes its own start-up just as ours includes nothing extra.
double removeWithRm(const std::string& path) {
    const char* argv[] = {"rm", "-rf", "--", path.c_str(), nullptr};
    const auto start = Clock::now();
    pid_t pid = 0;
    check(::posix_spawnp(&pid, "rm", nullptr, nullptr, const_cast<char**>(argv), environ) == 0,
          "spawn rm");
    int status = 0;
    check(::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0,
          "rm -rf");
    return secondsSince(start);
}

void compareWithRm(const std::string& parent, int runs) {
    std::vector<double> ours, theirs;
    for (int run = 0; run < runs; ++run) {
        const std::string a = parent + "/safe" + std::to_string(run);
        const std::string b = parent + "/rm" + std::to_string(run);
        plant(a, 1000, 100);
        plant(b, 1000, 100);
        syncAndSettle();
        // Alternate which goes first, so neither always meets a warmer cache.
        if (run % 2 == 0) {
            ours.push_back(removeWithSafeRemover(parent, "safe" + std::to_string(run)));
            theirs.push_back(removeWithRm(b));
        } else {
            theirs.push_back(removeWithRm(b));
            ours.push_back(removeWithSafeRemover(parent, "safe" + std::to_string(run)));
        }
        std::printf("run %d: SafeRemover %.3f s, rm -rf %.3f s\n", run + 1, ours.back(),
                    theirs.back());
    }
    std::printf("100,000 files in 1,000 folders: median SafeRemover %.3f s, rm -rf %.3f s\n",
                median(ours), median(theirs));
    std::printf("ratio SafeRemover / rm -rf (median of %d): %.3f (target <= 1.15)\n", runs,
                median(ours) / median(theirs));
}

long peakKiB() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void millionEntries(const std::string& parent) {
    const std::string top = parent + "/million";
    std::printf("planting 1,000,000 entries in one folder...\n");
    plant(top, 0, 0);
    const int dirFD = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(dirFD >= 0, "open " + top);
    for (int i = 0; i < 1000000; ++i) {
        const std::string name = "entry-" + std::to_string(i);
        const int fd = ::openat(dirFD, name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        check(fd >= 0, "create " + name);
        ::close(fd);
    }
    ::close(dirFD);
    syncAndSettle();
    const long before = peakKiB();
    const double seconds = removeWithSafeRemover(parent, "million");
    const long after = peakKiB();
    std::printf(
        "1,000,000 entries removed in %.2f s; peak memory grew by %.1f MB (target < 100 MB)\n",
        seconds, static_cast<double>(after - before) / 1024.0);
}

}  // namespace

int main(int argc, char** argv) {
    std::string parent = bench::temporaryParent();
    int runs = 5;
    bool million = true;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--plant" && i + 3 < argc) {
            plant(argv[i + 1], std::atoi(argv[i + 2]), std::atoi(argv[i + 3]));
            return 0;
        }
        if (arg == "--remove" && i + 1 < argc) {
            std::string path = argv[i + 1];
            const std::size_t slash = path.rfind('/');
            std::printf("%.3f s\n",
                        removeWithSafeRemover(path.substr(0, slash), path.substr(slash + 1)));
            return 0;
        }
        if (arg == "--dir" && i + 1 < argc) {
            parent = argv[++i];
        } else if (arg == "--runs" && i + 1 < argc) {
            runs = std::max(5, std::atoi(argv[++i]));
        } else if (arg == "--skip-million") {
            million = false;
        }
    }
    const std::string work = bench::makeWorkFolder(parent, "removal-bench");
    compareWithRm(work, runs);
    if (million) {
        millionEntries(work);
    }
    ::rmdir(work.c_str());
    return 0;
}
