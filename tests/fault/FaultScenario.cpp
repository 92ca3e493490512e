#include "FaultScenario.h"

#include <dirent.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "Canaries.h"
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

// A product identifier of this test process's own: the process adapter looks
// at every process of the user, and test programs run side by side.
const std::string kId = "io.tavio.Tavio.fault" + std::to_string(::getpid());
constexpr const char* kHostID = "0123456789abcdef0123456789abcdef";

// The user whose home a case plants and who runs it: people do not run the
// uninstaller as root, and root is spared the refusals (EACCES, EPERM) that a
// failing call gives everyone else. Run as root, the test hands the planted
// tree to nobody and each case drops to nobody once its process table is
// set up; run as anyone else, it is that user's own.
uid_t caseUser() {
    static const uid_t user = ::geteuid() == 0 ? 65534 : ::getuid();
    return user;
}

// In the child: from here on the case runs as its user.
void becomeCaseUser() {
    if (::geteuid() != 0) {
        return;
    }
    if (::setgroups(0, nullptr) != 0 || ::setresgid(caseUser(), caseUser(), caseUser()) != 0 ||
        ::setresuid(caseUser(), caseUser(), caseUser()) != 0) {
        throw std::runtime_error("cannot become the case's user");
    }
}

// A case that has not finished in this long is taken for a hang.
constexpr unsigned kCaseSeconds = 60;

// The fixtures' own helpers report by throwing; so does a failed set-up here.
[[noreturn]] void setUpFailed(const std::string& what) {
    throw std::runtime_error(what);
}

bool isAncestor(const std::string& folder, const std::string& path) {
    return path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
           path[folder.size()] == '/';
}

std::optional<std::string> readAll(const std::string& path) {
    return testsupport::exists(path) ? std::optional(testsupport::readFile(path)) : std::nullopt;
}

const char* stateName(target::ItemState::Kind kind) {
    switch (kind) {
        case target::ItemState::Kind::present:
            return "present";
        case target::ItemState::Kind::absent:
            return "absent";
        case target::ItemState::Kind::skipped:
            return "skipped";
    }
    return "?";
}

// Adds `path` and, when it is a folder (never through a link), everything
// below it.
void collect(const std::string& path, std::set<std::string>& into) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        return;
    }
    into.insert(path);
    if (!S_ISDIR(st.st_mode)) {
        return;
    }
    for (const std::string& name : testsupport::listNames(path)) {
        collect(path + "/" + name, into);
    }
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

