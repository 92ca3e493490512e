// tavio-player: a stand-in for the Tavio player, as far as the uninstaller
// sees it. It runs until it is asked to quit (SIGTERM, the polite request) and
// then leaves after a short delay, the way a real player saves its state
// before it exits. Tests and the demo footprint install it as the executable
// of a Tavio.app bundle.
//
//   tavio-player [--quit-delay-ms N] [--ignore-quit] [--ready-file PATH]
//                [--exit-with-parent] [--undumpable]
//
// On standard output it reports, one line each:
//   "ready"  once it is waiting for signals;
//   "term"   for every SIGTERM it receives (also with --ignore-quit);
//   "ping"   for every SIGWINCH, which tests send as a marker: the kernel
//            hands out lower-numbered pending signals first, so every SIGTERM
//            that reached the player before the marker is reported above it.
// --ready-file writes "ready\n" to PATH (atomically, through a rename) for
// callers that cannot read the output. --exit-with-parent makes the kernel
// kill the player when the process that started it dies, so that a crashed
// test leaves nothing running. --undumpable makes it hide its executable from
// its own user, as ssh-agent and gpg-agent do (PR_SET_DUMPABLE 0).
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

namespace {

struct Options {
    long quitDelayMs = 200;
    bool ignoreQuit = false;
    bool exitWithParent = false;
    bool undumpable = false;
    std::string readyFile;
};

[[noreturn]] void usage(const char* message) {
    std::fprintf(stderr, "tavio-player: %s\n", message);
    std::fprintf(stderr,
                 "usage: tavio-player [--quit-delay-ms N] [--ignore-quit] [--ready-file PATH] "
                 "[--exit-with-parent] [--undumpable]\n");
    std::exit(2);
}

std::optional<long> parseMilliseconds(const char* text) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < 0 || value > 3'600'000) {
        return std::nullopt;
    }
    return value;
}

Options parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--ignore-quit") {
            options.ignoreQuit = true;
        } else if (arg == "--exit-with-parent") {
            options.exitWithParent = true;
        } else if (arg == "--undumpable") {
            options.undumpable = true;
        } else if (arg == "--quit-delay-ms" && i + 1 < argc) {
            const auto delay = parseMilliseconds(argv[++i]);
            if (!delay) {
                usage("--quit-delay-ms takes a number of milliseconds");
            }
            options.quitDelayMs = *delay;
        } else if (arg == "--ready-file" && i + 1 < argc) {
            options.readyFile = argv[++i];
        } else {
            usage(("unknown or incomplete option: " + arg).c_str());
        }
    }
    return options;
}

// Output goes straight to the descriptor: a reader waiting for a line must
// never be left waiting on a buffer.
void report(const char* line) {
    const std::string text = std::string(line) + "\n";
    (void)!::write(STDOUT_FILENO, text.data(), text.size());
}

bool writeReadyFile(const std::string& path) {
    const std::string temporary = path + ".partial";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    const bool written = ::write(fd, "ready\n", 6) == 6;
    (void)::close(fd);
    return written && ::rename(temporary.c_str(), path.c_str()) == 0;
}

timespec monotonicNow() {
    timespec now{};
    (void)::clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

long millisecondsSince(const timespec& start) {
    const timespec now = monotonicNow();
    return (now.tv_sec - start.tv_sec) * 1000 + (now.tv_nsec - start.tv_nsec) / 1'000'000;
}

// Waits for the next signal of `set`; with a deadline, returns 0 when it
// passes first.
int nextSignal(const sigset_t& set, std::optional<long> remainingMs) {
    for (;;) {
        int signal = 0;
        if (!remainingMs) {
            signal = ::sigwaitinfo(&set, nullptr);
        } else {
            const timespec timeout{*remainingMs / 1000, (*remainingMs % 1000) * 1'000'000};
            signal = ::sigtimedwait(&set, nullptr, &timeout);
            if (signal < 0 && errno == EAGAIN) {
                return 0;
            }
        }
        if (signal > 0) {
            return signal;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parseOptions(argc, argv);
    if (options.exitWithParent) {
        (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
    if (options.undumpable && ::prctl(PR_SET_DUMPABLE, 0) != 0) {
        return 1;
    }
    // Both signals are taken synchronously, so nothing runs in a handler.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGWINCH);
    if (::sigprocmask(SIG_BLOCK, &set, nullptr) != 0) {
        return 1;
    }
    if (!options.readyFile.empty() && !writeReadyFile(options.readyFile)) {
        std::fprintf(stderr, "tavio-player: cannot write %s\n", options.readyFile.c_str());
        return 1;
    }
    report("ready");

    std::optional<timespec> quitRequestedAt;
    for (;;) {
        std::optional<long> remaining;
        if (quitRequestedAt) {
            remaining = options.quitDelayMs - millisecondsSince(*quitRequestedAt);
            if (*remaining <= 0) {
                return 0;
            }
        }
        const int signal = nextSignal(set, remaining);
        if (signal == SIGWINCH) {
            report("ping");
        } else if (signal == SIGTERM) {
            report("term");
            if (!options.ignoreQuit && !quitRequestedAt) {
                quitRequestedAt = monotonicNow();
            }
        }
    }
}
