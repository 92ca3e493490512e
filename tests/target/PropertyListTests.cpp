#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "BinaryPlistBuilder.h"
#include "PlistText.h"
#include "target/PropertyList.h"
#include "target/PropertyListShape.h"

namespace {

using target::PropertyList;
using testplist::BinaryPlistBuilder;

const std::string kSample = testplist::xml(
    "<dict>\n"
    "\t<key>CFBundleIdentifier</key>\n\t<string>io.tavio.Tavio</string>\n"
    "\t<key>Count</key>\n\t<integer>5</integer>\n"
    "\t<key>Nested</key>\n\t<dict><key>Inner</key><string>x</string></dict>\n"
    "\t<key>Last</key>\n\t<string>end</string>\n"
    "</dict>");

std::string nestedArrays(int depth, const std::string& inside = "") {
    std::string out;
    for (int i = 0; i < depth; ++i) {
        out += "<array>";
    }
    out += inside;
    for (int i = 0; i < depth; ++i) {
        out += "</array>";
    }
    return out;
}

std::string nestedBinaryArrays(int depth) {
    BinaryPlistBuilder builder;
    std::uint16_t inner = builder.boolean(true);
    for (int i = 0; i < depth; ++i) {
        inner = builder.array({inner});
    }
    return builder.build(inner);
}

TEST(PropertyListTest, ParsesAnXmlDictionaryAndRemembersXml) {
    const auto list = PropertyList::parse(kSample);
    ASSERT_TRUE(list);
    EXPECT_EQ(list->format(), PropertyList::Format::xml);
    EXPECT_TRUE(list->isDictionary());
    EXPECT_EQ(list->stringValue("CFBundleIdentifier"), "io.tavio.Tavio");
}

TEST(PropertyListTest, ParsesABinaryDictionaryAndRemembersBinary) {
    const auto list = PropertyList::parse(testplist::binary(kSample));
    ASSERT_TRUE(list);
    EXPECT_EQ(list->format(), PropertyList::Format::binary);
    EXPECT_EQ(list->stringValue("Last"), "end");
}

TEST(PropertyListTest, StringValueOfAMissingKeyIsNothing) {
    EXPECT_EQ(PropertyList::parse(kSample)->stringValue("Absent"), std::nullopt);
}

TEST(PropertyListTest, StringValueOfANumberOrADictionaryIsNothing) {
    const auto list = PropertyList::parse(kSample);
    EXPECT_EQ(list->stringValue("Count"), std::nullopt);
    EXPECT_EQ(list->stringValue("Nested"), std::nullopt);
}

TEST(PropertyListTest, StringValueOfANestedKeyIsNotFoundAtTheTop) {
    EXPECT_EQ(PropertyList::parse(kSample)->stringValue("Inner"), std::nullopt);
}

TEST(PropertyListTest, ATopLevelArrayIsNotADictionaryAndHasNoValues) {
    auto list = PropertyList::parse(testplist::xml("<array><string>a</string></array>"));
    ASSERT_TRUE(list);
    EXPECT_FALSE(list->isDictionary());
    EXPECT_EQ(list->stringValue("a"), std::nullopt);
    EXPECT_TRUE(list->keys().empty());
    EXPECT_EQ(list->removeKeys({"a"}), 0u);
}

TEST(PropertyListTest, ATopLevelStringIsNotADictionary) {
    const auto list = PropertyList::parse(testplist::xml("<string>io.tavio.Tavio</string>"));
    ASSERT_TRUE(list);
    EXPECT_FALSE(list->isDictionary());
    EXPECT_EQ(list->stringValue("CFBundleIdentifier"), std::nullopt);
}

TEST(PropertyListTest, KeysAreListedInFileOrder) {
    const std::vector<std::string> expected{"CFBundleIdentifier", "Count", "Nested", "Last"};
    EXPECT_EQ(PropertyList::parse(kSample)->keys(), expected);
    EXPECT_EQ(PropertyList::parse(testplist::binary(kSample))->keys(), expected);
}

TEST(PropertyListTest, RemovedKeysAreGoneAfterAnXmlRoundTrip) {
    auto list = PropertyList::parse(kSample);
    EXPECT_EQ(list->removeKeys({"Count", "Nested", "Count"}), 2u);
    const auto bytes = list->serialized();
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->rfind("<?xml", 0), 0u);
    const auto again = PropertyList::parse(*bytes);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->format(), PropertyList::Format::xml);
    EXPECT_EQ(again->keys(), (std::vector<std::string>{"CFBundleIdentifier", "Last"}));
}

