#include <gtest/gtest.h>
#include <plist/plist.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "PlistText.h"
#include "RecordSamples.h"
#include "target/RemovalRecord.h"

namespace {

using target::BundleManifest;
using target::RemovalRecord;
using testrecords::sampleRecord;

std::string serializedSample() {
    const auto bytes = sampleRecord().serialized();
    if (!bytes) {
        throw std::runtime_error("the sample record gave no bytes");
    }
    return *bytes;
}

// The sample record's XML after `edit` changed its top-level dictionary, as
// libplist writes it: everything else stays exactly as the writer made it.
std::string editedSample(const std::function<void(plist_t root)>& edit) {
    const std::string text = serializedSample();
    plist_t root = nullptr;
    plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &root);
    if (root == nullptr) {
        throw std::runtime_error("the sample record is not a property list");
    }
    const auto guard = testrecords::owned(root);
    edit(root);
    return testrecords::xmlOf(root);
}

std::string withField(const char* key, plist_t value) {
    return editedSample([&](plist_t root) { plist_dict_set_item(root, key, value); });
}

// The sample with one manifest entry replaced by `value`.
std::string withEntry(const char* path, plist_t value) {
    return editedSample([&](plist_t root) {
        plist_dict_set_item(plist_dict_get_item(root, "Entries"), path, value);
    });
}

plist_t entryNode(const char* key, plist_t value) {
    plist_t entry = plist_new_dict();
    plist_dict_set_item(entry, key, value);
    return entry;
}

TEST(RemovalRecordTest, ARecordReadsBackEqualFromItsOwnBytes) {
    const RemovalRecord record = sampleRecord();
    const auto parsed = RemovalRecord::parse(serializedSample());
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(*parsed, record);
    EXPECT_EQ(parsed->identity.inode, std::uint64_t{0x123456789AB});
    EXPECT_EQ(parsed->manifest.entries.size(), 5u);
}

TEST(RemovalRecordTest, ItIsWrittenAsAnXmlPropertyList) {
    const std::string text = serializedSample();
    EXPECT_TRUE(text.starts_with("<?xml")) << text;
    EXPECT_NE(text.find("<key>Identifier</key>"), std::string::npos);
    EXPECT_NE(text.find("<string>io.tavio.Tavio</string>"), std::string::npos);
}

TEST(RemovalRecordTest, EveryFieldTakesPartInTheRoundTrip) {
    RemovalRecord record = sampleRecord("/home/alice/Applications", "Tavio copy.app");
    record.identifier = "io.tavio.Tavio.beta";
    record.identity = removal::FileIdentity{static_cast<dev_t>(0xFD01), std::uint64_t{1} << 62};
    record.owner = 4'000'000'000u;
    record.manifest.entries.erase("Contents/MacOS/Tavio");
    record.manifest.entries["Contents/Resources/&<odd> name.txt"] = testrecords::fileEntry("text");
    const auto bytes = record.serialized();
    ASSERT_TRUE(bytes.has_value());
    EXPECT_EQ(RemovalRecord::parse(*bytes), record);
}

TEST(RemovalRecordTest, AnEmptyManifestIsStillARecord) {
    RemovalRecord record = sampleRecord();
    record.manifest = BundleManifest{};
    const auto bytes = record.serialized();
    ASSERT_TRUE(bytes.has_value());
    EXPECT_EQ(RemovalRecord::parse(*bytes), record);
}

TEST(RemovalRecordTest, ThePathJoinsAnchorAndName) {
    EXPECT_EQ(sampleRecord().path(), "/Applications/Tavio.app");
    EXPECT_EQ(sampleRecord("/", "Tavio.app").path(), "/Tavio.app");
    EXPECT_EQ(sampleRecord("/home/alice/Applications", "T.app").path(),
              "/home/alice/Applications/T.app");
}

// Each field, left out, makes the record unreadable.
class MissingFieldTest : public ::testing::TestWithParam<const char*> {};

TEST_P(MissingFieldTest, GivesNothing) {
    const std::string text =
        editedSample([](plist_t root) { plist_dict_remove_item(root, GetParam()); });
    ASSERT_EQ(text.find(std::string("<key>") + GetParam() + "</key>"), std::string::npos);
    EXPECT_FALSE(RemovalRecord::parse(text).has_value());
}

