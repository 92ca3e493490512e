#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "FakeAdapters.h"
#include "TempDir.h"
#include "engine/UninstallEngine.h"
#include "target/InventoryBuilder.h"

using engine::ItemOutcome;
using engine::UninstallEngine;
using engine::UninstallEvent;
using engine::UninstallOutcome;
using engine::UninstallReport;
using removal::RemovalReason;
using target::Inventory;
using target::InventoryItem;
using target::ItemState;
using namespace testsupport;
using namespace std::chrono_literals;

namespace engine {
void PrintTo(const ItemOutcome& outcome, std::ostream* out) {
    static const char* names[] = {"skipped", "failed", "removed", "alreadyAbsent", "linkRemoved"};
    *out << names[static_cast<int>(outcome.kind())] << " " << outcome.reason();
    for (const auto& failure : outcome.failures()) {
        *out << " [" << failure.path << ": " << failure.reason.explanation() << "]";
    }
}
}  // namespace engine

namespace {

constexpr const char* kId = "io.tavio.Tavio";

// One engine over a temporary home with scripted adapters, and the events it
// sent, written as short strings in the order they came.
class EngineTest : public ::testing::Test {
  protected:
    void SetUp() override {
        makeDirectories(home());
        makeDirectories(apps());
        context_ = target::UninstallContext::make(::getuid(), {home(), "alice"}, kId);
        context_.applicationDirectories = {apps()};
    }

    std::string home() const { return temp_ / "home"; }
    std::string apps() const { return temp_ / "Applications"; }
    std::string library() const { return home() + "/Library"; }

    UninstallEngine engine() const {
        return UninstallEngine{context_, processes_, preferences_, verifier_, 300ms, 10ms};
    }
    Inventory scan() const {
        return target::InventoryBuilder{context_, verifier_, preferences_, "Tavio.app"}.build();
    }

    UninstallReport run(const Inventory& inventory, std::stop_source stop = {}) {
        return engine().run(
            inventory, [this](const UninstallEvent& event) { events_.push_back(describe(event)); },
            stop.get_token());
    }

    static std::string describe(const UninstallEvent& event) {
        switch (event.kind()) {
            case UninstallEvent::Kind::waitingForQuit:
                return "waitingForQuit";
            case UninstallEvent::Kind::removing:
                return "removing " + event.item()->id;
            case UninstallEvent::Kind::finished:
                break;
        }
        static const char* names[] = {"skipped", "failed", "removed", "alreadyAbsent",
                                      "linkRemoved"};
        return "finished " + event.item()->id + " " +
               names[static_cast<int>(event.outcome()->kind())];
    }

    InventoryItem itemWithId(const Inventory& inventory, const std::string& prefix) const {
        for (const InventoryItem& item : inventory.items) {
            if (item.id.rfind(prefix, 0) == 0) {
                return item;
            }
        }
        throw std::runtime_error("no item " + prefix);
    }