TEST(PropertyListTest, RemovedKeysAreGoneAfterABinaryRoundTrip) {
    auto list = PropertyList::parse(testplist::binary(kSample));
    EXPECT_EQ(list->removeKeys({"CFBundleIdentifier", "Last", "Count", "Nested"}), 4u);
    const auto bytes = list->serialized();
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->rfind("bplist00", 0), 0u);
    const auto again = PropertyList::parse(*bytes);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->format(), PropertyList::Format::binary);
    EXPECT_TRUE(again->isDictionary());
    EXPECT_TRUE(again->keys().empty());
}

TEST(PropertyListTest, RemovingAKeyThatIsNotThereChangesNothing) {
    auto list = PropertyList::parse(kSample);
    EXPECT_EQ(list->removeKeys({"Absent", std::string("Count\0x", 7)}), 0u);
    EXPECT_EQ(list->keys().size(), 4u);
}

// libplist would cut such a string short; "io.tavio.Tavio\0x" must never
// pass for "io.tavio.Tavio".
TEST(PropertyListTest, ABinaryStringWithAnEmbeddedNulIsNoValue) {
    BinaryPlistBuilder builder;
    const auto key = builder.string("k");
    const auto value = builder.string(std::string("io.tavio.Tavio\0x", 16));
    const auto top = builder.dictionary({key}, {value});
    EXPECT_FALSE(PropertyList::parse(builder.build(top)));
}

TEST(PropertyListTest, ABinaryUtf16StringWithAnEmbeddedNulIsNoValue) {
    BinaryPlistBuilder builder;
    const auto key = builder.string("k");
    const auto value = builder.add(std::string("\x62\x00\x61\x00\x00", 5));
    const auto top = builder.dictionary({key}, {value});
    EXPECT_FALSE(PropertyList::parse(builder.build(top)));
}

TEST(PropertyListTest, AnXmlStringWithARawNulIsNoValue) {
    EXPECT_FALSE(PropertyList::parse(testplist::xml(
        std::string("<dict><key>k</key><string>io.tavio.Tavio\0x</string></dict>", 58))));
}

// libplist writes such text back cut short, so a rewrite would lose data.
TEST(PropertyListTest, ABinaryAsciiStringWithAHighByteIsNoValue) {
    BinaryPlistBuilder builder;
    const auto key = builder.string("CFBundleIdentifier\xFA");
    const auto value = builder.string("io.tavio.Tavio");
    EXPECT_FALSE(PropertyList::parse(builder.build(builder.dictionary({key}, {value}))));
}

TEST(PropertyListTest, ABinaryUtf16StringWithALoneSurrogateIsNoValue) {
    BinaryPlistBuilder builder;
    const auto key = builder.string("k");
    const auto value = builder.add(std::string("\x62\xD8\x00\x00\x61", 5));
    EXPECT_FALSE(PropertyList::parse(builder.build(builder.dictionary({key}, {value}))));
}