INSTANTIATE_TEST_SUITE_P(
    RemovalRecordTest,
    MissingFieldTest,
    ::testing::Values("Identifier", "Anchor", "Name", "Device", "Inode", "Owner", "Entries"));

TEST(RemovalRecordTest, AnEditThatKeepsTheFieldsStillParses) {
    // The editing helper itself changes nothing that matters: without this,
    // the refusals below could come from the rewrite rather than the field.
    const std::string text = editedSample([](plist_t) {});
    EXPECT_EQ(RemovalRecord::parse(text), sampleRecord());
}

TEST(RemovalRecordTest, ANumberWrittenAsAStringGivesNothing) {
    for (const char* key : {"Device", "Inode", "Owner"}) {
        EXPECT_FALSE(RemovalRecord::parse(withField(key, plist_new_string("12"))).has_value())
            << key;
    }
}

TEST(RemovalRecordTest, ANumberOfAnotherTypeGivesNothing) {
    for (const char* key : {"Device", "Inode", "Owner"}) {
        EXPECT_FALSE(RemovalRecord::parse(withField(key, plist_new_real(12.0))).has_value()) << key;
        EXPECT_FALSE(RemovalRecord::parse(withField(key, plist_new_bool(1))).has_value()) << key;
    }
}

// An owner that no uid_t can hold is not cut down to one that might match
// some folder's owner.
TEST(RemovalRecordTest, AnOwnerBeyondTheRangeOfUserIdsGivesNothing) {
    const std::uint64_t wide = (std::uint64_t{1} << 32) + 501;
    EXPECT_FALSE(RemovalRecord::parse(withField("Owner", plist_new_uint(wide))).has_value());
    std::string text = serializedSample();
    const std::string owner = "<integer>501</integer>";
    ASSERT_NE(text.find(owner), std::string::npos);
    text.replace(text.find(owner), owner.size(), "<integer>-1</integer>");
    EXPECT_FALSE(RemovalRecord::parse(text).has_value());
}

TEST(RemovalRecordTest, TheLargestUserIdIsKept) {
    RemovalRecord record = sampleRecord();
    record.owner = 0xFFFFFFFEu;
    const auto bytes = record.serialized();
    ASSERT_TRUE(bytes.has_value());
    EXPECT_EQ(RemovalRecord::parse(*bytes), record);
}

TEST(RemovalRecordTest, AStringWrittenAsANumberGivesNothing) {
    for (const char* key : {"Identifier", "Anchor", "Name"}) {
        EXPECT_FALSE(RemovalRecord::parse(withField(key, plist_new_uint(12))).has_value()) << key;
        EXPECT_FALSE(RemovalRecord::parse(withField(key, plist_new_data("/x", 2))).has_value())
            << key;
    }
}

TEST(RemovalRecordTest, EntriesThatAreNoDictionaryGiveNothing) {
    EXPECT_FALSE(RemovalRecord::parse(withField("Entries", plist_new_array())).has_value());
    EXPECT_FALSE(
        RemovalRecord::parse(withField("Entries", plist_new_string("Contents"))).has_value());
}

TEST(RemovalRecordTest, AnEmptyIdentifierGivesNothing) {
    EXPECT_FALSE(RemovalRecord::parse(withField("Identifier", plist_new_string(""))).has_value());
}

TEST(RemovalRecordTest, AnAnchorThatIsNotAbsoluteGivesNothing) {
    for (const char* anchor : {"", "Applications", "./Applications", "~/Applications"}) {
        EXPECT_FALSE(
            RemovalRecord::parse(withField("Anchor", plist_new_string(anchor))).has_value())
            << anchor;
    }
}

TEST(RemovalRecordTest, ANameThatIsNotOneComponentGivesNothing) {
    for (const char* name : {"", ".", "..", "Apps/Tavio.app", "/Tavio.app", "Tavio.app/"}) {
        EXPECT_FALSE(RemovalRecord::parse(withField("Name", plist_new_string(name))).has_value())
            << name;
    }
}

TEST(RemovalRecordTest, AManifestEntryOfAnUnknownKindGivesNothing) {
    const std::string text = withEntry("Contents/MacOS", entryNode("directory", plist_new_bool(1)));
    ASSERT_NE(text.find("<key>directory</key>"), std::string::npos);
    EXPECT_FALSE(RemovalRecord::parse(text).has_value());
}