    TempDir temp_;
    target::UninstallContext context_;
    std::shared_ptr<FakeProcesses> processes_ = std::make_shared<FakeProcesses>();
    std::shared_ptr<FakePreferences> preferences_ = std::make_shared<FakePreferences>();
    std::shared_ptr<FakeVerifier> verifier_ = std::make_shared<FakeVerifier>();
    std::vector<std::string> events_;
};

TEST_F(EngineTest, EmptyInventoryWithTavioNotRunningCompletesWithNoResults) {
    const UninstallReport report = run(Inventory{{}, "alice"});
    EXPECT_EQ(report, (UninstallReport{UninstallOutcome::completed, {}}));
    EXPECT_TRUE(events_.empty());
}

TEST_F(EngineTest, EmptyInventoryStillReportsWhatTheFinalCheckFinds) {
    makeDirectories(library() + "/Caches/" + kId);
    const UninstallReport report = run(Inventory{{}, "alice"});
    EXPECT_EQ(report.outcome, UninstallOutcome::incomplete);
    ASSERT_EQ(report.results.size(), 1u);
    EXPECT_EQ(report.results[0].item.id, "tree:" + library() + "/Caches/" + kId);
    EXPECT_EQ(report.results[0].outcome,
              ItemOutcome::failed({{library() + "/Caches/" + kId, RemovalReason::reappeared()}}));
    EXPECT_TRUE(events_.empty()) << "the final check sends no events";
}

TEST_F(EngineTest, TavioNotRunningAtTheStartMeansNoWaitAndNoQuitRequest) {
    makeDirectories(library() + "/Logs/" + kId);
    const UninstallReport report = run(scan());
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    EXPECT_EQ(processes_->requestQuitCalls(), 0);
    EXPECT_EQ(std::count(events_.begin(), events_.end(), "waitingForQuit"), 0);
}

TEST_F(EngineTest, EveryItemGetsRemovingThenFinishedInInventoryOrder) {
    makeDirectories(library() + "/Logs/" + kId);
    const Inventory inventory = scan();
    (void)run(inventory);
    std::vector<std::string> expected;
    for (const InventoryItem& item : inventory.items) {
        expected.push_back("removing " + item.id);
        expected.push_back("finished " + item.id +
                           (item.state == ItemState::present() ? " removed" : " alreadyAbsent"));
    }
    EXPECT_EQ(events_, expected);
}

TEST_F(EngineTest, TavioThatNeverQuitsGivesDidNotQuitAfterTheTimeoutAndTouchesNothing) {
    processes_ = std::make_shared<FakeProcesses>(std::vector<bool>{true});
    makeDirectories(library() + "/Logs/" + kId);
    const UninstallReport report = run(scan());
    EXPECT_EQ(report, (UninstallReport{UninstallOutcome::didNotQuit, {}}));
    EXPECT_EQ(events_, std::vector<std::string>{"waitingForQuit"});
    EXPECT_EQ(processes_->requestQuitCalls(), 1);
    // 300 ms at a 10 ms poll: about 30 checks (one at once, then one per poll).
    EXPECT_GE(processes_->isRunningCalls(), 15);
    EXPECT_LE(processes_->isRunningCalls(), 33);
    EXPECT_TRUE(testsupport::isDirectory(library() + "/Logs/" + kId));
}

TEST_F(EngineTest, TavioThatQuitsWithinTheWaitIsAskedOnceAndThenEverythingGoes) {
    processes_ = std::make_shared<FakeProcesses>(std::vector<bool>{true, true, true, false});
    makeDirectories(library() + "/Logs/" + kId);
    const UninstallReport report = run(scan());
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    EXPECT_EQ(events_.front(), "waitingForQuit");
    EXPECT_EQ(processes_->requestQuitCalls(), 1);
    EXPECT_FALSE(testsupport::exists(library() + "/Logs/" + kId));
}

TEST_F(EngineTest, FirstCheckComesStraightAfterTheQuitRequest) {
    processes_ = std::make_shared<FakeProcesses>(std::vector<bool>{true, false});
    auto engineWithLongPoll = engine();
    engineWithLongPoll.pollInterval = 60s;
    const auto start = std::chrono::steady_clock::now();
    const UninstallReport report = engineWithLongPoll.run(scan(), [](const UninstallEvent&) {});
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s) << "it slept before the first check";
}

TEST_F(EngineTest, CancelledDuringTheWaitGivesCancelledAndChangesNothing) {
    processes_ = std::make_shared<FakeProcesses>(std::vector<bool>{true});
    std::stop_source stop;
    processes_->onIsRunning([&stop](int call) {
        if (call == 3) {
            stop.request_stop();
        }
    });
    makeDirectories(library() + "/Logs/" + kId);
    const UninstallReport report = run(scan(), stop);
    EXPECT_EQ(report, (UninstallReport{UninstallOutcome::cancelled, {}}));
    EXPECT_EQ(events_, std::vector<std::string>{"waitingForQuit"});
    EXPECT_TRUE(testsupport::isDirectory(library() + "/Logs/" + kId));
}

TEST_F(EngineTest, TavioQuittingAfterTheRunWasCancelledStillGivesCancelled) {
    processes_ = std::make_shared<FakeProcesses>(std::vector<bool>{true, false});
    std::stop_source stop;
    processes_->onRequestQuit([&stop] { stop.request_stop(); });
    makeDirectories(library() + "/Logs/" + kId);
    const UninstallReport report = run(scan(), stop);
    EXPECT_EQ(report, (UninstallReport{UninstallOutcome::cancelled, {}}));
    EXPECT_TRUE(testsupport::isDirectory(library() + "/Logs/" + kId));
}

