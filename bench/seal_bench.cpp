// Measures the installed-app check on a sealed bundle of about 300 MB in
// about 2,000 files against `openssl dgst -sha256` over the same files,
// alternating, and prints the median ratio. Both read a warm page cache, so
// the figure compares hashing and the walk, not the disk.
//
//   seal_bench [--dir PARENT] [--runs N] [--megabytes M] [--files N]
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "platform/InstalledAppVerifier.h"
#include "platform/linux/BundleSeal.h"

extern char** environ;

namespace {

using bench::check;
using bench::Clock;
using bench::median;
using bench::secondsSince;

constexpr const char* kIdentifier = "io.tavio.Tavio";

void makeFolder(const std::string& path) {
    check(::mkdir(path.c_str(), 0755) == 0 || errno == EEXIST, "mkdir " + path);
}

void writeFile(const std::string& path, const std::string& bytes, mode_t mode = 0644) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    check(fd >= 0, "create " + path);
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        check(n > 0, "write " + path);
        done += static_cast<std::size_t>(n);
    }
    ::close(fd);
}

// A bundle of `files` files totalling about `megabytes`, sizes spread from a
// few bytes to a few megabytes as in a real app. Returns every file's path.
std::vector<std::string> plantBundle(const std::string& bundle, int megabytes, int files) {
    const std::string contents = bundle + "/Contents";
    makeFolder(bundle);
    makeFolder(contents);
    makeFolder(contents + "/MacOS");
    makeFolder(contents + "/Resources");
    std::vector<std::string> paths;
    writeFile(contents + "/Info.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>CFBundleIdentifier</key><string>io.tavio.Tavio</string>"
              "<key>CFBundleExecutable</key><string>Tavio</string></dict></plist>\n");
    paths.push_back(contents + "/Info.plist");
    std::mt19937_64 engine(42);
    std::string noise(8u << 20, '\0');
    for (char& c : noise) {
        c = static_cast<char>(engine());
    }
    // Weights: most files small, a few large; scaled to the total below.
    std::vector<double> weights;
    for (int i = 0; i < files - 1; ++i) {
        weights.push_back(i % 50 == 0 ? 400.0 : (i % 7 == 0 ? 40.0 : 4.0));
    }
    double sum = 0;
    for (double w : weights) {
        sum += w;
    }
    const double total = static_cast<double>(megabytes) * 1024 * 1024;
    for (int i = 0; i < files - 1; ++i) {
        const std::string folder = contents + "/Resources/pack" + std::to_string(i / 100);
        makeFolder(folder);
        const std::string path =
            i == 0 ? contents + "/MacOS/Tavio" : folder + "/item" + std::to_string(i) + ".bin";
        const auto size = std::min<std::size_t>(noise.size() - 64,
                                                static_cast<std::size_t>(total * weights[i] / sum));
        writeFile(path, noise.substr(static_cast<std::size_t>(i) % 64, size), i == 0 ? 0755 : 0644);
        paths.push_back(path);
    }
    return paths;
}

double verifyOnce(const std::string& bundle) {
    const auto start = Clock::now();
    const auto problem = platform::InstalledAppVerifier().verify(bundle, kIdentifier);
    const double seconds = secondsSince(start);
    check(!problem, "the bundle does not verify");
    return seconds;
}

// openssl runs as a child in this process group, its output discarded.
double opensslOnce(const std::vector<std::string>& paths) {
    std::vector<char*> argv{const_cast<char*>("openssl"), const_cast<char*>("dgst"),
                            const_cast<char*>("-sha256")};
    for (const std::string& path : paths) {
        argv.push_back(const_cast<char*>(path.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const auto start = Clock::now();
    pid_t pid = 0;
    check(::posix_spawnp(&pid, "openssl", &actions, nullptr, argv.data(), environ) == 0,
          "spawn openssl");
    int status = 0;
    check(::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0,
          "openssl dgst");
    const double seconds = secondsSince(start);
    posix_spawn_file_actions_destroy(&actions);
    return seconds;
}

void removeTree(const std::string& path) {
    const char* argv[] = {"rm", "-rf", "--", path.c_str(), nullptr};
    pid_t pid = 0;
    if (::posix_spawnp(&pid, "rm", nullptr, nullptr, const_cast<char**>(argv), environ) == 0) {
        int status = 0;
        (void)::waitpid(pid, &status, 0);
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string parent = bench::temporaryParent();
    int runs = 7;
    int megabytes = 300;
    int files = 2000;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string arg = argv[i];
        if (arg == "--dir") {
            parent = argv[i + 1];
        } else if (arg == "--runs") {
            runs = std::max(5, std::atoi(argv[i + 1]));
        } else if (arg == "--megabytes") {
            megabytes = std::max(1, std::atoi(argv[i + 1]));
        } else if (arg == "--files") {
            files = std::max(10, std::atoi(argv[i + 1]));
        }
    }
    const std::string work = bench::makeWorkFolder(parent, "seal-bench");
    const std::string bundle = work + "/Tavio.app";
    const std::vector<std::string> paths = plantBundle(bundle, megabytes, files);
    const auto error = platform::writeSeal(bundle, kIdentifier);
    check(!error, error ? error->message : "seal");
    std::printf("bundle: %zu files, about %d MB, sealed\n", paths.size(), megabytes);
    (void)verifyOnce(bundle);  // warm the page cache for both
    (void)opensslOnce(paths);
    std::vector<double> ours, theirs;
    for (int run = 0; run < runs; ++run) {
        // Alternate which goes first, so neither always follows the other.
        if (run % 2 == 0) {
            ours.push_back(verifyOnce(bundle));
            theirs.push_back(opensslOnce(paths));
        } else {
            theirs.push_back(opensslOnce(paths));
            ours.push_back(verifyOnce(bundle));
        }
        std::printf("run %d: app check %.3f s, openssl dgst -sha256 %.3f s\n", run + 1, ours.back(),
                    theirs.back());
    }
    std::printf("median app check %.3f s, openssl dgst -sha256 %.3f s\n", median(ours),
                median(theirs));
    std::printf("ratio app check / openssl (median of %d): %.3f (target <= 1.1)\n", runs,
                median(ours) / median(theirs));
    removeTree(work);
    return 0;
}