// The store as the program makes it, for this home.
std::shared_ptr<platform::FilePreferencesAccess> storeFor(const std::string& home) {
    return std::make_shared<platform::FilePreferencesAccess>(
        home,
        std::vector<platform::PreferencesHost>{platform::PreferencesHost::anyHost,
                                               platform::PreferencesHost::currentHost},
        kHostID, caseUser());
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

std::set<std::string> FaultScenario::everythingBelow(const std::string& root) const {
    std::set<std::string> paths;
    collect(root, paths);
    return paths;
}

// Every path of the footprint that is still on disk, through no link.
std::vector<std::string> FaultScenario::leftovers() const {
    std::set<std::string> found;
    for (const std::string& location : locations_) {
        collect(location, found);
    }
    return {found.begin(), found.end()};
}

std::vector<std::string> FaultScenario::problems(Stage stage,
                                                 const std::optional<faults::Fault>& fault,
                                                 const CaseRun& run) const {
    std::vector<std::string> problems;
    if (!run.finished) {
        problems.push_back(run.died);
        return problems;
    }
    if (run.descriptorsLeaked) {
        problems.push_back("a descriptor was left open");
    }
    const auto canaries = footprint::checkCanaries(home_, apps_, manifest_);
    const auto* check = std::get_if<footprint::CanaryCheck>(&canaries);
    if (check == nullptr) {
        problems.push_back("the canaries could not be checked: " + std::get<std::string>(canaries));
    } else {
        for (const auto& path : check->missing) {
            problems.push_back("canary gone: " + path);
        }
        for (const auto& path : check->changed) {
            problems.push_back("canary changed: " + path);
        }
    }
    for (const std::string& path : everythingBelow(temp_.path())) {
        if (!before_.contains(path)) {
            problems.push_back("created: " + path);
        }
    }
    if (stage == Stage::rewrite) {
        checkRewrite(run, problems);
        return problems;
    }
    for (const auto& [path, bytes] : preferenceFiles_) {
        const auto now = readAll(path);
        if (now && *now != bytes) {
            problems.push_back("preferences file half written: " + path);
        }
    }
    if (run.removedWhileTavioRan) {
        problems.push_back("an item was removed while Tavio still ran");
    }
    if (stage == Stage::uninstall || stage == Stage::quit) {
        checkUninstall(fault, run, problems);
    } else {
        checkScan(fault, run, problems);
    }
    return problems;
}

void FaultScenario::checkUninstall(const std::optional<faults::Fault>& fault,
                                   const CaseRun& run,
                                   std::vector<std::string>& problems) const {
    const std::vector<std::string> left = leftovers();
    if (run.outcome == UninstallOutcome::didNotQuit) {
        // Refused and reported: nothing may have been touched.
        for (const std::string& location : locations_) {
            if (!testsupport::exists(location)) {
                problems.push_back("Tavio did not quit, but this was removed: " + location);
            }
        }
        if (!fault || !run.fired || fault->error == EINTR) {
            problems.push_back("Tavio did not quit in a run without a fault");
        }
        return;
    }
    const bool cleanRunExpected = !fault || !run.fired || fault->error == EINTR;
    if (cleanRunExpected && (run.outcome != UninstallOutcome::completed || !left.empty())) {
        problems.push_back(fault && run.fired ? "an interrupted call was not retried"
                                              : "a run without a fault did not complete");
    }
    if (run.outcome == UninstallOutcome::completed) {
        if (!left.empty()) {
            problems.push_back("completed, but still on disk: " + left.front());
        }
        const engine::UninstallEngine uninstaller = engine();
        const auto fresh = target::InventoryBuilder{uninstaller.context, uninstaller.verifier,
                                                    uninstaller.preferences}
                               .build();
        for (const auto& item : fresh.items) {
            if (item.state.kind() != target::ItemState::Kind::absent) {
                problems.push_back("completed, but a fresh scan finds " + item.id);
            }
        }
    }
    // Each leftover is named by a failure at it, above it (a folder not
    // entered) or below it (a folder kept); a preferences file by a failure
    // of its domain or of its path.
    for (const std::string& path : left) {
        bool named = false;
        for (const auto& [failed, reason] : run.failures) {
            named = named || failed == path || isAncestor(failed, path) ||
                    isAncestor(path, failed) || (preferenceFiles_.contains(path) && failed == kId);
        }
        if (!named) {
            problems.push_back("left on disk and not in the report: " + path);
        }
    }
    // Reasons: what the failing call answered, or what the design says of a
    // check that found the item still there or could not verify it.
    std::set<std::string> allowed = {
        reasonKey(RemovalReason::reappeared()),
        reasonKey(RemovalReason::changedSinceVerification()),
        reasonKey(RemovalReason::applicationRunning()),
    };
    if (fault && run.fired) {
        allowed.insert(reasonKey(removal::reasonForErrno(fault->error)));
        if (fault->error == ENOENT) {
            // An entry taken for gone that was not leaves its folder full.
            allowed.insert(reasonKey(removal::reasonForErrno(ENOTEMPTY)));
        }
    }
    const std::string otherPrefix = reasonKey(RemovalReason::other("")).substr(0, 2);
    for (const auto& [failed, reason] : run.failures) {
        if (!allowed.contains(reason) && reason.rfind(otherPrefix, 0) != 0) {
            problems.push_back("reported with a reason no failure gave: " + failed + " " + reason);
        }
    }
}

// The file that kept some keys is either exactly as it was, or holds exactly
// the other keys (read back through the store, in either format); the other
// host's file is untouched. A rewrite that did not happen is not reported by
// the store: the final check of an uninstall is what finds keys still there.
void FaultScenario::checkRewrite(const CaseRun& run, std::vector<std::string>& problems) const {
    const std::string anyHostPath = home_ + "/Library/Preferences/" + kId + ".plist";
    const std::string& planted = preferenceFiles_.at(anyHostPath);
    for (const auto& [path, bytes] : preferenceFiles_) {
        if (path != anyHostPath && readAll(path) != bytes) {
            problems.push_back("the other host's preferences changed: " + path);
        }
    }
    if (readAll(anyHostPath) == planted) {
        return;
    }
    std::vector<std::string> expected(
        anyHostKeys_.begin() + static_cast<std::ptrdiff_t>(anyHostKeys_.size() / 2),
        anyHostKeys_.end());
    std::vector<std::string> now = storeFor(home_)->keys(kId, platform::PreferencesHost::anyHost);
    std::sort(expected.begin(), expected.end());
    std::sort(now.begin(), now.end());
    if (now != expected) {
        problems.push_back("preferences file half written: " + anyHostPath);
    }
    if (!run.finished) {
        problems.push_back("the rewrite did not finish");
    }
}

void FaultScenario::checkScan(const std::optional<faults::Fault>& fault,
                              const CaseRun& run,
                              std::vector<std::string>& problems) const {
    const engine::UninstallEngine uninstaller = engine();
    const auto truth =
        target::InventoryBuilder{uninstaller.context, uninstaller.verifier, uninstaller.preferences}
            .build();
    std::vector<std::pair<std::string, std::string>> expected;
    for (const auto& item : truth.items) {
        expected.emplace_back(item.id, stateName(item.state.kind()));
    }
    if (!fault || !run.fired || fault->error == EINTR) {
        if (run.states != expected) {
            problems.push_back(fault && run.fired ? "an interrupted call was not retried"
                                                  : "a scan without a fault differs");
        }
        return;
    }
    // A failed look may leave an item skipped (with its reason), or add a
    // skipped row for a place it could not look into, but it never makes
    // something that is there look absent, except where the call itself said
    // "no such file", and never makes anything look present.
    const std::map<std::string, std::string> clean(expected.begin(), expected.end());
    std::set<std::string> listed;
    for (const auto& [id, state] : run.states) {
        listed.insert(id);
        const auto found = clean.find(id);
        const std::string truth = found == clean.end() ? "absent" : found->second;
        if (found == clean.end() && state != "skipped") {
            problems.push_back("a failed look added an item that is not skipped: " + id);
        } else if (state == "absent" && truth != "absent" && fault->error != ENOENT) {
            problems.push_back("a failed look made an item look absent: " + id);
        } else if (state == "present" && truth != "present") {
            problems.push_back("a failed look made an item look present: " + id);
        }
    }
    for (const auto& [id, state] : expected) {
        if (!listed.contains(id) && state != "absent") {
            problems.push_back("a failed look dropped an item: " + id);
        }
    }
}

}  // namespace faulttest