TEST_F(EngineTest, StopRequestedBeforeTheRunWithTavioNotRunningGivesCancelled) {
    std::stop_source stop;
    stop.request_stop();
    makeDirectories(library() + "/Logs/" + kId);
    EXPECT_EQ(run(scan(), stop), (UninstallReport{UninstallOutcome::cancelled, {}}));
    EXPECT_TRUE(events_.empty());
}

TEST_F(EngineTest, StopRequestedAfterTheFirstItemBeganIsIgnored) {
    makeDirectories(library() + "/Logs/" + kId);
    std::stop_source stop;
    const UninstallReport report = engine().run(
        scan(),
        [&](const UninstallEvent& event) {
            stop.request_stop();
            events_.push_back(describe(event));
        },
        stop.get_token());
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    EXPECT_EQ(report.results.size(), 10u);
    EXPECT_FALSE(testsupport::exists(library() + "/Logs/" + kId));
}

TEST_F(EngineTest, PollSleepEndsEarlyOnAStopRequest) {
    processes_ = std::make_shared<FakeProcesses>(std::vector<bool>{true});
    auto slow = engine();
    slow.pollInterval = 60s;
    slow.quitTimeout = 600s;
    std::stop_source stop;
    std::thread stopper([&stop] {
        std::this_thread::sleep_for(100ms);
        stop.request_stop();
    });
    const auto start = std::chrono::steady_clock::now();
    const UninstallReport report = slow.run(
        scan(), [](const UninstallEvent&) {}, stop.get_token());
    stopper.join();
    EXPECT_EQ(report.outcome, UninstallOutcome::cancelled);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
}

TEST_F(EngineTest, SkippedItemIsReportedSkippedAndMakesTheRunIncomplete) {
    const InventoryItem skipped{"tree:/x",
                                target::ItemCategory::cache,
                                target::ItemTarget::tree(library(), {"Caches", kId}, true),
                                "/x",
                                "/x",
                                ItemState::skipped("x")};
    const UninstallReport report = run(Inventory{{skipped}, "alice"});
    EXPECT_EQ(events_, (std::vector<std::string>{"removing tree:/x", "finished tree:/x skipped"}));
    EXPECT_EQ(report.outcome, UninstallOutcome::incomplete);
    EXPECT_EQ(report.results[0].outcome, ItemOutcome::skipped("x"));
}

TEST_F(EngineTest, DomainWithoutValuesIsAlreadyAbsentAndNotCleared) {
    const UninstallReport report = run(scan());
    EXPECT_EQ(report.results[0].outcome, ItemOutcome::alreadyAbsent());
    for (const std::string& call : preferences_->calls()) {
        EXPECT_EQ(call.rfind("removeAll", 0), std::string::npos) << call;
    }
}

TEST_F(EngineTest, DomainWithValuesIsClearedAndRemoved) {
    preferences_->setValues(kId, true);
    const UninstallReport report = run(scan());
    EXPECT_EQ(report.results[0].outcome, ItemOutcome::removed());
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    EXPECT_FALSE(preferences_->hasValues(kId));
}

TEST_F(EngineTest, DomainThatKeepsItsValuesIsReportedAsReappearedAfterItsEventSaidRemoved) {
    preferences_->setValues(kId, true);
    preferences_->keepValuesOnRemove();
    const UninstallReport report = run(scan());
    EXPECT_EQ(events_[1], std::string("finished prefs:") + kId + " removed");
    EXPECT_EQ(report.results[0].outcome, ItemOutcome::failed({{kId, RemovalReason::reappeared()}}));
    EXPECT_EQ(report.outcome, UninstallOutcome::incomplete);
}

TEST_F(EngineTest, PresentAppBundleWithoutIdentityFailsAndIsNotTouched) {
    makeDirectories(apps() + "/Tavio.app/Contents");
    const std::string path = apps() + "/Tavio.app";
    const InventoryItem app{"app:" + path,
                            target::ItemCategory::app,
                            target::ItemTarget::appBundle(apps(), "Tavio.app", std::nullopt),
                            path,
                            path,
                            ItemState::present()};
    const UninstallReport report = run(Inventory{{app}, "alice"});
    EXPECT_EQ(report.results[0].outcome,
              ItemOutcome::failed({{path, RemovalReason::changedSinceVerification()}}));
    EXPECT_TRUE(testsupport::isDirectory(path + "/Contents"));
}

