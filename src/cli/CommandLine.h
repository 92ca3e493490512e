#pragma once

#include <string>
#include <vector>

namespace cli {

// The exit statuses, a table of the program's own (the manual page lists
// it): scripts branch on these, so each number keeps its meaning.
enum ExitStatus : int {
    kNothingLeft = 0,  // nothing of Tavio is left, including when nothing was there
    kItemsLeft = 1,    // items are left; the report gives each with its reason
    kUsage = 64,       // the arguments were wrong, or no terminal to ask and no --yes
    kInternal = 70,    // the program itself failed
    kTryLater = 75,    // Tavio runs and did not quit (or --no-quit): nothing was removed
    kSignalBase = 128  // plus the signal's number: stopped by it before removal began
};

// Runs the command line with the arguments after the program's name, on the
// standard streams, and gives the exit status. The three ending signals must
// already be blocked (Signals::block()).
int runCommandLine(const std::vector<std::string>& arguments);

}  // namespace cli
