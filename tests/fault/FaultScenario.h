#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Faults.h"
#include "TempDir.h"
#include "engine/UninstallEngine.h"

// One fault case over a whole uninstall, in a temporary home planted with
// every category of Tavio's footprint (a sealed app copy, preferences in the
// store, a link out of the cache to the user's videos) and canaries beside
// every location. The run happens in a child process, so that a crash, a hang
// or a leaked descriptor is the case's and not the test program's; the
// checks happen in the parent, on the disk and a fresh scan, disarmed. The
// child has a process table of its own, in which it sees only itself and the
// Tavio it starts, so that its calls are the same from run to run and few
// enough to fail every one of them.
namespace faulttest {

// What a case runs armed: a whole uninstall; the same with Tavio running
// from the planted app, slow to quit (failing only the calls made until
// the first item is begun); only the scan that builds an
// inventory; or the preferences store's rewrite of a file that keeps some of
// its keys (which an uninstall, taking every key, never needs).
enum class Stage { uninstall, quit, scan, rewrite };

// What the child saw: the report (or the inventory) as text, and how the run
// ended.
struct CaseRun {
    bool finished = false;  // false: it crashed, hung or trapped
    std::string died;       // how, when it did not finish
    bool fired = false;     // the fault was reached
    bool descriptorsLeaked = false;
    bool removedWhileTavioRan = false;  // an item was begun while Tavio still ran
    faults::Counts counts{};
    // Uninstall: the overall outcome and every failure of the report.
    engine::UninstallOutcome outcome = engine::UninstallOutcome::completed;
    std::vector<std::pair<std::string, std::string>> failures;  // path, reason key
    // Scan: each item's id with its state ("present", "absent", "skipped").
    std::vector<std::pair<std::string, std::string>> states;
};

class FaultScenario {
  public:
    FaultScenario();

    // Runs the stage in a child, armed with `fault` (or none, to count).
    CaseRun run(Stage stage, const std::optional<faults::Fault>& fault);

    // Runs the stage in a child killed with SIGKILL just before the call that
    // `crash` names, then a whole uninstall in a fresh child with nothing in
    // its way, and returns what the second run saw.
    CaseRun runAfterCrash(Stage stage, const faults::Fault& crash);

    // Everything that is wrong after a crash and the run that followed it:
    // what problems() finds of a run without a fault, and any outcome but a
    // completed uninstall.
    std::vector<std::string> problemsAfterCrash(const CaseRun& second) const;

    // Everything that is wrong after `run`, one line each; empty when the
    // case kept every promise.
    std::vector<std::string> problems(Stage stage,
                                      const std::optional<faults::Fault>& fault,
                                      const CaseRun& run) const;

    // The key by which a reason is written in a CaseRun.
    static std::string reasonKey(const removal::RemovalReason& reason);

  private:
    engine::UninstallEngine engine() const;
    std::vector<std::string> leftovers() const;
    std::set<std::string> everythingBelow(const std::string& root) const;
    std::vector<std::string> createdPaths() const;
    bool isBookkeeping(const std::string& path) const;
    void tidyAsTheNextRunDoes() const;
    void checkUninstall(const std::optional<faults::Fault>& fault,
                        const CaseRun& run,
                        std::vector<std::string>& problems) const;
    void checkRewrite(const CaseRun& run, std::vector<std::string>& problems) const;
    void checkScan(const std::optional<faults::Fault>& fault,
                   const CaseRun& run,
                   std::vector<std::string>& problems) const;

    testsupport::TempDir temp_;
    std::string home_, apps_, manifest_;
    std::vector<std::string> locations_;
    std::map<std::string, std::string> preferenceFiles_;  // path, bytes as planted
    std::vector<std::string> anyHostKeys_;                // as planted, in order
    std::set<std::string> before_;                        // every path below the temporary folder
};

}  // namespace faulttest