TEST_F(EngineTest, AppBundleIsVerifiedAgainJustBeforeItGoes) {
    makeDirectories(apps() + "/Tavio.app/Contents");
    const Inventory inventory = scan();
    const std::string path = apps() + "/Tavio.app";
    verifier_->refuse(path, target::AppVerificationProblem::invalidSignature());
    const UninstallReport report = run(inventory);
    const auto expected = ItemOutcome::failed(
        {{path, RemovalReason::other(
                    "Skipped: not a verified Tavio app (the code signature is not valid)")}});
    EXPECT_EQ(report.results[9].outcome, expected);
    EXPECT_TRUE(testsupport::isDirectory(path + "/Contents"));
}

TEST_F(EngineTest, VerifiedAppBundleIsRemoved) {
    makeDirectories(apps() + "/Tavio.app/Contents/MacOS");
    const UninstallReport report = run(scan());
    EXPECT_EQ(report.results[9].outcome, ItemOutcome::removed());
    EXPECT_FALSE(testsupport::exists(apps() + "/Tavio.app"));
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
}

TEST_F(EngineTest, AppBundleReplacedAfterTheReviewIsRefused) {
    makeDirectories(apps() + "/Tavio.app/Contents");
    const Inventory inventory = scan();
    ASSERT_EQ(std::rename((apps() + "/Tavio.app").c_str(), (temp_ / "Moved.app").c_str()), 0);
    makeDirectories(apps() + "/Tavio.app/Contents");
    writeFile(apps() + "/Tavio.app/Contents/keep", "k");
    const UninstallReport report = run(inventory);
    EXPECT_EQ(report.results[9].outcome.failures()[0].reason,
              RemovalReason::changedSinceVerification());
    EXPECT_EQ(readFile(apps() + "/Tavio.app/Contents/keep"), "k");
}

TEST_F(EngineTest, AppBundleGoneSinceTheReviewIsAlreadyAbsent) {
    makeDirectories(apps() + "/Tavio.app/Contents");
    const Inventory inventory = scan();
    removeAll(apps() + "/Tavio.app");
    EXPECT_EQ(run(inventory).results[9].outcome, ItemOutcome::alreadyAbsent());
}

TEST_F(EngineTest, AppFolderRefusedAtRemovalFailsWithTheWalksReason) {
    makeDirectories(apps() + "/Tavio.app/Contents");
    const Inventory inventory = scan();
    ASSERT_EQ(std::rename(apps().c_str(), (temp_ / "real-apps").c_str()), 0);
    makeLink(temp_ / "real-apps", apps());
    const UninstallReport report = run(inventory);
    EXPECT_EQ(report.results[9].outcome,
              ItemOutcome::failed({{apps() + "/Tavio.app", RemovalReason::symbolicLinkInPath()}}));
    EXPECT_TRUE(testsupport::isDirectory(temp_ / "real-apps/Tavio.app/Contents"));
}

// Every item that was there failed with `reason` and was left in place; every
// absent one stayed absent.
void expectEveryItemThereLeftWith(const UninstallReport& report, const RemovalReason& reason) {
    for (const auto& result : report.results) {
        if (result.item.state == ItemState::absent()) {
            EXPECT_EQ(result.outcome, ItemOutcome::alreadyAbsent()) << result.item.id;
        } else {
            EXPECT_EQ(result.outcome, ItemOutcome::failed({{result.item.path, reason}}))
                << result.item.id;
        }
    }
}

TEST_F(EngineTest, TavioStartedAgainLeavesTheRemainingItemsInPlace) {
    // Not running at the start; running again from the first item on.
    processes_ = std::make_shared<FakeProcesses>(std::vector<bool>{false, true});
    makeDirectories(library() + "/Logs/" + kId);
    preferences_->setValues(kId, true);
    const Inventory inventory = scan();
    const UninstallReport report = run(inventory);
    EXPECT_EQ(report.outcome, UninstallOutcome::incomplete);
    expectEveryItemThereLeftWith(report, RemovalReason::applicationRunning());
    EXPECT_TRUE(testsupport::isDirectory(library() + "/Logs/" + kId));
    EXPECT_TRUE(preferences_->hasValues(kId));
}

