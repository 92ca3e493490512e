#include <gtest/gtest.h>

#include <vector>

#include "target/Inventory.h"

namespace {

using target::Inventory;
using target::InventoryItem;
using target::ItemCategory;
using target::ItemState;
using target::ItemTarget;

InventoryItem treeItem(const std::string& name, ItemCategory category, ItemState state) {
    const std::string path = "/Users/alice/Library/" + name;
    return InventoryItem{"tree:" + path,
                         category,
                         ItemTarget::tree("/Users/alice/Library", {name}, true),
                         path,
                         "~/Library/" + name,
                         std::move(state)};
}

InventoryItem appItem(const std::string& folder,
                      ItemState state,
                      std::optional<removal::FileIdentity> identity = std::nullopt) {
    const std::string path = folder + "/Tavio.app";
    return InventoryItem{"app:" + path,
                         ItemCategory::app,
                         ItemTarget::appBundle(folder, "Tavio.app", identity),
                         path,
                         path,
                         std::move(state)};
}

std::vector<std::string> idsOf(const std::vector<InventoryItem>& items) {
    std::vector<std::string> ids;
    for (const InventoryItem& item : items) {
        ids.push_back(item.id);
    }
    return ids;
}

TEST(ItemCategoryTest, AllCasesAreInDisplayOrder) {
    EXPECT_EQ(target::kAllItemCategories,
              (std::array<ItemCategory, 6>{ItemCategory::settings, ItemCategory::torrentCopies,
                                           ItemCategory::history, ItemCategory::cache,
                                           ItemCategory::logsAndState, ItemCategory::app}));
}

TEST(InventoryTest, OnlyAbsentAndSkippedItemsMeanNothingIsRemovable) {
    const Inventory inventory{
        {treeItem("Caches", ItemCategory::cache, ItemState::absent()),
         treeItem("Logs", ItemCategory::logsAndState, ItemState::skipped("Permission denied")),
         appItem("/Applications", ItemState::absent())},
        "alice"};
    EXPECT_TRUE(inventory.removableItems().empty());
}

TEST(InventoryTest, RemovableItemsAreThePresentOnesInInventoryOrder) {
    const Inventory inventory{{treeItem("A", ItemCategory::cache, ItemState::present()),
                               treeItem("B", ItemCategory::settings, ItemState::absent()),
                               treeItem("C", ItemCategory::history, ItemState::present()),
                               treeItem("D", ItemCategory::history, ItemState::skipped("x"))},
                              "alice"};
    EXPECT_EQ(
        idsOf(inventory.removableItems()),
        (std::vector<std::string>{"tree:/Users/alice/Library/A", "tree:/Users/alice/Library/C"}));
}

TEST(InventoryTest, ItemsInAppGivesBothCopiesInApplicationFolderOrder) {
    const Inventory inventory{
        {treeItem("Caches", ItemCategory::cache, ItemState::present()),
         appItem("/Applications", ItemState::skipped("Skipped: not a verified Tavio app")),
         treeItem("Logs", ItemCategory::logsAndState, ItemState::absent()),
         appItem("/Users/alice/Applications", ItemState::present(), removal::FileIdentity{1, 2})},
        "alice"};
    EXPECT_EQ(idsOf(inventory.itemsIn(ItemCategory::app)),
              (std::vector<std::string>{"app:/Applications/Tavio.app",
                                        "app:/Users/alice/Applications/Tavio.app"}));
    EXPECT_TRUE(inventory.itemsIn(ItemCategory::torrentCopies).empty());
}

TEST(InventoryTest, ItemsDifferingOnlyInDisplayPathAreNotEqual) {
    const InventoryItem a = treeItem("Caches", ItemCategory::cache, ItemState::present());
    InventoryItem b = a;
    EXPECT_EQ(a, b);
    b.displayPath = "/Users/alice/Library/Caches";
    EXPECT_NE(a, b);
}

TEST(InventoryTest, ItemsDifferingOnlyInStateAreNotEqual) {
    const InventoryItem a = treeItem("Caches", ItemCategory::cache, ItemState::present());
    InventoryItem b = a;
    b.state = ItemState::absent();
    EXPECT_NE(a, b);
}

TEST(InventoryTest, ItemsDifferingOnlyInCategoryAreNotEqual) {
    const InventoryItem a = treeItem("Caches", ItemCategory::cache, ItemState::present());
    InventoryItem b = a;
    b.category = ItemCategory::history;
    EXPECT_NE(a, b);
}

TEST(ItemTargetTest, AppTargetsWithAndWithoutAnIdentityAreNotEqual) {
    EXPECT_NE(ItemTarget::appBundle("/Applications", "Tavio.app", removal::FileIdentity{1, 2}),
              ItemTarget::appBundle("/Applications", "Tavio.app", std::nullopt));
}

TEST(ItemTargetTest, AppTargetsCompareTheirIdentities) {
    EXPECT_EQ(ItemTarget::appBundle("/Applications", "Tavio.app", std::nullopt),
              ItemTarget::appBundle("/Applications", "Tavio.app", std::nullopt));
    EXPECT_EQ(ItemTarget::appBundle("/Applications", "Tavio.app", removal::FileIdentity{1, 2}),
              ItemTarget::appBundle("/Applications", "Tavio.app", removal::FileIdentity{1, 2}));
    EXPECT_NE(ItemTarget::appBundle("/Applications", "Tavio.app", removal::FileIdentity{1, 2}),
              ItemTarget::appBundle("/Applications", "Tavio.app", removal::FileIdentity{1, 3}));
    EXPECT_NE(ItemTarget::appBundle("/Applications", "Tavio.app", removal::FileIdentity{1, 2}),
              ItemTarget::appBundle("/Applications", "Tavio.app", removal::FileIdentity{9, 2}));
    EXPECT_NE(ItemTarget::appBundle("/Applications", "Tavio.app", std::nullopt),
              ItemTarget::appBundle("/Applications", "Tavio Beta.app", std::nullopt));
}

TEST(ItemTargetTest, TreeTargetsCompareComponentsAndTheOwnedFlag) {
    const ItemTarget a =
        ItemTarget::tree("/Users/alice/Library", {"Caches", "io.tavio.Tavio"}, true);
    EXPECT_EQ(a, ItemTarget::tree("/Users/alice/Library", {"Caches", "io.tavio.Tavio"}, true));
    EXPECT_NE(a, ItemTarget::tree("/Users/alice/Library", {"Caches", "io.tavio.Tavio"}, false));
    EXPECT_NE(a, ItemTarget::tree("/Users/alice/Library", {"io.tavio.Tavio", "Caches"}, true));
    EXPECT_NE(a, ItemTarget::tree("/Users/alice/Library", {"Caches"}, true));
    EXPECT_NE(a, ItemTarget::tree("/Users/bob/Library", {"Caches", "io.tavio.Tavio"}, true));
}

TEST(ItemTargetTest, TargetsOfDifferentCasesAreNotEqual) {
    EXPECT_NE(ItemTarget::tree("/Applications", {"Tavio.app"}, false),
              ItemTarget::appBundle("/Applications", "Tavio.app", std::nullopt));
    EXPECT_NE(ItemTarget::preferences("io.tavio.Tavio"), ItemTarget::preferences("io.tavio.Beta"));
    EXPECT_EQ(ItemTarget::preferences("io.tavio.Tavio"), ItemTarget::preferences("io.tavio.Tavio"));
}

TEST(ItemStateTest, SkippedWithReasonAIsNotSkippedWithReasonB) {
    EXPECT_NE(ItemState::skipped("A"), ItemState::skipped("B"));
    EXPECT_EQ(ItemState::skipped("A"), ItemState::skipped("A"));
    EXPECT_NE(ItemState::present(), ItemState::absent());
    EXPECT_EQ(ItemState::skipped("A").reason(), "A");
    EXPECT_EQ(ItemState::present().reason(), "");
}

TEST(InventoryTest, SkippedItemsWithDifferentReasonsAreNotEqual) {
    EXPECT_NE(treeItem("Logs", ItemCategory::logsAndState, ItemState::skipped("A")),
              treeItem("Logs", ItemCategory::logsAndState, ItemState::skipped("B")));
}

TEST(InventoryTest, InventoriesCompareItemsInOrderAndTheUserName) {
    const InventoryItem a = treeItem("A", ItemCategory::cache, ItemState::present());
    const InventoryItem b = treeItem("B", ItemCategory::cache, ItemState::present());
    EXPECT_EQ((Inventory{{a, b}, "alice"}), (Inventory{{a, b}, "alice"}));
    EXPECT_NE((Inventory{{a, b}, "alice"}), (Inventory{{b, a}, "alice"}));
    EXPECT_NE((Inventory{{a, b}, "alice"}), (Inventory{{a, b}, "bob"}));
    EXPECT_NE((Inventory{{a, b}, "alice"}), (Inventory{{a}, "alice"}));
}

}  // namespace
