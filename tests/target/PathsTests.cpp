#include <gtest/gtest.h>

#include "target/Paths.h"

namespace {

using target::appendingPathComponent;
using target::displayPath;
using target::withoutTrailingSlashes;

TEST(DisplayPathTest, TheHomeItselfIsATilde) {
    EXPECT_EQ(displayPath("/Users/alice", "/Users/alice"), "~");
}

TEST(DisplayPathTest, APathBelowTheHomeStartsWithTildeSlash) {
    EXPECT_EQ(displayPath("/Users/alice/Library/Logs/io.tavio.Tavio", "/Users/alice"),
              "~/Library/Logs/io.tavio.Tavio");
}

TEST(DisplayPathTest, ASiblingOfTheHomeIsNotShortened) {
    EXPECT_EQ(displayPath("/Users/alice2/Library", "/Users/alice"), "/Users/alice2/Library");
}

TEST(DisplayPathTest, APathOutsideTheHomeIsShownUnchanged) {
    EXPECT_EQ(displayPath("/Applications/Tavio.app", "/Users/alice"), "/Applications/Tavio.app");
}

TEST(PathsTest, AppendingPutsExactlyOneSlashBetween) {
    EXPECT_EQ(appendingPathComponent("/Users/alice", "Applications"), "/Users/alice/Applications");
    EXPECT_EQ(appendingPathComponent("/", "Applications"), "/Applications");
    EXPECT_EQ(appendingPathComponent("/Applications", "Tavio Beta.app"),
              "/Applications/Tavio Beta.app");
}

TEST(PathsTest, TrailingSlashesGoExceptTheRootFolders) {
    EXPECT_EQ(withoutTrailingSlashes("/Users/alice/"), "/Users/alice");
    EXPECT_EQ(withoutTrailingSlashes("/Users/alice///"), "/Users/alice");
    EXPECT_EQ(withoutTrailingSlashes("///"), "/");
    EXPECT_EQ(withoutTrailingSlashes(""), "");
}

}  // namespace
