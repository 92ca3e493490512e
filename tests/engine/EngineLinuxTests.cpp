// Whole runs of the engine with the real Linux adapters, a footprint planted
// by the footprint library in a temporary home, and the real quit-aware
// player started from the planted Tavio.app.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <thread>

#include "Canaries.h"
#include "ChildProcess.h"
#include "EngineLinuxFixture.h"
#include "FakeAdapters.h"
#include "Footprint.h"
#include "SpawnedProcess.h"
#include "TempDir.h"
#include "base/UniqueFd.h"
#include "engine/UninstallEngine.h"
#include "platform/InstalledAppVerifier.h"
#include "platform/WorkspaceProcessControl.h"
#include "platform/linux/FilePreferencesAccess.h"
#include "target/InventoryBuilder.h"

using engine::ItemOutcome;
using engine::UninstallEngine;
using engine::UninstallEvent;
using engine::UninstallOutcome;
using engine::UninstallReport;
using target::Inventory;
using target::ItemState;
using namespace testsupport;
using namespace std::chrono_literals;

namespace {

using enginetest::EngineLinuxTest;
using enginetest::kHostID;
using enginetest::kId;

TEST_F(EngineLinuxTest, TavioQuitsWithinTheWaitAndEverythingIsRemoved) {
    const UninstallEngine e = engine();
    const Inventory inventory = scan(e);
    ASSERT_EQ(inventory.removableItems().size(), 10u) << "every location and the app were planted";
    auto tavio = startPlayer({"--quit-delay-ms", "150"});
    const UninstallReport report =
        e.run(inventory, [this](const UninstallEvent& event) { recordEvents(event); });
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    ASSERT_FALSE(events_.empty());
    EXPECT_EQ(events_.front(), "waitingForQuit");
    EXPECT_EQ(events_.size(), 1 + 2 * inventory.items.size());
    for (const auto& result : report.results) {
        EXPECT_TRUE(result.outcome.isDone()) << result.item.id;
    }
    for (const auto& item : scan(e).items) {
        EXPECT_EQ(item.state, ItemState::absent()) << item.id;
    }
    EXPECT_FALSE(e.preferences->hasValues(kId));
    EXPECT_TRUE(tavio->waitForExit(5s).has_value());
    expectCanariesIntact();
}

TEST_F(EngineLinuxTest, TavioThatIgnoresTheQuitRequestMeansNothingChanges) {
    const UninstallEngine e = engine(800ms);
    const Inventory inventory = scan(e);
    const std::size_t entries = countEntries(temp_.path());
    auto tavio = startPlayer({"--ignore-quit"});
    const UninstallReport report =
        e.run(inventory, [this](const UninstallEvent& event) { recordEvents(event); });
    EXPECT_EQ(report, (UninstallReport{UninstallOutcome::didNotQuit, {}}));
    EXPECT_EQ(events_, std::vector<std::string>{"waitingForQuit"});
    EXPECT_EQ(tavio->linesBeforePing().value_or(std::vector<std::string>{}),
              std::vector<std::string>{"term"})
        << "asked to quit exactly once";
    EXPECT_EQ(countEntries(temp_.path()), entries);
    EXPECT_TRUE(e.preferences->hasValues(kId));
    EXPECT_EQ(scan(e), inventory);
    expectCanariesIntact();
}

TEST_F(EngineLinuxTest, CancelledDuringTheWaitChangesNothing) {
    const UninstallEngine e = engine(30s);
    const Inventory inventory = scan(e);
    const std::size_t entries = countEntries(temp_.path());
    auto tavio = startPlayer({"--ignore-quit"});
    std::stop_source stop;
    std::thread canceller([&stop] {
        std::this_thread::sleep_for(200ms);
        stop.request_stop();
    });
    const UninstallReport report = e.run(
        inventory, [](const UninstallEvent&) {}, stop.get_token());
    canceller.join();
    EXPECT_EQ(report, (UninstallReport{UninstallOutcome::cancelled, {}}));
    EXPECT_EQ(countEntries(temp_.path()), entries);
    EXPECT_EQ(scan(e), inventory);
}

TEST_F(EngineLinuxTest, CancelledAfterTheFirstItemBeganIsIgnored) {
    const UninstallEngine e = engine();
    std::stop_source stop;
    const UninstallReport report = e.run(
        scan(e), [&stop](const UninstallEvent&) { stop.request_stop(); }, stop.get_token());
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    for (const auto& item : scan(e).items) {
        EXPECT_EQ(item.state, ItemState::absent()) << item.id;
    }
    expectCanariesIntact();
}

TEST_F(EngineLinuxTest, TavioStartedAgainDuringRemovalLeavesTheRestInPlace) {
    const UninstallEngine e = engine();
    const Inventory inventory = scan(e);
    std::unique_ptr<SpawnedProcess> tavio;
    const UninstallReport report = e.run(inventory, [&](const UninstallEvent& event) {
        if (!tavio && event.kind() == UninstallEvent::Kind::removing) {
            tavio = startPlayer({});
        }
    });
    EXPECT_EQ(report.outcome, UninstallOutcome::incomplete);
    for (const auto& result : report.results) {
        ASSERT_EQ(result.outcome.kind(), ItemOutcome::Kind::failed) << result.item.id;
        EXPECT_EQ(result.outcome.failures()[0].reason.explanation(), "Tavio is still running");
    }
    EXPECT_EQ(scan(e), inventory);
    expectCanariesIntact();
}

TEST_F(EngineLinuxTest, FileRecreatedAfterRemovalIsReportedAsCreatedAgain) {
    const UninstallEngine e = engine();
    const Inventory inventory = scan(e);
    const std::string caches = home() + "/Library/Caches/" + kId;
    std::string finishedAs;
    // A background writer that puts a cache file back as soon as the cache
    // folder is gone, as a player helper left running might.
    const UninstallReport report = e.run(inventory, [&](const UninstallEvent& event) {
        if (event.kind() == UninstallEvent::Kind::finished && event.item()->path == caches) {
            finishedAs = event.outcome()->kind() == ItemOutcome::Kind::removed ? "removed" : "?";
            std::thread writer([&] {
                makeDirectories(caches);
                writeFile(caches + "/thumbnail.jpg", "again");
            });
            writer.join();
        }
    });
    EXPECT_EQ(finishedAs, "removed");
    EXPECT_EQ(report.outcome, UninstallOutcome::incomplete);
    const auto remaining = report.remaining();
    ASSERT_EQ(remaining.size(), 1u);
    EXPECT_EQ(remaining[0].path, caches);
    EXPECT_EQ(remaining[0].reason, "It was created again after removal");
}

// What a preferences rewrite killed before its rename left beside the file
// holds the product's settings. While a rewrite that still runs holds it
// (another copy of the program, say), the run cannot complete and says that
// the settings remain; once nothing holds it, the next run removes it and
// completes.
TEST_F(EngineLinuxTest, LeftoverOfAKilledPreferencesRewriteIsRemovedOnceNoRewriteHoldsIt) {
    const std::string leftover =
        home() + "/Library/Preferences/." + kId + ".plist.uninstall-tavio-k3x9a7q0";
    writeFile(leftover, "<?xml version=\"1.0\"?><plist><dict/></plist>");
    const UninstallEngine e = engine();
    {
        const base::UniqueFd held(::open(leftover.c_str(), O_RDONLY | O_CLOEXEC));
        ASSERT_EQ(::flock(held.get(), LOCK_EX | LOCK_NB), 0);

        const UninstallReport first = e.run(scan(e), [](const UninstallEvent&) {});

        EXPECT_EQ(first.outcome, UninstallOutcome::incomplete);
        const auto remaining = first.remaining();
        ASSERT_EQ(remaining.size(), 1u);
        EXPECT_EQ(remaining[0].path, kId);
        EXPECT_TRUE(exists(leftover));
    }
    const Inventory again = scan(e);
    const UninstallReport second = e.run(again, [](const UninstallEvent&) {});

    EXPECT_EQ(second.outcome, UninstallOutcome::completed);
    EXPECT_FALSE(exists(leftover));
    EXPECT_FALSE(e.preferences->hasValues(kId));
    expectCanariesIntact();
}

TEST_F(EngineLinuxTest, FileTheUserMayNotDeleteIsTheOnlyThingThatRemains) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to prepare files owned by two users";
    }
    constexpr uid_t kUser = 65534;
    const std::string logs = home() + "/Library/Logs/" + kId;
    makeDirectories(logs + "/locked");
    writeFile(logs + "/locked/session.log", "root's");
    // Everything is the user's but the locked folder, which stays root's.
    const auto answer = runInChild([&]() -> std::string {
        if (std::system(("chown -R 65534:65534 '" + temp_.path() + "' && chown 0:0 '" + logs +
                         "/locked' '" + logs + "/locked/session.log'")
                            .c_str()) != 0) {
            return "chown failed";
        }
        if (::setgroups(0, nullptr) != 0 || ::setgid(kUser) != 0 || ::setuid(kUser) != 0) {
            return "cannot drop privileges";
        }
        const UninstallEngine e = engine(10s, kUser);
        const UninstallReport report = e.run(scan(e), [](const UninstallEvent&) {});
        std::string text = report.outcome == UninstallOutcome::incomplete ? "incomplete" : "other";
        for (const auto& path : report.remaining()) {
            text += "\n" + path.path + ": " + path.reason;
        }
        return text;
    });
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(*answer, "incomplete\n" + logs + "/locked/session.log: Permission denied");
    EXPECT_EQ(readFile(logs + "/locked/session.log"), "root's");
    EXPECT_FALSE(exists(home() + "/Library/Caches/" + kId));
    EXPECT_FALSE(exists(apps() + "/Tavio.app"));
    expectCanariesIntact();
}

