#include "app/TerminationSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

#include "base/Trap.h"

namespace app {
namespace {

constexpr std::array<int, 3> kSignals = {SIGTERM, SIGINT, SIGHUP};

// The write end, for the handler. -1 while no instance is alive.
std::atomic<int> writeFd{-1};
std::array<struct sigaction, kSignals.size()> previous{};

// A pipe whose ends are closed on exec and never block: a handler that
// found the pipe full must not hang, and neither must the reader. (pipe2 is
// not available everywhere the program builds.)
bool makeSignalPipe(int fds[2]) {
    if (::pipe(fds) != 0) {
        return false;
    }
    for (int i = 0; i < 2; ++i) {
        if (::fcntl(fds[i], F_SETFD, FD_CLOEXEC) != 0 ||
            ::fcntl(fds[i], F_SETFL, ::fcntl(fds[i], F_GETFL) | O_NONBLOCK) != 0) {
            (void)::close(fds[0]);
            (void)::close(fds[1]);
            return false;
        }
    }
    return true;
}

void onSignal(int number) {
    const int saved = errno;
    const int fd = writeFd.load();
    if (fd >= 0) {
        const unsigned char byte = static_cast<unsigned char>(number);
        (void)::write(fd, &byte, 1);  // a full pipe already holds a request
    }
    errno = saved;
}

}  // namespace

TerminationSignals::TerminationSignals(QObject* parent) : QObject(parent) {
    if (writeFd.load() >= 0) {
        base::trap("only one TerminationSignals may exist at a time");
    }
    int fds[2];
    if (!makeSignalPipe(fds)) {
        return;
    }
    readFd_ = fds[0];
    writeFd.store(fds[1]);
    notifier_ = std::make_unique<QSocketNotifier>(readFd_, QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &TerminationSignals::drain);

    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        (void)::sigaction(kSignals[i], &action, &previous[i]);
    }
}

TerminationSignals::~TerminationSignals() {
    if (!notifier_) {
        return;
    }
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        (void)::sigaction(kSignals[i], &previous[i], nullptr);
    }
    notifier_.reset();
    const int fd = writeFd.exchange(-1);
    (void)::close(fd);
    (void)::close(readFd_);
}

// Reports every signal waiting in the pipe, in the order they came.
void TerminationSignals::drain() {
    unsigned char buffer[64];
    for (;;) {
        const ssize_t n = ::read(readFd_, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        for (ssize_t i = 0; i < n; ++i) {
            emit received(buffer[i]);
        }
    }
}

}  // namespace app
