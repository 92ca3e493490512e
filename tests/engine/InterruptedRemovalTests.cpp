// What the next run makes of a copy of the app whose removal was cut off:
// the real verifier, the real records and a planted, sealed copy in a
// temporary home. A cut is made as a run makes it: the copy is written down
// exactly as the engine does before its first deletion, and then part of it
// is deleted, so that it no longer verifies.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "EngineLinuxFixture.h"
#include "base/UniqueFd.h"
#include "removal/RemovalReason.h"
#include "target/BundleManifest.h"
#include "target/RemovalRecords.h"

using engine::UninstallEngine;
using engine::UninstallEvent;
using engine::UninstallOutcome;
using engine::UninstallReport;
using removal::RemovalReason;
using target::Inventory;
using target::ItemState;
using target::RemovalRecord;
using target::RemovalRecords;
using namespace testsupport;

namespace {

class InterruptedRemovalTest : public enginetest::EngineLinuxTest {
  protected:
    std::string app() const { return apps() + "/Tavio.app"; }
    std::string records() const { return home() + "/.local/state/io.tavio.Tavio.Uninstaller"; }
    RemovalRecords recordsOfTheUser() const { return RemovalRecords::forUser(context()); }

    // The record of the copy at `path` as it is now, as a run writes it
    // just before the copy's first file goes.
    RemovalRecord describe(const std::string& path) const {
        const base::UniqueFd folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
        struct stat status {};
        if (!folder || ::fstat(folder.get(), &status) != 0) {
            throw std::runtime_error("cannot open " + path);
        }
        auto manifest = target::BundleManifest::of(folder.get());
        if (!manifest) {
            throw std::runtime_error("no manifest of " + path);
        }
        const std::filesystem::path place(path);
        return {enginetest::kId,  place.parent_path(),
                place.filename(), {status.st_dev, status.st_ino},
                status.st_uid,    std::move(*manifest)};
    }

    std::string writeRecord(const RemovalRecord& record) const {
        const auto written = recordsOfTheUser().write(record);
        if (!std::holds_alternative<std::string>(written)) {
            throw std::runtime_error("the record was not written: errno " +
                                     std::to_string(std::get<int>(written)));
        }
        return records() + "/" + std::get<std::string>(written);
    }

    // A run that wrote its record and deleted the executable and the icon
    // before it was cut off.
    void cutOff() {
        writeRecord(describe(app()));
        ASSERT_EQ(::unlink(player().c_str()), 0);
        ASSERT_EQ(::unlink((app() + "/Contents/Resources/Tavio.icns").c_str()), 0);
    }

    const target::InventoryItem& appItem(const Inventory& inventory) const {
        for (const auto& item : inventory.items) {
            if (item.path == app()) {
                return item;
            }
        }
        throw std::runtime_error("no item for " + app());
    }

    UninstallReport runOnce() {
        const UninstallEngine e = engine();
        return e.run(scan(e), [](const UninstallEvent&) {});
    }

    // Every entry below `root` by its relative path: its type and mode, owner,
    // inode and bytes (a link: its target), to prove that a tree was left
    // exactly.
    static std::map<std::string, std::string> contentsOf(const std::string& root) {
        std::map<std::string, std::string> contents;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            const std::string path = entry.path();
            struct stat status {};
            if (::lstat(path.c_str(), &status) != 0) {
                throw std::runtime_error("cannot look at " + path);
            }
            std::string what = std::to_string(status.st_mode) + " " +
                               std::to_string(status.st_uid) + " " + std::to_string(status.st_ino) +
                               " ";
            if (S_ISLNK(status.st_mode)) {
                what += std::filesystem::read_symlink(path).string();
            } else if (S_ISREG(status.st_mode)) {
                what += readFile(path);
            }
            contents[path.substr(root.size())] = what;
        }
        return contents;
    }
};

TEST_F(InterruptedRemovalTest, CopyCutOffMidwayIsListedAsTheAppItWasAndFinished) {
    cutOff();
    const UninstallEngine e = engine();
    const Inventory inventory = scan(e);
    const auto& item = appItem(inventory);
    EXPECT_EQ(item.category, target::ItemCategory::app);
    EXPECT_EQ(item.state, ItemState::present(target::interruptedRemovalNote()));
    EXPECT_EQ(item.state.reason(), "An earlier removal of this copy was interrupted");

    const UninstallReport report = e.run(inventory, [](const UninstallEvent&) {});

    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    EXPECT_FALSE(exists(app()));
    EXPECT_FALSE(exists(home() + "/.local")) << "the records and their folders went with the copy";
    for (const auto& each : scan(e).items) {
        EXPECT_EQ(each.state, ItemState::absent()) << each.id;
    }
    expectCanariesIntact();
}

