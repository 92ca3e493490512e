#include <gtest/gtest.h>

#include "base/Text.h"
#include "engine/UninstallReport.h"

using engine::ItemOutcome;
using engine::ItemResult;
using engine::RemainingPath;
using engine::UninstallOutcome;
using engine::UninstallReport;
using removal::RemovalFailure;
using removal::RemovalReason;

namespace {

target::InventoryItem item(const std::string& path) {
    return target::InventoryItem{"tree:" + path,
                                 target::ItemCategory::cache,
                                 target::ItemTarget::tree("/home/u/Library", {"Caches", "x"}, true),
                                 path,
                                 "~/display-only",
                                 target::ItemState::present()};
}

TEST(UninstallReport, NoResultsMeansNothingRemainsAndNothingWasAbsent) {
    const UninstallReport report{UninstallOutcome::completed, {}};
    EXPECT_EQ(report.alreadyAbsentCount(), 0);
    EXPECT_TRUE(report.remaining().empty());
}

TEST(UninstallReport, ThreeFailuresGiveThreeRemainingPathsInOrderWithTheirOwnSentences) {
    const UninstallReport report{
        UninstallOutcome::incomplete,
        {{item("/home/u/a"),
          ItemOutcome::failed({{"/home/u/a/1", RemovalReason::permissionDenied()},
                               {"/home/u/a/2", RemovalReason::system(5)},
                               {"/home/u/a/1", RemovalReason::tooDeep()}})}}};
    EXPECT_EQ(report.remaining(),
              (std::vector<RemainingPath>{{"/home/u/a/1", "Permission denied"},
                                          {"/home/u/a/2", "System error 5"},
                                          {"/home/u/a/1", "Folder nesting is too deep"}}));
}

TEST(UninstallReport, SkippedGivesOneRemainingPathWithTheTextUnchanged) {
    const UninstallReport report{UninstallOutcome::incomplete,
                                 {{item("/home/u/b"), ItemOutcome::skipped("Skipped: “x” …")}}};
    EXPECT_EQ(report.remaining(), (std::vector<RemainingPath>{{"/home/u/b", "Skipped: “x” …"}}));
}

TEST(UninstallReport, LinksRemovedCountAsDoneButNotAsAbsent) {
    const UninstallReport report{
        UninstallOutcome::completed,
        {{item("/a"), ItemOutcome::linkRemoved()}, {item("/b"), ItemOutcome::linkRemoved()}}};
    EXPECT_EQ(report.alreadyAbsentCount(), 0);
    EXPECT_TRUE(report.remaining().empty());
}

TEST(UninstallReport, AlreadyAbsentCountCountsOnlyAlreadyAbsent) {
    const UninstallReport report{UninstallOutcome::completed,
                                 {{item("/a"), ItemOutcome::alreadyAbsent()},
                                  {item("/b"), ItemOutcome::removed()},
                                  {item("/c"), ItemOutcome::alreadyAbsent()},
                                  {item("/d"), ItemOutcome::linkRemoved()}}};
    EXPECT_EQ(report.alreadyAbsentCount(), 2);
}

TEST(UninstallReport, RemainingUsesTheFullPathNeverTheDisplayPath) {
    const UninstallReport report{UninstallOutcome::incomplete,
                                 {{item("/home/u/full"), ItemOutcome::skipped("why")}}};
    ASSERT_EQ(report.remaining().size(), 1u);
    EXPECT_EQ(report.remaining()[0].path, "/home/u/full");
}

TEST(UninstallReport, RemainingReasonsFollowTheInstalledTextLookup) {
    base::setTextLookup([](std::string_view english) {
        return english == "Permission denied" ? std::string("Zugriff verweigert") : std::string();
    });
    const UninstallReport report{
        UninstallOutcome::incomplete,
        {{item("/a"), ItemOutcome::failed({{"/a", RemovalReason::permissionDenied()}})}}};
    EXPECT_EQ(report.remaining()[0].reason, "Zugriff verweigert");
    base::setTextLookup(nullptr);
}

TEST(ItemOutcome, DoneAndNotDoneOutcomes) {
    EXPECT_FALSE(ItemOutcome::skipped("x").isDone());
    EXPECT_FALSE(ItemOutcome::failed({{"/a", RemovalReason::tooDeep()}}).isDone());
    EXPECT_TRUE(ItemOutcome::removed().isDone());
    EXPECT_TRUE(ItemOutcome::alreadyAbsent().isDone());
    EXPECT_TRUE(ItemOutcome::linkRemoved().isDone());
}

TEST(ItemOutcome, EqualityComparesPayloads) {
    EXPECT_EQ(ItemOutcome::skipped("a"), ItemOutcome::skipped("a"));
    EXPECT_NE(ItemOutcome::skipped("a"), ItemOutcome::skipped("b"));
    EXPECT_NE(ItemOutcome::failed({{"/a", RemovalReason::system(2)}}),
              ItemOutcome::failed({{"/a", RemovalReason::system(5)}}));
    EXPECT_NE(ItemOutcome::removed(), ItemOutcome::linkRemoved());
}

TEST(ItemOutcome, RemovalOutcomesCarryOverCaseForCase) {
    using removal::RemovalOutcome;
    EXPECT_EQ(ItemOutcome::from(RemovalOutcome::removed()), ItemOutcome::removed());
    EXPECT_EQ(ItemOutcome::from(RemovalOutcome::alreadyAbsent()), ItemOutcome::alreadyAbsent());
    EXPECT_EQ(ItemOutcome::from(RemovalOutcome::linkRemoved()), ItemOutcome::linkRemoved());
    const std::vector<RemovalFailure> failures{{"/x", RemovalReason::crossesVolume()}};
    EXPECT_EQ(ItemOutcome::from(RemovalOutcome::failed(failures)), ItemOutcome::failed(failures));
}

TEST(ItemOutcomeDeathTest, FailedWithoutFailuresTraps) {
    EXPECT_DEATH((void)ItemOutcome::failed({}), "precondition failed");
}

}  // namespace
