#include "cli/Signals.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>

namespace cli {
namespace {

sigset_t theSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    return set;
}

}  // namespace

void Signals::block() {
    const sigset_t set = theSignals();
    (void)pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

base::UniqueFd Signals::open() {
    const sigset_t set = theSignals();
    return base::UniqueFd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

std::optional<int> Signals::take(int fd) {
    signalfd_siginfo info;
    ssize_t got;
    do {
        got = ::read(fd, &info, sizeof info);
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(sizeof info)) {
        return std::nullopt;
    }
    return static_cast<int>(info.ssi_signo);
}

}  // namespace cli
