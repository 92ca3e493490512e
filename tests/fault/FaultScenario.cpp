#include "FaultScenario.h"

#include <grp.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "Canaries.h"
#include "CaseHome.h"
#include "ChildProcess.h"
#include "DescriptorCheck.h"
#include "Footprint.h"
#include "SpawnedProcess.h"
#include "platform/InstalledAppVerifier.h"
#include "platform/WorkspaceProcessControl.h"
#include "platform/linux/FilePreferencesAccess.h"
#include "target/InventoryBuilder.h"

namespace faulttest {
namespace {

using engine::UninstallOutcome;
using removal::RemovalReason;
using namespace std::chrono_literals;

// A case that has not finished in this long is taken for a hang.
constexpr unsigned kCaseSeconds = 60;

// The fixtures' own helpers report by throwing; so does a failed set-up here.
[[noreturn]] void setUpFailed(const std::string& what) {
    throw std::runtime_error(what);
}

// Hands the tree at `path` to the case's user, links included and never
// followed.
void handOver(const std::string& path) {
    if (::geteuid() != 0) {
        return;
    }
    std::set<std::string> paths;
    collect(path, paths);
    for (const std::string& each : paths) {
        if (::lchown(each.c_str(), caseUser(), caseUser()) != 0) {
            throw std::runtime_error("cannot hand " + each + " to the case's user");
        }
    }
}

std::string serialize(const engine::UninstallReport& report) {
    std::ostringstream out;
    out << "outcome\t" << static_cast<int>(report.outcome) << "\n";
    for (const auto& result : report.results) {
        if (result.outcome.kind() != engine::ItemOutcome::Kind::failed) {
            continue;
        }
        for (const auto& failure : result.outcome.failures()) {
            out << "fail\t" << failure.path << "\t" << FaultScenario::reasonKey(failure.reason)
                << "\n";
        }
    }
    // A skipped row names its item's path, with the text as its reason.
    for (const auto& result : report.results) {
        if (result.outcome.kind() == engine::ItemOutcome::Kind::skipped) {
            out << "fail\t" << result.item.path << "\t"
                << FaultScenario::reasonKey(RemovalReason::other(result.outcome.reason())) << "\n";
        }
    }
    return out.str();
}

std::string serialize(const target::Inventory& inventory) {
    std::ostringstream out;
    for (const auto& item : inventory.items) {
        out << "state\t" << item.id << "\t" << stateName(item.state.kind()) << "\n";
    }
    return out.str();
}

// The rewrite stage takes the first half of the keys away.
std::vector<std::string> firstHalf(const std::vector<std::string>& keys) {
    return {keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(keys.size() / 2)};
}

CaseRun parse(const std::string& answer) {
    CaseRun run;
    run.finished = true;
    std::istringstream in(answer);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string tag, first, second;
        std::getline(fields, tag, '\t');
        std::getline(fields, first, '\t');
        std::getline(fields, second, '\t');
        if (tag == "fired") {
            run.fired = first == "1";
        } else if (tag == "whileRunning") {
            run.removedWhileTavioRan = first == "1";
        } else if (tag == "leaked") {
            run.descriptorsLeaked = first == "1";
        } else if (tag == "counts") {
            std::istringstream numbers(first);
            for (auto& count : run.counts) {
                numbers >> count;
            }
        } else if (tag == "outcome") {
            run.outcome = static_cast<UninstallOutcome>(std::stoi(first));
        } else if (tag == "fail") {
            run.failures.emplace_back(first, second);
        } else if (tag == "state") {
            run.states.emplace_back(first, second);
        }
    }
    return run;
}

}  // namespace

std::string FaultScenario::reasonKey(const RemovalReason& reason) {
    const auto kind = reason.kind();
    std::string key = std::to_string(static_cast<int>(kind));
    if (kind == RemovalReason::Kind::system) {
        key += ":" + std::to_string(reason.code());
    } else if (kind == RemovalReason::Kind::other) {
        key += ":" + reason.text();
    }
    return key;
}

FaultScenario::FaultScenario()
    : home_(temp_ / "home"), apps_(temp_ / "Applications"), manifest_(temp_ / "canaries") {
    footprint::FootprintOptions options;
    options.home = home_;
    options.applications = apps_;
    options.playerPath = TAVIO_PLAYER_PATH;
    options.hostID = kHostID;
    options.identifier = kId;
    options.appSizeMB = 0;
    options.cacheFiles = 4;
    options.largeCacheFiles = 1;
    options.largeCacheFileMB = 0;
    options.torrentCopies = 2;
    const auto planted = footprint::plantFootprint(options);
    if (const auto* error = std::get_if<std::string>(&planted)) {
        setUpFailed("planting the footprint: " + *error);
    }
    locations_ = std::get<footprint::PlantedFootprint>(planted).locations;
    if (const auto error = footprint::plantCanaries(home_, apps_, manifest_)) {
        setUpFailed("planting the canaries: " + *error);
    }
    // A link out of the cache to the user's own videos: the link goes, the
    // videos stay.
    const std::string cache = home_ + "/Library/Caches/" + kId;
    if (::symlink((home_ + "/Movies").c_str(), (cache + "/linked-videos").c_str()) != 0) {
        setUpFailed("planting the link out of the cache");
    }
    handOver(temp_.path());
    for (const std::string& path :
         {home_ + "/Library/Preferences/" + kId + ".plist",
          home_ + "/Library/Preferences/ByHost/" + kId + "." + kHostID + ".plist"}) {
        preferenceFiles_[path] = testsupport::readFile(path);
    }
    anyHostKeys_ = storeFor(home_)->keys(kId, platform::PreferencesHost::anyHost);
    if (anyHostKeys_.size() < 2) {
        setUpFailed("the planted preferences hold fewer than two keys");
    }
    before_ = everythingBelow(temp_.path());
}

