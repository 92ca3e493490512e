// Corpus replay: many deterministic mutations of valid property lists fed to
// the parser. Whatever it accepts must be within the nesting limit, readable
// and writable again; nothing may crash (the sanitizer build watches memory).
#include <gtest/gtest.h>

#include "PlistCorpus.h"
#include "PlistMutator.h"
#include "target/PropertyList.h"
#include "target/PropertyListShape.h"

namespace {

using target::PropertyList;

constexpr int kCases = 25000;

// What an accepted list must allow: reading every key, writing itself out in
// its own format, reading that back the same, and losing every key.
void exerciseAccepted(PropertyList& list, int index) {
    ASSERT_LE(testplist::treeDepth(list.root()), target::kPropertyListDepthLimit) << index;
    const std::vector<std::string> keys = list.keys();
    for (const std::string& key : keys) {
        (void)list.stringValue(key);
    }
    const auto bytes = list.serialized();
    ASSERT_TRUE(bytes) << index;
    const auto again = PropertyList::parse(*bytes);
    ASSERT_TRUE(again) << "case " << index << " does not read back after writing";
    EXPECT_EQ(again->format(), list.format()) << index;
    EXPECT_EQ(again->keys(), keys) << index;
    EXPECT_EQ(list.removeKeys(keys), keys.size()) << index;
    EXPECT_TRUE(list.keys().empty()) << index;
}

TEST(PropertyListFuzzTest, MutatedListsAreRefusedOrFullyUsable) {
    const std::vector<std::string> seeds = testplist::seedCorpus();
    testplist::PlistMutator mutator(0x7A510);
    int accepted = 0;
    int refused = 0;
    for (int index = 0; index < kCases; ++index) {
        const std::string& seed = seeds[mutator.below(seeds.size())];
        std::string input = mutator.mutate(seed, seeds[mutator.below(seeds.size())]);
        if (mutator.below(4) == 0) {
            input = mutator.mutate(input, seed);
        }
        auto list = PropertyList::parse(input);
        if (!list) {
            ++refused;
            continue;
        }
        ++accepted;
        exerciseAccepted(*list, index);
        if (HasFatalFailure()) {
            return;
        }
    }
    // The corpus must exercise both sides, or it tests nothing.
    EXPECT_GT(accepted, kCases / 20);
    EXPECT_GT(refused, kCases / 20);
}

TEST(PropertyListFuzzTest, DeepRunsOfMarkupNeverReachTheParserTooDeep) {
    testplist::PlistMutator mutator(0xDEE9);
    const std::vector<std::string> seeds = testplist::seedCorpus();
    static const char* const kOpeners[] = {"<array>", "<dict><key>a</key>", "<!--<array>-->",
                                           "<array><string></array>", "<dict x='>'>"};
    for (int index = 0; index < 100; ++index) {
        const std::string& seed = seeds[mutator.below(seeds.size() / 2)];  // the XML ones
        std::string run;
        const char* opener = kOpeners[mutator.below(sizeof kOpeners / sizeof kOpeners[0])];
        for (std::uint64_t n = 1000 + mutator.below(4000); n > 0; --n) {
            run += opener;
        }
        std::string input = seed;
        input.insert(mutator.below(input.size() + 1), run);
        auto list = PropertyList::parse(input);
        if (list) {
            ASSERT_LE(testplist::treeDepth(list->root()), target::kPropertyListDepthLimit) << index;
        }
    }
}

}  // namespace