TEST(RemovalRecordTest, ADigestOfTheWrongLengthGivesNothing) {
    const std::string digest = testrecords::sha256("program");
    for (const std::size_t length : {std::size_t{0}, std::size_t{31}, std::size_t{33}}) {
        const std::string bytes = (digest + "!").substr(0, length);
        const std::string text = withEntry(
            "Contents/MacOS/Tavio", entryNode("hash2", plist_new_data(bytes.data(), length)));
        EXPECT_FALSE(RemovalRecord::parse(text).has_value()) << length;
    }
}

TEST(RemovalRecordTest, ADigestWrittenAsAStringGivesNothing) {
    const std::string text =
        withEntry("Contents/MacOS/Tavio",
                  entryNode("hash2", plist_new_string("0123456789abcdef0123456789abcdef")));
    EXPECT_FALSE(RemovalRecord::parse(text).has_value());
}

TEST(RemovalRecordTest, AnEmptyLinkTargetGivesNothing) {
    const std::string text =
        withEntry("Contents/Frameworks/Current", entryNode("symlink", plist_new_string("")));
    EXPECT_FALSE(RemovalRecord::parse(text).has_value());
}

// A folder entry is written as "folder" = true and nothing else.
TEST(RemovalRecordTest, AFolderEntryWithAnotherValueGivesNothing) {
    EXPECT_FALSE(RemovalRecord::parse(withEntry("Contents", entryNode("folder", plist_new_bool(0))))
                     .has_value());
    EXPECT_FALSE(
        RemovalRecord::parse(withEntry("Contents", entryNode("folder", plist_new_string("yes"))))
            .has_value());
}

TEST(RemovalRecordTest, AnEntryWithTwoKindsGivesNothing) {
    plist_t entry = entryNode("folder", plist_new_bool(1));
    plist_dict_set_item(entry, "symlink", plist_new_string("A"));
    EXPECT_FALSE(RemovalRecord::parse(withEntry("Contents", entry)).has_value());
}

TEST(RemovalRecordTest, BytesThatAreNoPropertyListGiveNothing) {
    std::mt19937 random(20240607);
    std::string noise(512, '\0');
    for (char& c : noise) {
        c = static_cast<char>(random() & 0xFF);
    }
    for (const std::string& bytes :
         {std::string(), std::string("removal"), std::string("<plist><dict>"), noise,
          std::string("bplist00") + noise}) {
        EXPECT_FALSE(RemovalRecord::parse(bytes).has_value()) << bytes.size();
    }
}

TEST(RemovalRecordTest, AListWhoseTopIsNoDictionaryGivesNothing) {
    EXPECT_FALSE(RemovalRecord::parse(testplist::xml("<array/>")).has_value());
    EXPECT_FALSE(RemovalRecord::parse(testplist::xml("<string>x</string>")).has_value());
    EXPECT_FALSE(RemovalRecord::parse(testplist::xml("<dict/>")).has_value());
}

TEST(RemovalRecordTest, ATruncatedRecordGivesNothing) {
    const std::string text = serializedSample();
    for (const std::size_t length : {text.size() / 4, text.size() / 2, text.size() - 20}) {
        EXPECT_FALSE(RemovalRecord::parse(text.substr(0, length)).has_value()) << length;
    }
}

TEST(RemovalRecordTest, ATruncatedBinaryRecordGivesNothing) {
    const std::string binary = testplist::binary(serializedSample());
    ASSERT_TRUE(binary.starts_with("bplist00"));
    for (const std::size_t length : {std::size_t{8}, binary.size() / 2, binary.size() - 1}) {
        EXPECT_FALSE(RemovalRecord::parse(binary.substr(0, length)).has_value()) << length;
    }
}

// Records are only ever written as XML; the same fields in the binary format
// are not a record of ours.
TEST(RemovalRecordTest, TheRecordInTheBinaryFormatGivesNothing) {
    const std::string binary = testplist::binary(serializedSample());
    ASSERT_TRUE(binary.starts_with("bplist00"));
    EXPECT_FALSE(RemovalRecord::parse(binary).has_value());
}

}  // namespace