// The look for Tavio before each item fails (the process table cannot be
// read): nothing is touched, and the reason says that it could not be
// checked, not that Tavio runs.
TEST_F(EngineTest, ALookThatCannotTellBeforeAnItemLeavesItWithItsOwnReason) {
    auto processes = std::make_shared<FakeProcesses>(std::vector<bool>{false, true});
    processes->answerCannotTell();
    processes_ = processes;
    makeDirectories(library() + "/Logs/" + kId);
    const Inventory inventory = scan();
    const UninstallReport report = run(inventory);
    EXPECT_EQ(report.outcome, UninstallOutcome::incomplete);
    expectEveryItemThereLeftWith(report, RemovalReason::runningNotChecked());
    EXPECT_TRUE(testsupport::isDirectory(library() + "/Logs/" + kId));
}

TEST_F(EngineTest, WhileTavioRunsAnInventoriedDomainIsNeverTakenForGone) {
    processes_ = std::make_shared<FakeProcesses>(std::vector<bool>{false, true});
    Inventory inventory = scan();
    inventory.items[0].state = ItemState::present();  // values when scanned, none now
    const UninstallReport report = run(inventory);
    EXPECT_EQ(report.results[0].outcome,
              ItemOutcome::failed({{kId, RemovalReason::applicationRunning()}}));
    // A domain that was absent when scanned, and still has no values, is gone.
    processes_ = std::make_shared<FakeProcesses>(std::vector<bool>{false, true});
    const UninstallReport second = run(scan());
    ASSERT_EQ(second.results.size(), 10u);
    EXPECT_EQ(second.results[0].outcome, ItemOutcome::alreadyAbsent());
}

TEST_F(EngineTest, FinalCheckNeverChangesARowThatAlreadyFailed) {
    preferences_->setValues(kId, true);
    preferences_->keepValuesOnRemove();
    Inventory inventory = scan();
    inventory.items[0].state = ItemState::skipped("kept on purpose");
    const UninstallReport report = run(inventory);
    EXPECT_EQ(report.results[0].outcome, ItemOutcome::skipped("kept on purpose"));
}

TEST_F(EngineTest, FinalCheckAddsLocationsTheRunNeverSawOncePerId) {
    // The run was given only the preferences row; the logs folder appears.
    Inventory inventory = scan();
    inventory.items.erase(inventory.items.begin() + 1, inventory.items.end());
    makeDirectories(library() + "/Logs/" + kId);
    const UninstallReport report = run(inventory);
    ASSERT_EQ(report.results.size(), 2u);
    EXPECT_EQ(report.results[1].item.id, "tree:" + library() + "/Logs/" + kId);
    EXPECT_EQ(report.results[1].item.state, ItemState::present());
    EXPECT_EQ(report.results[1].outcome,
              ItemOutcome::failed({{library() + "/Logs/" + kId, RemovalReason::reappeared()}}));
}

TEST_F(EngineTest, FinalCheckTurnsADoneRowFoundSkippedIntoAFailureWithItsText) {
    const Inventory inventory = scan();
    const std::string caches = library() + "/Caches/" + kId;
    // Right after the caches row was done with, the Caches folder becomes a link.
    const UninstallReport report = engine().run(inventory, [&](const UninstallEvent& event) {
        if (event.kind() == UninstallEvent::Kind::finished && event.item()->path == caches) {
            makeDirectories(temp_ / "elsewhere/" + kId);
            makeDirectories(library());
            makeLink(temp_ / "elsewhere", library() + "/Caches");
        }
    });
    EXPECT_EQ(report.results[5].outcome,
              ItemOutcome::failed(
                  {{caches, RemovalReason::other("A symbolic link in the path was refused")}}));
    EXPECT_EQ(report.outcome, UninstallOutcome::incomplete);
    EXPECT_TRUE(testsupport::isDirectory(temp_ / "elsewhere/" + kId));
}

}  // namespace
