// tavio-footprint: plants a realistic Tavio footprint in a user's account,
// with canaries that no uninstall may touch, and checks the canaries later.
//
//   tavio-footprint --home DIR --applications DIR [--app-size-mb N]
//                   [--cache-files N] [--identifier ID] [--no-app]
//                   [--no-canaries] [--no-seal] [--player PATH]
//                   [--host-id ID] [--manifest PATH]
//   tavio-footprint --check-canaries --home DIR --applications DIR [--manifest PATH]
//
// Exit status: 0 done (or all canaries intact), 1 a canary changed or went
// missing, 2 wrong usage, 3 planting or reading failed.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "Canaries.h"
#include "Footprint.h"

#ifndef TAVIO_PLAYER_DEFAULT
#define TAVIO_PLAYER_DEFAULT ""
#endif

namespace {

using footprint::FootprintOptions;

struct Command {
    FootprintOptions options;
    bool checkCanaries = false;
    bool canaries = true;
    std::string manifest;
};

[[noreturn]] void usage(const std::string& message) {
    std::fprintf(stderr, "tavio-footprint: %s\n", message.c_str());
    std::fprintf(stderr,
                 "usage: tavio-footprint --home DIR --applications DIR [--app-size-mb N] "
                 "[--cache-files N]\n"
                 "         [--identifier ID] [--no-app] [--no-canaries] [--no-seal] "
                 "[--player PATH]\n"
                 "         [--host-id ID] [--manifest PATH]\n"
                 "       tavio-footprint --check-canaries --home DIR --applications DIR "
                 "[--manifest PATH]\n");
    std::exit(2);
}

std::size_t count(const std::string& option, const char* text) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || text[0] == '-' || value > 1'000'000) {
        usage(option + " takes a whole number up to 1000000");
    }
    return static_cast<std::size_t>(value);
}

Command parse(int argc, char** argv) {
    Command command;
    FootprintOptions& o = command.options;
    o.playerPath = TAVIO_PLAYER_DEFAULT;
    o.hostID = footprint::currentHostID();
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--check-canaries") {
            command.checkCanaries = true;
        } else if (arg == "--no-app") {
            o.app = false;
        } else if (arg == "--no-canaries") {
            command.canaries = false;
        } else if (arg == "--no-seal") {
            o.seal = false;
        } else if (!hasValue) {
            usage("unknown or incomplete option: " + arg);
        } else if (arg == "--home") {
            o.home = argv[++i];
        } else if (arg == "--applications") {
            o.applications = argv[++i];
        } else if (arg == "--identifier") {
            o.identifier = argv[++i];
        } else if (arg == "--player") {
            o.playerPath = argv[++i];
        } else if (arg == "--host-id") {
            o.hostID = argv[++i];
        } else if (arg == "--manifest") {
            command.manifest = argv[++i];
        } else if (arg == "--app-size-mb") {
            o.appSizeMB = count(arg, argv[++i]);
        } else if (arg == "--cache-files") {
            o.cacheFiles = count(arg, argv[++i]);
        } else {
            usage("unknown option: " + arg);
        }
    }
    if (o.home.empty() || o.applications.empty()) {
        usage("--home and --applications are required");
    }
    if (command.manifest.empty()) {
        command.manifest = footprint::defaultManifestPath(o.home);
    }
    return command;
}

int check(const Command& command) {
    const auto result = footprint::checkCanaries(command.options.home, command.options.applications,
                                                 command.manifest);
    if (const auto* error = std::get_if<std::string>(&result)) {
        std::fprintf(stderr, "tavio-footprint: %s\n", error->c_str());
        return 3;
    }
    const auto& outcome = std::get<footprint::CanaryCheck>(result);
    for (const std::string& path : outcome.missing) {
        std::printf("missing: %s\n", path.c_str());
    }
    for (const std::string& path : outcome.changed) {
        std::printf("changed: %s\n", path.c_str());
    }
    std::printf("%s\n", outcome.passed() ? "canaries intact" : "canaries damaged");
    return outcome.passed() ? 0 : 1;
}

int plant(const Command& command) {
    const auto result = footprint::plantFootprint(command.options);
    if (const auto* error = std::get_if<std::string>(&result)) {
        std::fprintf(stderr, "tavio-footprint: %s\n", error->c_str());
        return 3;
    }
    if (command.canaries) {
        if (const auto error = footprint::plantCanaries(
                command.options.home, command.options.applications, command.manifest)) {
            std::fprintf(stderr, "tavio-footprint: %s\n", error->c_str());
            return 3;
        }
    }
    const auto& planted = std::get<footprint::PlantedFootprint>(result);
    for (const std::string& location : planted.locations) {
        std::printf("planted: %s\n", location.c_str());
    }
    std::printf("%zu files, %llu bytes\n", planted.files,
                static_cast<unsigned long long>(planted.bytes));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const Command command = parse(argc, argv);
    return command.checkCanaries ? check(command) : plant(command);
}
