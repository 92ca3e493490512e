#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "ChildProcess.h"
#include "PlistText.h"
#include "TempDir.h"
#include "base/UniqueFd.h"
#include "target/PropertyList.h"

namespace {

using target::PropertyList;
using Failure = PropertyList::ReadFailure;

const std::string kInfo =
    testplist::xml("<dict><key>CFBundleIdentifier</key><string>io.tavio.Tavio</string></dict>");

class PropertyListFileTest : public ::testing::Test {
  protected:
    base::UniqueFd openFolder() const {
        return base::UniqueFd(::open(temp_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

    // The failure of reading `name`, or nothing when it was read.
    std::optional<Failure> failureOf(const std::string& name) const {
        const auto folder = openFolder();
        auto result = PropertyList::readAt(folder.get(), name);
        if (const auto* failure = std::get_if<Failure>(&result)) {
            return *failure;
        }
        return std::nullopt;
    }

    testsupport::TempDir temp_;
};

TEST_F(PropertyListFileTest, ReadsARegularFile) {
    testsupport::writeFile(temp_ / "Info.plist", kInfo);
    const auto folder = openFolder();
    auto result = PropertyList::readAt(folder.get(), "Info.plist");
    auto* list = std::get_if<PropertyList>(&result);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->stringValue("CFBundleIdentifier"), "io.tavio.Tavio");
}

TEST_F(PropertyListFileTest, ReadsABinaryFileAndRemembersBinary) {
    testsupport::writeFile(temp_ / "Info.plist", testplist::binary(kInfo));
    const auto folder = openFolder();
    auto result = PropertyList::readAt(folder.get(), "Info.plist");
    ASSERT_TRUE(std::holds_alternative<PropertyList>(result));
    EXPECT_EQ(std::get<PropertyList>(result).format(), PropertyList::Format::binary);
}

TEST_F(PropertyListFileTest, AMissingFileIsMissing) {
    EXPECT_EQ(failureOf("Info.plist"), Failure::missing);
}

TEST_F(PropertyListFileTest, ALinkIsRefusedEvenWhenItPointsAtAGoodList) {
    testsupport::writeFile(temp_ / "real.plist", kInfo);
    testsupport::makeLink("real.plist", temp_ / "Info.plist");
    EXPECT_EQ(failureOf("Info.plist"), Failure::notARegularFile);
}

TEST_F(PropertyListFileTest, AFolderIsNotARegularFile) {
    testsupport::makeDirectories(temp_ / "Info.plist");
    EXPECT_EQ(failureOf("Info.plist"), Failure::notARegularFile);
}

TEST_F(PropertyListFileTest, AFifoIsRefusedWithoutBlocking) {
    ASSERT_EQ(::mkfifo((temp_ / "Info.plist").c_str(), 0644), 0);
    // In a child with an alarm: an open that blocked would be killed by it,
    // and the child would give no answer.
    const auto answer = testsupport::runInChild([this] {
        ::alarm(5);
        const auto failure = failureOf("Info.plist");
        return std::string(failure == Failure::notARegularFile ? "refused" : "other");
    });
    EXPECT_EQ(answer, "refused");
}

TEST_F(PropertyListFileTest, ASocketIsNotARegularFile) {
    const base::UniqueFd sock(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_TRUE(sock);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = temp_ / "Info.plist";
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(::bind(sock.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(failureOf("Info.plist"), Failure::notARegularFile);
}

TEST_F(PropertyListFileTest, AFileOverTheSizeLimitIsTooLarge) {
    testsupport::writeFile(temp_ / "Info.plist", kInfo);
    ASSERT_EQ(::truncate((temp_ / "Info.plist").c_str(), PropertyList::kMaximumSize + 1), 0);
    EXPECT_EQ(failureOf("Info.plist"), Failure::tooLarge);
}

TEST_F(PropertyListFileTest, AFileThatIsNoListIsMalformed) {
    testsupport::writeFile(temp_ / "Info.plist", "{ not: a property list }");
    EXPECT_EQ(failureOf("Info.plist"), Failure::malformed);
}

TEST_F(PropertyListFileTest, AnEmptyFileIsMalformed) {
    testsupport::writeFile(temp_ / "Info.plist", "");
    EXPECT_EQ(failureOf("Info.plist"), Failure::malformed);
}

TEST_F(PropertyListFileTest, AFileTheUserMayNotReadIsUnreadable) {
    testsupport::writeFile(temp_ / "Info.plist", kInfo, 0600);
    const auto answer = testsupport::runInChild([this] {
        if (::getuid() == 0 && ::setuid(65534) != 0) {
            return std::string("cannot drop privileges");
        }
        return std::string(failureOf("Info.plist") == Failure::unreadable ? "unreadable" : "other");
    });
    EXPECT_EQ(answer, "unreadable");
}

TEST_F(PropertyListFileTest, ReadingAPipeDescriptorIsRefused) {
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_CLOEXEC), 0);
    const base::UniqueFd readEnd(fds[0]);
    const base::UniqueFd writeEnd(fds[1]);
    auto result = PropertyList::readFrom(readEnd.get());
    ASSERT_TRUE(std::holds_alternative<Failure>(result));
    EXPECT_EQ(std::get<Failure>(result), Failure::notARegularFile);
}

using PropertyListFileDeathTest = PropertyListFileTest;

TEST_F(PropertyListFileDeathTest, ANameWithASlashStopsTheProcess) {
    EXPECT_DEATH((void)PropertyList::readAt(AT_FDCWD, "Contents/Info.plist"),
                 "single path component");
}

TEST_F(PropertyListFileDeathTest, ADotDotNameStopsTheProcess) {
    EXPECT_DEATH((void)PropertyList::readAt(AT_FDCWD, ".."), "single path component");
}

}  // namespace