TEST(PropertyListTest, XmlThatIsNotValidUtf8IsNoValue) {
    EXPECT_FALSE(PropertyList::parse(
        testplist::xml("<dict><key>CFBundleIdentifier\xFA</key><string>x</string></dict>")));
    EXPECT_FALSE(PropertyList::parse(  // an overlong "/"
        testplist::xml("<dict><key>k</key><string>a\xC0\xAF\x62</string></dict>")));
    EXPECT_FALSE(PropertyList::parse(  // an encoded surrogate
        testplist::xml("<dict><key>k</key><string>\xED\xA0\x80</string></dict>")));
}

TEST(PropertyListTest, XmlWithMultibyteUtf8IsRead) {
    const auto list = PropertyList::parse(
        testplist::xml("<dict><key>k</key><string>\xE2\x80\x9CTavio\xE2\x80\xA6\xE2\x80\x9D "
                       "\xF0\x9F\x8E\xAC</string></dict>"));
    ASSERT_TRUE(list);
    EXPECT_EQ(list->stringValue("k"), "\xE2\x80\x9CTavio\xE2\x80\xA6\xE2\x80\x9D \xF0\x9F\x8E\xAC");
}

TEST(PropertyListTest, ABinaryUtf16StringIsRead) {
    BinaryPlistBuilder builder;
    const auto key = builder.string("k");
    const auto value = builder.add(std::string("\x62\x00\x61\x00\xE9", 5));
    const auto top = builder.dictionary({key}, {value});
    const auto list = PropertyList::parse(builder.build(top));
    ASSERT_TRUE(list);
    EXPECT_EQ(list->stringValue("k"), "a\xC3\xA9");
}

TEST(PropertyListTest, EmptyBytesAreNoValue) {
    EXPECT_FALSE(PropertyList::parse(""));
}

TEST(PropertyListTest, TextThatIsNoPropertyListIsNoValue) {
    EXPECT_FALSE(PropertyList::parse("hello, this is not a property list"));
    EXPECT_FALSE(PropertyList::parse("bplist00"));
    EXPECT_FALSE(PropertyList::parse(std::string(100, '\0')));
}

TEST(PropertyListTest, EveryTruncationOfABinaryListIsNoValue) {
    const std::string full = testplist::binary(kSample);
    for (std::size_t length = 0; length < full.size(); ++length) {
        EXPECT_FALSE(PropertyList::parse(full.substr(0, length))) << "length " << length;
    }
}

TEST(PropertyListTest, TruncatedXmlNeverYieldsTheCutShortValue) {
    const std::string full = kSample;
    const std::size_t lastValue = full.find("end</string>");
    int refused = 0;
    for (std::size_t length = 0; length < full.size(); ++length) {
        const auto list = PropertyList::parse(full.substr(0, length));
        if (!list) {
            ++refused;
        } else if (length < lastValue + 3) {
            EXPECT_NE(list->stringValue("Last"), "end") << "length " << length;
        }
    }
    EXPECT_GT(refused, 0);
}

TEST(PropertyListTest, BinaryOffsetPointingIntoTheOffsetTableIsNoValue) {
    std::string bytes = nestedBinaryArrays(1);
    // The last object's offset now points at the offset table itself.
    const std::size_t table = bytes.size() - 32 - 8;
    bytes.replace(table + 4, 4, BinaryPlistBuilder::bigEndian(table, 4));
    EXPECT_FALSE(PropertyList::parse(bytes));
}

TEST(PropertyListTest, BinaryOffsetBeyondTheEndIsNoValue) {
    std::string bytes = nestedBinaryArrays(1);
    const std::size_t table = bytes.size() - 32 - 8;
    bytes.replace(table, 4, BinaryPlistBuilder::bigEndian(0x7FFFFFFF, 4));
    EXPECT_FALSE(PropertyList::parse(bytes));
}

TEST(PropertyListTest, BinaryReferenceOutOfRangeIsNoValue) {
    BinaryPlistBuilder builder;
    builder.boolean(true);
    const auto top = builder.array({0, 7});
    EXPECT_FALSE(PropertyList::parse(builder.build(top)));
}

