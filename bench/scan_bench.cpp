// Times a full scan (InventoryBuilder::build) of a planted footprint without
// an app copy, with the real Linux preferences store and app check.
//
//   scan_bench [--dir PARENT] [--runs N]
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "Footprint.h"
#include "platform/InstalledAppVerifier.h"
#include "platform/linux/FilePreferencesAccess.h"
#include "target/InventoryBuilder.h"

int main(int argc, char** argv) {
    std::string parent = bench::temporaryParent();
    int runs = 50;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string arg = argv[i];
        if (arg == "--dir") {
            parent = argv[i + 1];
        } else if (arg == "--runs") {
            runs = std::max(5, std::atoi(argv[i + 1]));
        }
    }
    const std::string work = bench::makeWorkFolder(parent, "scan-bench");
    footprint::FootprintOptions options;
    options.home = work + "/home";
    options.applications = work + "/Applications";
    options.hostID = "0123456789abcdef0123456789abcdef";
    options.app = false;
    const auto planted = footprint::plantFootprint(options);
    if (const auto* error = std::get_if<std::string>(&planted)) {
        bench::fail(*error);
    }
    auto context =
        target::UninstallContext::make(::getuid(), {options.home, "bench"}, options.identifier);
    context.applicationDirectories = {options.applications, options.home + "/Applications"};
    const target::InventoryBuilder builder{
        context, std::make_shared<platform::InstalledAppVerifier>(),
        std::make_shared<platform::FilePreferencesAccess>(
            options.home,
            std::vector<platform::PreferencesHost>{platform::PreferencesHost::anyHost,
                                                   platform::PreferencesHost::currentHost},
            options.hostID, ::getuid()),
        "Tavio.app"};
    std::vector<double> times;
    std::size_t present = 0;
    for (int run = 0; run < runs; ++run) {
        const auto start = bench::Clock::now();
        const target::Inventory inventory = builder.build();
        times.push_back(bench::secondsSince(start) * 1e6);
        present = inventory.removableItems().size();
    }
    std::printf(
        "full scan of a planted footprint without an app copy (%zu items present): "
        "median %.0f us, fastest %.0f us over %d runs\n",
        present, bench::median(times), *std::min_element(times.begin(), times.end()), runs);
    (void)std::system(("rm -rf -- '" + work + "'").c_str());
    return 0;
}
