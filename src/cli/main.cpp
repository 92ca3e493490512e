// The command line: with any argument it runs without a window (see
// CommandLine.h); with none it hands over to the window, the program beside
// it in the same bundle, so that the one command people know opens the
// window from a desktop and serves scripts from a shell.
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/Signals.h"
#include "target/MainBundle.h"

int main(int argc, char** argv) {
    if (argc <= 1) {
        // The window's executable, "Uninstall Tavio", is this program's
        // neighbour in the bundle.
        const std::string self = target::runningExecutablePath();
        const std::string window = self.substr(0, self.rfind('/') + 1) + "Uninstall Tavio";
        // The name it was started by stays the window's first argument: the
        // window takes its X11 instance name from it, as it did when it was
        // started directly.
        ::execv(window.c_str(), argv);
        std::perror(("uninstall-tavio: cannot start the window " + window).c_str());
        return cli::kInternal;
    }
    cli::Signals::block();
    try {
        return cli::runCommandLine(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "uninstall-tavio: internal error: %s\n", error.what());
    } catch (...) {
        std::fputs("uninstall-tavio: internal error\n", stderr);
    }
    return cli::kInternal;
}
