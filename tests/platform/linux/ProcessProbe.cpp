// tavio-process-probe IDENTIFIER: asks WorkspaceProcessControl, from inside
// whatever bundle this program was copied into, whether the product runs and
// to quit it, and reports whether that request reached this very process.
// SIGTERM is blocked first, so a signal sent to ourselves stays pending where
// sigpending() sees it, instead of ending the probe.
//
// Output: "running=<0|1>" then "signalled=<0|1>".
#include <signal.h>
#include <unistd.h>

#include <cstdio>

#include "platform/WorkspaceProcessControl.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: tavio-process-probe IDENTIFIER\n");
        return 2;
    }
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    if (::sigprocmask(SIG_BLOCK, &term, nullptr) != 0) {
        return 1;
    }
    const platform::WorkspaceProcessControl control(argv[1]);
    std::printf("running=%d\n", control.isRunning() ? 1 : 0);
    control.requestQuit();
    sigset_t pending;
    sigemptyset(&pending);
    (void)::sigpending(&pending);
    std::printf("signalled=%d\n", sigismember(&pending, SIGTERM) == 1 ? 1 : 0);
    return 0;
}
