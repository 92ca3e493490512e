// The command line: with any argument it runs without a window (see
// CommandLine.h); with none it hands over to the window, the program beside
// it in the same bundle, so that the one command people know opens the
// window from a desktop and serves scripts from a shell.
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/Signals.h"

namespace {

// The window's executable: "Uninstall Tavio" in this program's own folder.
std::string windowProgram() {
    char self[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) {
        return {};
    }
    std::string path(self, static_cast<std::size_t>(length));
    return path.substr(0, path.rfind('/') + 1) + "Uninstall Tavio";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc <= 1) {
        const std::string window = windowProgram();
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
