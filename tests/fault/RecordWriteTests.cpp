// Writing down a copy of the app before its removal, call by call: the order
// of its writes and syncs, on which the record's survival of a power cut
// rests, and what a crash just before each call leaves for the next run.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>
#include <sstream>
#include <vector>

#include "ChildProcess.h"
#include "Faults.h"
#include "TempDir.h"
#include "target/RemovalRecords.h"

namespace {

using faults::Call;
using faults::LoggedCall;
using target::BundleManifest;
using target::RemovalRecord;
using target::RemovalRecords;

RemovalRecord aRecord() {
    RemovalRecord record;
    record.identifier = "io.tavio.Tavio";
    record.anchor = "/Applications";
    record.name = "Tavio.app";
    record.identity = {64769, 4242};
    record.owner = ::getuid();
    using Kind = BundleManifest::Entry::Kind;
    record.manifest.entries["Contents"] = {Kind::folder, "", ""};
    record.manifest.entries["Contents/Info.plist"] = {Kind::file, std::string(32, '\x5a'), ""};
    record.manifest.entries["Contents/Frameworks/Current"] = {Kind::link, "", "A"};
    return record;
}

// Where in `log` each call was made, from `from` on.
std::optional<std::size_t> firstAt(const std::vector<LoggedCall>& log,
                                   Call call,
                                   std::size_t from = 0,
                                   std::optional<int> fd = std::nullopt) {
    for (std::size_t i = from; i < log.size(); ++i) {
        if (log[i].call == call && (!fd || log[i].fd == *fd)) {
            return i;
        }
    }
    return std::nullopt;
}

std::optional<std::size_t> lastBefore(const std::vector<LoggedCall>& log,
                                      Call call,
                                      std::size_t before) {
    for (std::size_t i = std::min(before, log.size()); i-- > 0;) {
        if (log[i].call == call) {
            return i;
        }
    }
    return std::nullopt;
}

class RecordWriteTest : public ::testing::Test {
  protected:
    static RemovalRecords recordsIn(const std::string& home) {
        return {home, RemovalRecords::folderFor(home), ::getuid()};
    }

    // A home folder of its own, empty: the records' folder and the folders
    // on the way to it are all made by the write.
    std::string freshHome() {
        const std::string home = temp_ / ("home" + std::to_string(++homes_));
        testsupport::makeDirectories(home, 0700);
        return home;
    }

    // The calls of one whole write into a fresh home.
    std::vector<LoggedCall> callsOfAWrite() {
        const RemovalRecords records = recordsIn(freshHome());
        faults::arm(std::nullopt);
        const auto written = records.write(aRecord());
        std::vector<LoggedCall> log = faults::callLog();
        faults::disarm();
        EXPECT_TRUE(std::holds_alternative<std::string>(written));
        return log;
    }

    testsupport::TempDir temp_;
    int homes_ = 0;
};

// The record's bytes reach the disk before it has a name, and its name
// before the write returns, which is when the first deletion may rely on it.
TEST_F(RecordWriteTest, TheBytesAreSyncedBeforeTheNameAndTheNameBeforeTheWriteReturns) {
    const auto log = callsOfAWrite();
    const auto named = lastBefore(log, Call::linkat, log.size());
    ASSERT_TRUE(named.has_value()) << "the record is named by a link of its unnamed file";
    const auto written = lastBefore(log, Call::write, *named);
    ASSERT_TRUE(written.has_value());
    const int file = log[*written].fd;
    const int folder = log[*named].fd;

    const auto fileSynced = firstAt(log, Call::fsync, *written, file);
    ASSERT_TRUE(fileSynced.has_value()) << "the record's bytes are never synced";
    EXPECT_LT(*fileSynced, *named) << "the record is named before its bytes are on the disk";
    EXPECT_TRUE(firstAt(log, Call::fsync, *named, folder).has_value())
        << "the record's name is never synced";
}

// The folders made for records, and the list of them, are on the disk before
// the chain that holds them takes its place, and the place after.
TEST_F(RecordWriteTest, NewFoldersAndTheirListAreSyncedBeforeTheChainIsRenamedIntoPlace) {
    const auto log = callsOfAWrite();
    const auto renamed = firstAt(log, Call::renameat2);
    ASSERT_TRUE(renamed.has_value()) << "the chain of new folders is renamed into place";
    const int home = log[*renamed].fd;
    std::size_t folders = 0;
    for (std::size_t i = 0; i < *renamed; ++i) {
        if (log[i].call != Call::mkdirat) {
            continue;
        }
        ++folders;
        if (log[i].fd != home) {
            const auto synced = firstAt(log, Call::fsync, i, log[i].fd);
            EXPECT_TRUE(synced && *synced < *renamed)
                << "the folder given a new folder at call " << i << " is not synced in time";
        }
    }
    EXPECT_EQ(folders, 3u) << ".local, state and the records' folder";
    const auto listNamed = lastBefore(log, Call::linkat, *renamed);
    ASSERT_TRUE(listNamed.has_value()) << "the list of folders made is written inside the chain";
    EXPECT_TRUE(firstAt(log, Call::fsync, *listNamed, log[*listNamed].fd).value_or(*renamed) <
                *renamed);
    const auto placeSynced = firstAt(log, Call::fsync, *renamed, home);
    const auto recordNamed = lastBefore(log, Call::linkat, log.size());
    ASSERT_TRUE(placeSynced.has_value()) << "the chain's new name is never synced";
    EXPECT_LT(*placeSynced, *recordNamed) << "a record is written into a chain not yet durable";
}

// Killed just before any call of a write, the write leaves either no record
// or the whole one, and never anything of its own that the next run's tidy
// up does not remove: once that run has dropped the record of a copy that is
// gone, the home folder is as it was.
TEST_F(RecordWriteTest, ACrashBeforeAnyCallLeavesNoRecordOrTheWholeOneAndNoTrace) {
    const auto log = callsOfAWrite();
    const auto named = lastBefore(log, Call::linkat, log.size());
    ASSERT_TRUE(named.has_value());
    std::map<Call, std::uint64_t> seen;
    for (std::size_t i = 0; i < log.size(); ++i) {
        const faults::Fault crash{log[i].call, ++seen[log[i].call], faults::kCrash};
        const std::string home = freshHome();
        const RemovalRecords records = recordsIn(home);
        const auto answer = testsupport::runInChild([&]() -> std::string {
            faults::arm(crash);
            (void)records.write(aRecord());
            faults::disarm();
            return "not killed";
        });
        EXPECT_FALSE(answer.has_value()) << crash.describe() << ": the write was not cut off";
        const auto stored = records.all();
        ASSERT_EQ(stored.size(), i > *named ? 1u : 0u)
            << crash.describe() << ": a record exists exactly once it has been named";
        if (!stored.empty()) {
            EXPECT_EQ(stored[0].record, aRecord()) << crash.describe();
            records.drop(stored[0]);
        }
        records.tidy();
        EXPECT_TRUE(testsupport::listNames(home).empty())
            << crash.describe() << " left " << testing::PrintToString(testsupport::listNames(home));
    }
}

}  // namespace