// A file put into the remainder after it was verified, and one whose bytes
// changed, are not what the record vouches for: both stay, with the folders
// that hold them, and the report says why. Everything else goes.
TEST_F(InterruptedRemovalTest, FilesAddedOrChangedSinceTheCopyWasVerifiedStayWithTheirFolders) {
    cutOff();
    const std::string added = app() + "/Contents/Resources/en.lproj/my notes.txt";
    const std::string changed = app() + "/Contents/Info.plist";
    writeFile(added, "the user's own words");
    const std::string changedBytes = readFile(changed) + "<!-- edited -->";
    writeFile(changed, changedBytes);

    const UninstallReport report = runOnce();

    EXPECT_EQ(report.outcome, UninstallOutcome::incomplete);
    std::map<std::string, std::string> remaining;
    for (const auto& failure : report.remaining()) {
        remaining[failure.path] = failure.reason;
    }
    const std::string why = "added or changed after the app was verified";
    EXPECT_EQ(remaining, (std::map<std::string, std::string>{{added, why}, {changed, why}}));
    EXPECT_EQ(RemovalReason::notVerifiedBefore().explanation(), why);
    EXPECT_EQ(readFile(added), "the user's own words");
    EXPECT_EQ(readFile(changed), changedBytes);
    EXPECT_EQ(listNames(app()), std::vector<std::string>{"Contents"});
    EXPECT_EQ(listNames(app() + "/Contents"),
              (std::vector<std::string>{"Info.plist", "Resources"}));
    EXPECT_EQ(listNames(app() + "/Contents/Resources"), std::vector<std::string>{"en.lproj"});
    EXPECT_EQ(listNames(app() + "/Contents/Resources/en.lproj"),
              std::vector<std::string>{"my notes.txt"});
    expectCanariesIntact();
}

// What stays is still the recorded folder: the next run lists it again and
// leaves the same two files, with the same reason, for as long as they are
// there.
TEST_F(InterruptedRemovalTest, WhatAChangedRemainderKeepsIsKeptByEveryLaterRunToo) {
    cutOff();
    const std::string added = app() + "/Contents/MacOS/helper";
    writeFile(added, "#!/bin/sh\n", 0755);
    const UninstallReport first = runOnce();
    ASSERT_EQ(first.remaining().size(), 1u);

    const UninstallEngine e = engine();
    const Inventory again = scan(e);
    EXPECT_EQ(appItem(again).state, ItemState::present(target::interruptedRemovalNote()));
    const UninstallReport second = e.run(again, [](const UninstallEvent&) {});

    EXPECT_EQ(second.outcome, UninstallOutcome::incomplete);
    ASSERT_EQ(second.remaining().size(), 1u);
    EXPECT_EQ(second.remaining()[0].path, added);
    EXPECT_EQ(second.remaining()[0].reason, RemovalReason::notVerifiedBefore().explanation());
    EXPECT_EQ(readFile(added), "#!/bin/sh\n");
}

// The recorded copy moved away and another folder put in its place, holding
// the user's files: the record does not vouch for it, so it is refused and
// kept byte for byte, and the record, which describes nothing any more, goes.
TEST_F(InterruptedRemovalTest, RecordOfASwappedFolderRefusesTheFolderThereNow) {
    cutOff();
    ASSERT_EQ(::rename(app().c_str(), (temp_ / "moved away.app").c_str()), 0);
    makeDirectories(app() + "/Contents/MacOS");
    writeFile(app() + "/Contents/Info.plist",
              readFile(temp_ / "moved away.app/Contents/Info.plist"));
    writeFile(app() + "/Contents/MacOS/letter.txt", "Dear Tavio");
    const auto before = contentsOf(app());
    const UninstallEngine e = engine();
    const Inventory inventory = scan(e);
    EXPECT_EQ(appItem(inventory).state,
              ItemState::skipped("Skipped: not the copy that an interrupted removal had verified"));

    const UninstallReport report = e.run(inventory, [](const UninstallEvent&) {});

    EXPECT_TRUE(contentsOf(app()) == before) << "the folder there now was touched";
    EXPECT_TRUE(recordsOfTheUser().all().empty());
    EXPECT_FALSE(exists(home() + "/.local"));
    EXPECT_NE(appItem(scan(e)).state.kind(), ItemState::Kind::present)
        << "without its record, the folder is judged by the verifier alone";
    expectCanariesIntact();
}