TEST(PropertyListTest, BinaryTopObjectOutOfRangeIsNoValue) {
    BinaryPlistBuilder builder;
    builder.boolean(true);
    EXPECT_FALSE(PropertyList::parse(builder.build(1)));
    EXPECT_FALSE(PropertyList::parse(builder.build(~0ull)));
}

TEST(PropertyListTest, BinaryHugeObjectCountIsNoValue) {
    std::string bytes = nestedBinaryArrays(1);
    bytes.replace(bytes.size() - 24, 8, BinaryPlistBuilder::bigEndian(~0ull / 2, 8));
    EXPECT_FALSE(PropertyList::parse(bytes));
}

TEST(PropertyListTest, BinaryStringLongerThanTheDataIsNoValue) {
    BinaryPlistBuilder builder;
    const auto top = builder.add(std::string("\x5F\x13", 2) +
                                 BinaryPlistBuilder::bigEndian(0x10000000, 8) + "abc");
    EXPECT_FALSE(PropertyList::parse(builder.build(top)));
}

TEST(PropertyListTest, BinaryContainerHoldingItselfIsNoValue) {
    BinaryPlistBuilder builder;
    const auto top = builder.array({0});
    EXPECT_FALSE(PropertyList::parse(builder.build(top)));
}

TEST(PropertyListTest, BinaryContainersHoldingEachOtherAreNoValue) {
    BinaryPlistBuilder builder;
    const auto key = builder.string("k");
    builder.dictionary({key}, {2});  // object 1 holds object 2
    builder.array({1});              // object 2 holds object 1
    EXPECT_FALSE(PropertyList::parse(builder.build(1)));
}

