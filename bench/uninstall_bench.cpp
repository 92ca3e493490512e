// A full uninstall of the demo footprint (a 300 MB sealed app and 50,000
// cache files) through UninstallEngine::run with the real Linux adapters,
// against `sha256sum` over every file of the bundle plus `rm -rf` of an
// identical second footprint, alternating; prints the median ratio and where
// our time goes (the scan with the seal check, each removal item, the final
// check).
//
//   uninstall_bench [--dir PARENT] [--runs N]
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "Footprint.h"
#include "engine/UninstallEngine.h"
#include "platform/InstalledAppVerifier.h"
#include "platform/WorkspaceProcessControl.h"
#include "platform/linux/FilePreferencesAccess.h"
#include "target/InventoryBuilder.h"

extern char** environ;

namespace {

using bench::Clock;
using bench::fail;
using bench::median;
using namespace std::chrono_literals;

constexpr const char* kHostID = "0123456789abcdef0123456789abcdef";
// Unique per process: the process adapter looks at every running player of
// the user, and nothing else should match.
const std::string kId = "io.tavio.Tavio.bench" + std::to_string(::getpid());

double secondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

footprint::FootprintOptions optionsFor(const std::string& top) {
    footprint::FootprintOptions options;
    options.home = top + "/home";
    options.applications = top + "/Applications";
    options.playerPath = UT_PLAYER_PATH;
    options.hostID = kHostID;
    options.identifier = kId;
    options.appSizeMB = 300;
    options.cacheFiles = 50000;
    return options;
}

footprint::PlantedFootprint plant(const std::string& top) {
    const auto planted = footprint::plantFootprint(optionsFor(top));
    if (const auto* error = std::get_if<std::string>(&planted)) {
        fail(*error);
    }
    ::sync();
    return std::get<footprint::PlantedFootprint>(planted);
}

struct OurRun {
    double total = 0;
    double scan = 0;         // InventoryBuilder::build, the seal check included
    double beforeItems = 0;  // from run() to the first item (the running-app check)
    double items = 0;        // from the first item begun to the last one finished
    double finalCheck = 0;   // from the last item finished to run() returning
    std::vector<std::pair<std::string, double>> perItem;
};

OurRun uninstallWithEngine(const std::string& top) {
    const auto options = optionsFor(top);
    auto context = target::UninstallContext::make(::getuid(), {options.home, "bench"}, kId);
    context.applicationDirectories = {options.applications, options.home + "/Applications"};
    const engine::UninstallEngine engine{
        context,
        std::make_shared<platform::WorkspaceProcessControl>(kId),
        std::make_shared<platform::FilePreferencesAccess>(
            options.home,
            std::vector<platform::PreferencesHost>{platform::PreferencesHost::anyHost,
                                                   platform::PreferencesHost::currentHost},
            kHostID, ::getuid()),
        std::make_shared<platform::InstalledAppVerifier>(),
        10s,
        50ms};

    OurRun result;
    const auto start = Clock::now();
    const target::Inventory inventory =
        target::InventoryBuilder{engine.context, engine.verifier, engine.preferences, "Tavio.app"}
            .build();
    const auto scanned = Clock::now();
    std::map<std::string, Clock::time_point> begun;
    Clock::time_point firstBegun{}, lastFinished{};
    const auto report = engine.run(inventory, [&](const engine::UninstallEvent& event) {
        const auto now = Clock::now();
        if (event.kind() == engine::UninstallEvent::Kind::removing) {
            if (begun.empty()) {
                firstBegun = now;
            }
            begun[event.item()->id] = now;
        } else if (event.kind() == engine::UninstallEvent::Kind::finished) {
            lastFinished = now;
            result.perItem.emplace_back(event.item()->displayPath,
                                        secondsBetween(begun[event.item()->id], now));
        }
    });
    const auto end = Clock::now();
    if (report.outcome != engine::UninstallOutcome::completed || begun.empty()) {
        fail("the uninstall did not complete");
    }
    for (const auto& item : report.results) {
        if (!item.outcome.isDone()) {
            fail("not removed: " + item.item.id);
        }
    }
    result.total = secondsBetween(start, end);
    result.scan = secondsBetween(start, scanned);
    result.beforeItems = secondsBetween(scanned, firstBegun);
    result.items = secondsBetween(firstBegun, lastFinished);
    result.finalCheck = secondsBetween(lastFinished, end);
    return result;
}

double spawnAndWait(std::vector<std::string> args, const std::string& what) {
    std::vector<char*> argv;
    for (auto& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    const auto start = Clock::now();
    pid_t pid = 0;
    if (::posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        fail("spawn " + what);
    }
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        fail(what + " failed");
    }
    return secondsBetween(start, Clock::now());
}

struct ToolsRun {
    double sha256sum = 0;
    double rm = 0;
};

// sha256sum of every file of the bundle, then rm -rf of every planted
// location, each a child in this process group.
ToolsRun uninstallWithTools(const std::string& top, const footprint::PlantedFootprint& planted) {
    const std::string bundle = optionsFor(top).applications + "/Tavio.app";
    ToolsRun result;
    result.sha256sum = spawnAndWait(
        {"sh", "-c", "find \"$1\" -type f -print0 | xargs -0 sha256sum >/dev/null", "sh", bundle},
        "sha256sum");
    std::vector<std::string> rm = {"rm", "-rf", "--"};
    rm.insert(rm.end(), planted.locations.begin(), planted.locations.end());
    result.rm = spawnAndWait(rm, "rm -rf");
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    std::string parent = bench::temporaryParent();
    int runs = 3;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string arg = argv[i];
        if (arg == "--dir") {
            parent = argv[i + 1];
        } else if (arg == "--runs") {
            runs = std::max(3, std::atoi(argv[i + 1]));
        }
    }
    const std::string work = bench::makeWorkFolder(parent, "uninstall-bench");
    std::vector<double> ours, theirs, shas, rms, scans, befores, items, finals;
    std::map<std::string, std::vector<double>> perItem;
    for (int run = 0; run < runs; ++run) {
        const std::string a = work + "/engine" + std::to_string(run);
        const std::string b = work + "/tools" + std::to_string(run);
        const auto plantedA = plant(a);
        const auto plantedB = plant(b);
        if (run == 0) {
            std::printf("footprint: %zu files, %.1f MB\n", plantedA.files,
                        static_cast<double>(plantedA.bytes) / (1024.0 * 1024.0));
        }
        OurRun our;
        ToolsRun tools;
        // Alternate which goes first, so neither always meets a warmer cache.
        if (run % 2 == 0) {
            our = uninstallWithEngine(a);
            tools = uninstallWithTools(b, plantedB);
        } else {
            tools = uninstallWithTools(b, plantedB);
            our = uninstallWithEngine(a);
        }
        theirs.push_back(tools.sha256sum + tools.rm);
        shas.push_back(tools.sha256sum);
        rms.push_back(tools.rm);
        ours.push_back(our.total);
        scans.push_back(our.scan);
        befores.push_back(our.beforeItems);
        items.push_back(our.items);
        finals.push_back(our.finalCheck);
        for (const auto& [name, seconds] : our.perItem) {
            // The app's path names the run's folder; keep the rest.
            const std::string key = name.rfind(a, 0) == 0 ? name.substr(a.size()) : name;
            perItem[key].push_back(seconds);
        }
        std::printf("run %d: engine %.3f s, sha256sum + rm -rf %.3f s (%.3f + %.3f)\n", run + 1,
                    ours.back(), theirs.back(), tools.sha256sum, tools.rm);
        (void)std::system(("rm -rf -- '" + a + "' '" + b + "'").c_str());
    }
    std::printf("median engine %.3f s, sha256sum + rm -rf %.3f s (sha256sum %.3f, rm -rf %.3f)\n",
                median(ours), median(theirs), median(shas), median(rms));
    std::printf("ratio engine / (sha256sum + rm -rf) (median of %d): %.3f\n", runs,
                median(ours) / median(theirs));
    std::printf("where the engine's time goes (medians):\n");
    std::printf("  scan incl. seal check   %.3f s\n", median(scans));
    std::printf("  running-app check       %.3f s\n", median(befores));
    std::printf("  removal items           %.3f s\n", median(items));
    for (const auto& [name, seconds] : perItem) {
        std::printf("    %-60s %.3f s\n", name.c_str(), median(seconds));
    }
    std::printf("  final check             %.3f s\n", median(finals));
    ::rmdir(work.c_str());
    return 0;
}