// Tavio takes 30 ms to quit once asked. A case whose failing call kept the
// request from being sent waits out the whole timeout (the request is never
// repeated), so the timeout is long enough for a slow machine to see Tavio
// quit and no longer.
engine::UninstallEngine FaultScenario::engine() const {
    auto context = target::UninstallContext::make(caseUser(), {home_, "alice"}, kId);
    context.applicationDirectories = {apps_, home_ + "/Applications"};
    return engine::UninstallEngine{context,
                                   std::make_shared<platform::WorkspaceProcessControl>(kId),
                                   storeFor(home_),
                                   std::make_shared<platform::InstalledAppVerifier>(),
                                   1s,
                                   10ms};
}

// Whether the process `pid` can still act on its files: it is neither gone
// nor a zombie, and it has not begun to exit. An exiting process (the
// kernel's PF_EXITING, bit 0x4 of the flags, field 9 of its stat line) has
// already given up its memory and runs none of its own code again, though
// the kernel may list it as running for a moment more.
bool isAlive(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(stat, text);
    const std::size_t close = text.rfind(')');
    if (close == std::string::npos || close + 2 >= text.size()) {
        return false;
    }
    std::istringstream fields(text.substr(close + 2));
    std::string state, ppid, group, session, terminal, foreground;
    unsigned long flags = 0;
    fields >> state >> ppid >> group >> session >> terminal >> foreground >> flags;
    constexpr unsigned long kExiting = 0x4;
    return fields && state != "Z" && state != "X" && (flags & kExiting) == 0;
}

CaseRun FaultScenario::run(Stage stage, const std::optional<faults::Fault>& fault) {
    const engine::UninstallEngine uninstaller = engine();
    const auto scan = [&] {
        return target::InventoryBuilder{uninstaller.context, uninstaller.verifier,
                                        uninstaller.preferences}
            .build();
    };
    const std::string player = apps_ + "/Tavio.app/Contents/MacOS/Tavio";
    const auto work = [&]() -> std::string {
        ::alarm(kCaseSeconds);
        becomeCaseUser();
        std::unique_ptr<testsupport::SpawnedProcess> tavio;
        if (stage == Stage::quit) {
            tavio = std::make_unique<testsupport::SpawnedProcess>(
                player, std::vector<std::string>{"--quit-delay-ms", "30", "--exit-with-parent"});
            if (!tavio->readUntil("ready")) {
                throw std::runtime_error("the planted Tavio did not start");
            }
        }
        const bool uninstalls = stage == Stage::uninstall || stage == Stage::quit;
        target::Inventory inventory = uninstalls ? scan() : target::Inventory{};
        const auto descriptorsBefore = testsupport::openDescriptors();
        std::string body;
        bool removedWhileTavioRan = false;
        std::optional<faults::Counts> untilFirstItem;
        const auto onEvent = [&](const engine::UninstallEvent& event) {
            const faults::Paused paused;
            if (event.kind() != engine::UninstallEvent::Kind::removing) {
                return;
            }
            if (!untilFirstItem) {
                untilFirstItem = faults::countsSoFar();
            }
            if (tavio && isAlive(tavio->pid())) {
                removedWhileTavioRan = true;
            }
        };
        faults::arm(fault);
        switch (stage) {
            case Stage::uninstall:
            case Stage::quit:
                body = serialize(uninstaller.run(inventory, onEvent));
                break;
            case Stage::scan:
                body = serialize(scan());
                break;
            case Stage::rewrite:
                storeFor(home_)->removeKeys(kId, platform::PreferencesHost::anyHost,
                                            firstHalf(anyHostKeys_));
                break;
        }
        faults::Counts counts = faults::disarm();
        // With Tavio running, the calls that matter are those made while it
        // runs and quits. Once the first item is begun, the run is one
        // without Tavio, which the uninstall stage fails call by call.
        if (stage == Stage::quit && untilFirstItem) {
            counts = *untilFirstItem;
        }
        std::ostringstream out;
        out << "fired\t" << faults::fired() << "\n";
        out << "leaked\t" << (testsupport::openDescriptors() != descriptorsBefore) << "\n";
        out << "whileRunning\t" << removedWhileTavioRan << "\n";
        out << "counts\t";
        for (const auto count : counts) {
            out << count << " ";
        }
        out << "\n" << body;
        return out.str();
    };
    const auto answer = testsupport::runInChild(
        [&]() -> std::string { return testsupport::inPrivateProcessTable(work).value_or(""); });
    if (!answer || answer->empty()) {
        CaseRun died;
        died.died = "the run crashed, trapped or hung (no answer within " +
                    std::to_string(kCaseSeconds) + " s)";
        return died;
    }
    return parse(*answer);
}

CaseRun FaultScenario::runAfterCrash(Stage stage, const faults::Fault& crash) {
    (void)run(stage, crash);
    return run(Stage::uninstall, std::nullopt);
}

}  // namespace faulttest
