#pragma once

#include <chrono>
#include <string>
#include <variant>
#include <vector>

#include "engine/UninstallEngine.h"

namespace cli {

// What the command line was asked to do, in GNU style: long options only,
// "--name=value" or "--name value", "--" ends the options. Nothing else is
// taken: the program acts on one fixed list, so it has no operands.
struct Options {
    enum class Action { remove, list, help, version };

    Action action = Action::remove;
    bool yes = false;    // remove without asking
    bool json = false;   // the report as JSON on standard output
    bool quiet = false;  // no report text (JSON is still printed when asked)
    bool noQuit = false;
    // As long as the window waits.
    std::chrono::seconds quitTimeout =
        std::chrono::duration_cast<std::chrono::seconds>(engine::kQuitTimeout);
};

// Why the arguments were refused, as a sentence for standard error.
struct UsageError {
    std::string message;
};

std::variant<Options, UsageError> parseOptions(const std::vector<std::string>& arguments);

}  // namespace cli