// An account whose home is the root folder: its own Applications folder is
// the system's. The footprint is planted in a folder that becomes the root
// of a child's view (chroot, in a user and mount namespace of its own), so
// the copy is found at /Applications once, and removed once.
TEST_F(EngineLinuxTest, HomeThatIsTheRootFolderGivesOneRowPerFolderAndRemovalCompletes) {
    const std::string root = temp_ / "root";
    footprint::FootprintOptions options;
    options.home = root;
    options.applications = root + "/Applications";
    options.playerPath = TAVIO_PLAYER_PATH;
    options.hostID = kHostID;
    options.identifier = kId;
    options.appSizeMB = 1;
    ASSERT_TRUE(
        std::holds_alternative<footprint::PlantedFootprint>(footprint::plantFootprint(options)));
    const auto answer = runInChild([&]() -> std::string {
        if (const std::string why = enterPrivateMountNamespace(); !why.empty()) {
            return why;
        }
        if (::chroot(root.c_str()) != 0 || ::chdir("/") != 0) {
            return "cannot change the root folder";
        }
        const auto context = target::UninstallContext::make(::getuid(), {"/", "root"}, kId);
        const UninstallEngine e{
            context,
            std::make_shared<FakeProcesses>(),
            std::make_shared<platform::FilePreferencesAccess>(
                "/", std::vector<platform::PreferencesHost>{platform::PreferencesHost::anyHost},
                kHostID, ::getuid()),
            std::make_shared<platform::InstalledAppVerifier>(),
            1s,
            50ms};
        const Inventory inventory = scan(e);
        std::set<std::string> ids;
        std::string text;
        for (const auto& item : inventory.itemsIn(target::ItemCategory::app)) {
            text += item.path + (item.state == ItemState::present() ? " present\n" : " other\n");
        }
        for (const auto& item : inventory.items) {
            ids.insert(item.id);
        }
        text += ids.size() == inventory.items.size() ? "ids unique\n" : "ids repeated\n";
        const UninstallReport report = e.run(inventory, [](const UninstallEvent&) {});
        text += report.outcome == UninstallOutcome::completed ? "completed" : "not completed";
        const auto rescan = scan(e).items;
        const bool allGone = std::all_of(rescan.begin(), rescan.end(), [](const auto& item) {
            return item.state == ItemState::absent();
        });
        return text + (allGone ? ", nothing left" : ", something left");
    });
    EXPECT_EQ(answer.value_or("child died"),
              "/Applications/Tavio.app present\nids unique\ncompleted, nothing left");
}

}  // namespace