// Without a record the program made, a copy that no longer verifies is not
// Tavio's to remove, whatever lies in the records' folder: a record another
// user owns, one others may read, one with a second name, or one that does
// not parse. None is evidence, and none is touched.
TEST_F(InterruptedRemovalTest, RecordsTheProgramDidNotMakeAreNoEvidenceAndAreLeftAlone) {
    const std::string good = writeRecord(describe(app()));
    const std::string bytes = readFile(good);
    ASSERT_EQ(::unlink(good.c_str()), 0);
    ASSERT_EQ(::unlink(player().c_str()), 0);
    const std::string planted[] = {records() + "/removal-0000000000000001.plist",
                                   records() + "/removal-0000000000000002.plist",
                                   records() + "/removal-0000000000000003.plist",
                                   records() + "/removal-0000000000000004.plist"};
    writeFile(planted[0], bytes, 0600);
    ASSERT_EQ(::chown(planted[0].c_str(), 65534, 65534), 0);
    writeFile(planted[1], bytes, 0644);
    writeFile(planted[2], bytes, 0600);
    ASSERT_EQ(::link(planted[2].c_str(), (temp_ / "second name").c_str()), 0);
    writeFile(planted[3], bytes.substr(0, bytes.size() / 2), 0600);
    const auto appBefore = contentsOf(app());
    const auto recordsBefore = contentsOf(records());
    const UninstallEngine e = engine();
    const Inventory inventory = scan(e);
    EXPECT_EQ(appItem(inventory).state.kind(), ItemState::Kind::skipped);
    EXPECT_NE(appItem(inventory).state,
              ItemState::skipped("Skipped: not the copy that an interrupted removal had verified"));

    const UninstallReport report = e.run(inventory, [](const UninstallEvent&) {});

    EXPECT_TRUE(contentsOf(app()) == appBefore) << "the copy was touched";
    EXPECT_TRUE(contentsOf(records()) == recordsBefore) << "a record was touched";
    EXPECT_EQ(readFile(temp_ / "second name"), bytes);
    expectCanariesIntact();
}

// Folders under the names the program gives its own folders while it makes
// or retires them, that it did not make: one holding the user's files, one
// shaped like a chain of its own with a file more, and one like a retired
// records' folder with a file more. A run that writes a record, finishes and
// tidies up leaves every one of them byte for byte.
TEST_F(InterruptedRemovalTest, FoldersUnderTheProgramsReservedNamesThatItDidNotMakeAreKept) {
    const std::string prefix = home() + "/.io.tavio.Tavio.Uninstaller-";
    makeDirectories(prefix + "photos.tmp");
    makeDirectories(prefix + "0p2m5z8b.tmp");
    writeFile(prefix + "photos.tmp/holiday.jpg", "\xff\xd8 a photo");
    const std::string chain = prefix + "k3x9a7q0.tmp/state/io.tavio.Tavio.Uninstaller";
    makeDirectories(chain);
    writeFile(chain + "/created-folders", ".local/state\n.local\n", 0600);
    writeFile(chain + "/diary.txt", "mine");
    writeFile(prefix + "0p2m5z8b.tmp/created-folders", ".local/state\n.local\n", 0600);
    writeFile(prefix + "0p2m5z8b.tmp/notes.txt", "also mine");
    const auto before = contentsOf(home());

    const UninstallReport report = runOnce();

    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    EXPECT_FALSE(exists(app()));
    auto after = contentsOf(home());
    std::erase_if(after, [](const auto& entry) { return !entry.first.starts_with("/.io."); });
    auto kept = before;
    std::erase_if(kept, [](const auto& entry) { return !entry.first.starts_with("/.io."); });
    EXPECT_TRUE(after == kept) << "a folder under a reserved name was changed";
    EXPECT_EQ(kept.size(), 10u);
    EXPECT_FALSE(exists(home() + "/.local")) << "the program's own folders went as usual";
}

// A record of a copy that is gone vouches for nothing: the run after drops
// it, and the folders it made for records with it.
TEST_F(InterruptedRemovalTest, RecordOfACopyThatIsGoneIsDroppedAndLeavesNoTrace) {
    cutOff();
    removeAll(app());
    const UninstallReport report = runOnce();
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    EXPECT_FALSE(exists(home() + "/.local"));
}

// A home that already had ~/.local/state keeps it, and whatever else is in
// it; only the records' folder goes.
TEST_F(InterruptedRemovalTest, FoldersThatWereThereBeforeStayWhenTheRecordsGo) {
    makeDirectories(home() + "/.local/state/other-program");
    writeFile(home() + "/.local/state/other-program/history", "kept");
    cutOff();
    const UninstallReport report = runOnce();
    EXPECT_EQ(report.outcome, UninstallOutcome::completed);
    EXPECT_FALSE(exists(records()));
    EXPECT_EQ(listNames(home() + "/.local/state"), std::vector<std::string>{"other-program"});
    EXPECT_EQ(readFile(home() + "/.local/state/other-program/history"), "kept");
}

}  // namespace