TEST(PropertyListTest, BinaryReferenceBombIsRefusedAtOnce) {
    // Each array names the next one twice: 2^40 nodes once expanded.
    BinaryPlistBuilder builder;
    std::uint16_t inner = builder.boolean(true);
    for (int i = 0; i < 40; ++i) {
        inner = builder.array({inner, inner});
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(PropertyList::parse(builder.build(inner)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST(PropertyListTest, BinarySharedObjectsWithinTheNodeLimitParse) {
    BinaryPlistBuilder builder;
    std::uint16_t inner = builder.boolean(true);
    for (int i = 0; i < 10; ++i) {
        inner = builder.array({inner, inner});
    }
    EXPECT_TRUE(PropertyList::parse(builder.build(inner)));
}

TEST(PropertyListTest, BinaryNestingAtTheDepthLimitParses) {
    const auto list = PropertyList::parse(nestedBinaryArrays(target::kPropertyListDepthLimit));
    ASSERT_TRUE(list);
    EXPECT_TRUE(list->serialized());
}

TEST(PropertyListTest, BinaryNestingOneBeyondTheDepthLimitIsNoValue) {
    EXPECT_FALSE(PropertyList::parse(nestedBinaryArrays(target::kPropertyListDepthLimit + 1)));
}

TEST(PropertyListTest, BinaryNestingAHundredThousandDeepIsNoValue) {
    EXPECT_FALSE(PropertyList::parse(nestedBinaryArrays(100000)));
}

TEST(PropertyListTest, BinaryUnknownObjectTypeIsNoValue) {
    BinaryPlistBuilder builder;
    const auto top = builder.add(std::string("\xB1\x00\x00", 3));
    EXPECT_FALSE(PropertyList::parse(builder.build(top)));
}

TEST(PropertyListTest, XmlNestingAtTheDepthLimitParses) {
    const auto list =
        PropertyList::parse(testplist::xml(nestedArrays(target::kPropertyListDepthLimit)));
    ASSERT_TRUE(list);
    EXPECT_TRUE(list->serialized());
}

TEST(PropertyListTest, XmlNestingOneBeyondTheDepthLimitIsNoValue) {
    EXPECT_FALSE(
        PropertyList::parse(testplist::xml(nestedArrays(target::kPropertyListDepthLimit + 1))));
}

TEST(PropertyListTest, XmlUnterminatedMillionDeepNestingIsNoValue) {
    std::string text = "<plist>";
    for (int i = 0; i < 1000000; ++i) {
        text += "<dict><key>a</key>";
    }
    EXPECT_FALSE(PropertyList::parse(text + "<bogus>"));
}

TEST(PropertyListTest, XmlDeepNestingHiddenInACommentIsStillRefused) {
    const std::string hidden = "<!-- " + nestedArrays(300) + " -->";
    EXPECT_FALSE(PropertyList::parse(testplist::xml(hidden + "<dict/>")));
}

TEST(PropertyListTest, XmlClosingTagsInsideStringsDoNotHideNesting) {
    std::string text = "<plist>";
    for (int i = 0; i < 5000; ++i) {
        text += "<array><string></array>";
    }
    EXPECT_FALSE(PropertyList::parse(text));
}

TEST(PropertyListTest, XmlManySelfClosingContainersAreNotNesting) {
    std::string body = "<array>";
    for (int i = 0; i < 2000; ++i) {
        body += i % 2 == 0 ? "<array/>" : "<dict />";
    }
    const auto list = PropertyList::parse(testplist::xml(body + "</array>"));
    ASSERT_TRUE(list);
    EXPECT_EQ(plist_array_get_size(list->root()), 2000u);
}

TEST(PropertyListTest, AStringOfTenMebibytesIsRead) {
    const std::string big(10 * 1024 * 1024, 'x');
    const auto list = PropertyList::parse(
        testplist::xml("<dict><key>k</key><string>" + big + "</string></dict>"));
    ASSERT_TRUE(list);
    EXPECT_EQ(list->stringValue("k")->size(), big.size());
}

TEST(PropertyListTest, BytesBeyondTheSizeLimitAreNoValue) {
    const std::string big(PropertyList::kMaximumSize, 'x');
    EXPECT_FALSE(PropertyList::parse(
        testplist::xml("<dict><key>k</key><string>" + big + "</string></dict>")));
}

TEST(PropertyListTest, AnEntityBombIsNotExpanded) {
    std::string doctype = "<!DOCTYPE plist [<!ENTITY a \"aaaaaaaaaa\">";
    for (int i = 1; i < 10; ++i) {
        std::string refs;
        for (int j = 0; j < 10; ++j) {
            refs += "&e" + std::to_string(i - 1) + ";";
        }
        doctype += "<!ENTITY e" + std::to_string(i) + " \"" + refs + "\">";
    }
    doctype += "]>";
    const auto start = std::chrono::steady_clock::now();
    const auto list = PropertyList::parse(
        doctype + "<plist><dict><key>k</key><string>&e9;</string></dict></plist>");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    if (list) {
        EXPECT_LT(list->stringValue("k").value_or("").size(), 1000u);
    }
}

TEST(PropertyListTest, DataValuesAreReadWhole) {
    const auto list = PropertyList::parse(testplist::xml(
        "<dict><key>d</key><data>AAECAw==</data><key>s</key><string>t</string></dict>"));
    ASSERT_TRUE(list);
    EXPECT_EQ(PropertyList::dataOf(plist_dict_get_item(list->root(), "d")),
              std::string("\x00\x01\x02\x03", 4));
    EXPECT_EQ(PropertyList::dataOf(plist_dict_get_item(list->root(), "s")), std::nullopt);
    EXPECT_EQ(PropertyList::stringOf(nullptr), std::nullopt);
}

TEST(PropertyListTest, AMovedFromListHoldsNothing) {
    auto list = PropertyList::parse(kSample);
    PropertyList moved = std::move(*list);
    EXPECT_TRUE(moved.isDictionary());
    EXPECT_FALSE(list->isDictionary());  // NOLINT(bugprone-use-after-move): checked on purpose
}

}  // namespace
