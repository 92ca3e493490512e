#include "cli/Options.h"

#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

namespace cli {
namespace {

// The longest wait anyone could mean: a day.
constexpr long long kLongestQuitTimeout = 24LL * 60 * 60;

std::optional<std::chrono::seconds> seconds(const std::string& text) {
    long long value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc{} || stop != end || value < 0 ||
        value > kLongestQuitTimeout) {
        return std::nullopt;
    }
    return std::chrono::seconds(value);
}

// Every option without a value, and what it sets. List, help and version are
// weighed at the end: help and version win over everything else.
struct Flags {
    bool list = false;
    bool help = false;
    bool version = false;
    bool yes = false;
    bool json = false;
    bool quiet = false;
    bool noQuit = false;
};

constexpr std::pair<std::string_view, bool Flags::*> kFlags[] = {
    {"--list", &Flags::list},      {"--help", &Flags::help}, {"--version", &Flags::version},
    {"--yes", &Flags::yes},        {"--json", &Flags::json}, {"--quiet", &Flags::quiet},
    {"--no-quit", &Flags::noQuit},
};

// Sets the flag that `name` stands for; false when it names none.
bool takeFlag(std::string_view name, Flags& flags) {
    for (const auto& [flagName, member] : kFlags) {
        if (name == flagName) {
            flags.*member = true;
            return true;
        }
    }
    return false;
}

// The value of "--quit-timeout", from "--quit-timeout=N" or the next argument.
std::variant<std::chrono::seconds, UsageError> quitTimeout(
    const std::vector<std::string>& arguments,
    std::size_t& i) {
    const std::string& argument = arguments[i];
    const std::size_t equals = argument.find('=');
    std::string value;
    if (equals != std::string::npos) {
        value = argument.substr(equals + 1);
    } else if (i + 1 < arguments.size()) {
        value = arguments[++i];
    } else {
        return UsageError{"option '--quit-timeout' needs a number of seconds"};
    }
    const auto parsed = seconds(value);
    if (!parsed) {
        return UsageError{"invalid number of seconds for '--quit-timeout': '" + value + "'"};
    }
    return *parsed;
}

Options::Action actionOf(const Flags& flags) {
    if (flags.help) {
        return Options::Action::help;
    }
    if (flags.version) {
        return Options::Action::version;
    }
    return flags.list ? Options::Action::list : Options::Action::remove;
}

std::optional<UsageError> take(const std::vector<std::string>& arguments,
                               std::size_t& i,
                               Options& options,
                               Flags& flags) {
    const std::string& argument = arguments[i];
    const std::string name = argument.substr(0, argument.find('='));
    if (name == "--quit-timeout") {
        auto value = quitTimeout(arguments, i);
        if (auto* error = std::get_if<UsageError>(&value)) {
            return *error;
        }
        options.quitTimeout = std::get<std::chrono::seconds>(value);
        return std::nullopt;
    }
    if (name != argument && takeFlag(name, flags)) {
        return UsageError{"option '" + name + "' takes no value"};
    }
    if (!takeFlag(argument, flags)) {
        return UsageError{argument.rfind('-', 0) == 0 ? "unrecognized option '" + argument + "'"
                                                      : "unexpected argument '" + argument + "'"};
    }
    return std::nullopt;
}

}  // namespace

std::variant<Options, UsageError> parseOptions(const std::vector<std::string>& arguments) {
    Options options;
    Flags flags;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--") {
            if (i + 1 < arguments.size()) {
                return UsageError{"unexpected argument '" + arguments[i + 1] + "'"};
            }
            break;
        }
        if (auto error = take(arguments, i, options, flags)) {
            return *error;
        }
    }
    options.action = actionOf(flags);
    options.yes = flags.yes;
    options.json = flags.json;
    options.quiet = flags.quiet;
    options.noQuit = flags.noQuit;
    return options;
}

}  // namespace cli
