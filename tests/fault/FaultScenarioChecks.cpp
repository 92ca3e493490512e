#include <sys/stat.h>

#include <algorithm>
#include <map>

#include "Canaries.h"
#include "CaseHome.h"
#include "ChildProcess.h"
#include "FaultScenario.h"
#include "TempDir.h"
#include "target/InventoryBuilder.h"
#include "target/RemovalRecords.h"

// The checks of a case, made in the parent after the child's run, on the
// disk and a fresh scan: what must hold whatever call failed.
namespace faulttest {
namespace {

using engine::UninstallOutcome;
using removal::RemovalReason;

bool isAncestor(const std::string& folder, const std::string& path) {
    return path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
           path[folder.size()] == '/';
}

std::optional<std::string> readAll(const std::string& path) {
    return testsupport::exists(path) ? std::optional(testsupport::readFile(path)) : std::nullopt;
}

}  // namespace

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

// Every path that is new since the world was planted, but the record of an
// app copy's removal, which stays exactly as long as what is left of the
// copy: the next run needs it to finish the job.
std::vector<std::string> FaultScenario::createdPaths() const {
    const std::vector<std::string> left = leftovers();
    const bool appLeft = std::any_of(left.begin(), left.end(), [&](const std::string& path) {
        return path.ends_with("/Tavio.app");
    });
    std::vector<std::string> created;
    for (const std::string& path : everythingBelow(temp_.path())) {
        if (!before_.contains(path) && !(appLeft && isBookkeeping(path))) {
            created.push_back(path);
        }
    }
    return created;
}

// The program's own folders for records, and a chain of them being made or
// retired under its temporary name in the home folder.
bool FaultScenario::isBookkeeping(const std::string& path) const {
    const std::string local = home_ + "/.local";
    return path == local || isAncestor(local, path) ||
           path.starts_with(home_ + "/" + std::string(target::kChainPrefix));
}

// What every run does at its end, in a run of its own as the case's user.
void FaultScenario::tidyAsTheNextRunDoes() const {
    const auto answer = testsupport::runInChild([&]() -> std::string {
        becomeCaseUser();
        const target::RemovalRecords records{home_, target::RemovalRecords::folderFor(home_),
                                             caseUser()};
        records.tidy();
        return "tidied";
    });
    if (answer != "tidied") {
        throw std::runtime_error("the tidy-up of the next run did not finish");
    }
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
    std::vector<std::string> created = createdPaths();
    // A call that failed while the program tidied away its folders for
    // records may leave them; the next run must take them.
    const bool failedOnItsWay = fault && run.fired && fault->error != EINTR;
    if (failedOnItsWay && !created.empty() &&
        std::all_of(created.begin(), created.end(),
                    [&](const std::string& path) { return isBookkeeping(path); })) {
        tidyAsTheNextRunDoes();
        created = createdPaths();
    }
    for (const std::string& path : created) {
        problems.push_back("created: " + path);
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

std::vector<std::string> FaultScenario::problemsAfterCrash(const CaseRun& second) const {
    std::vector<std::string> found = problems(Stage::uninstall, std::nullopt, second);
    if (second.finished && second.outcome != UninstallOutcome::completed) {
        found.push_back("the run after the crash did not complete");
        for (const auto& [path, reason] : second.failures) {
            found.push_back("left: " + path + " " + reason);
        }
    }
    return found;
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
        reasonKey(RemovalReason::runningNotChecked()),
    };
    if (fault && run.fired) {
        allowed.insert(reasonKey(RemovalReason::notRecorded()));
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
