#include <fcntl.h>
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "ChildProcess.h"
#include "PlistText.h"
#include "RecordSamples.h"
#include "TempDir.h"
#include "base/UniqueFd.h"
#include "target/BundleManifest.h"
#include "target/PropertyList.h"

namespace {

using target::BundleManifest;
using testrecords::fileEntry;
using testrecords::folderEntry;
using testrecords::linkEntry;
using namespace testsupport;

base::UniqueFd openFolder(const std::string& path) {
    return base::UniqueFd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// What `body` answers in a child running as the unprivileged user 65534:
// root reads every file, so a file that cannot be read shows only to
// someone else.
std::optional<std::string> asAnotherUser(const std::function<std::string()>& body) {
    return runInChild([&] {
        if (::getuid() == 0 && ::setuid(65534) != 0) {
            return std::string("cannot drop privileges");
        }
        return body();
    });
}

// A bundle folder "Tavio.app" in a temporary folder, with a folder "outside"
// beside it for what links point at.
class BundleManifestTest : public ::testing::Test {
  protected:
    void SetUp() override {
        makeDirectories(bundle() + "/Contents/MacOS");
        makeDirectories(outside());
    }

    std::string bundle() const { return temp_ / "Tavio.app"; }
    std::string outside() const { return temp_ / "outside"; }
    std::string at(const std::string& relative) const { return bundle() + "/" + relative; }

    std::optional<BundleManifest> manifest() const {
        const base::UniqueFd folder = openFolder(bundle());
        if (!folder) {
            throw std::runtime_error("cannot open the bundle");
        }
        return BundleManifest::of(folder.get());
    }

    // The usual layout: files, an empty folder, relative and absolute links.
    void makeUsualBundle() {
        writeFile(at("Contents/Info.plist"), "info");
        writeFile(at("Contents/MacOS/Tavio"), "program", 0755);
        makeDirectories(at("Contents/Resources/Empty"));
        writeFile(at("Contents/Resources/empty.txt"), "");
        makeDirectories(at("Contents/Frameworks/Core.framework/Versions/A"));
        writeFile(at("Contents/Frameworks/Core.framework/Versions/A/Core"), "core");
        makeLink("A", at("Contents/Frameworks/Core.framework/Versions/Current"));
        makeLink("/etc/hostname", at("Contents/Resources/absolute"));
        makeLink("../missing/./x", at("Contents/Resources/dangling"));
    }

    TempDir temp_;
};

TEST_F(BundleManifestTest, ListsEveryFolderFileAndLinkByRelativePath) {
    makeUsualBundle();
    BundleManifest expected;
    expected.entries = {
        {"Contents", folderEntry()},
        {"Contents/Frameworks", folderEntry()},
        {"Contents/Frameworks/Core.framework", folderEntry()},
        {"Contents/Frameworks/Core.framework/Versions", folderEntry()},
        {"Contents/Frameworks/Core.framework/Versions/A", folderEntry()},
        {"Contents/Frameworks/Core.framework/Versions/A/Core", fileEntry("core")},
        {"Contents/Frameworks/Core.framework/Versions/Current", linkEntry("A")},
        {"Contents/Info.plist", fileEntry("info")},
        {"Contents/MacOS", folderEntry()},
        {"Contents/MacOS/Tavio", fileEntry("program")},
        {"Contents/Resources", folderEntry()},
        {"Contents/Resources/Empty", folderEntry()},
        {"Contents/Resources/absolute", linkEntry("/etc/hostname")},
        {"Contents/Resources/dangling", linkEntry("../missing/./x")},
        {"Contents/Resources/empty.txt", fileEntry("")},
    };
    EXPECT_EQ(manifest(), expected);
}

TEST_F(BundleManifestTest, FileDigestsAreTheSha256OfTheirBytes) {
    std::string large(std::size_t{3} * 1024 * 1024 + 17, '\0');
    for (std::size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<char>((i * 7919) % 251);
    }
    writeFile(at("Contents/MacOS/Tavio"), large);
    const auto read = manifest();
    ASSERT_TRUE(read.has_value());
    const BundleManifest::Entry& entry = read->entries.at("Contents/MacOS/Tavio");
    EXPECT_EQ(entry.kind, BundleManifest::Entry::Kind::file);
    EXPECT_EQ(entry.digest.size(), 32u);
    EXPECT_EQ(entry.digest, testrecords::sha256(large));
    EXPECT_TRUE(entry.linkTarget.empty());
}

TEST_F(BundleManifestTest, AnEmptyBundleGivesAnEmptyManifest) {
    removeAll(bundle());
    makeDirectories(bundle());
    const auto read = manifest();
    ASSERT_TRUE(read.has_value());
    EXPECT_TRUE(read->entries.empty());
}

TEST_F(BundleManifestTest, FollowsNoLink) {
    writeFile(outside() + "/secret", "outside the bundle");
    makeDirectories(outside() + "/folder");
    writeFile(outside() + "/folder/inner", "nor this");
    makeLink(outside(), at("Contents/Resources"));
    makeLink(outside() + "/secret", at("Contents/MacOS/Tavio"));
    BundleManifest expected;
    expected.entries = {{"Contents", folderEntry()},
                        {"Contents/MacOS", folderEntry()},
                        {"Contents/MacOS/Tavio", linkEntry(outside() + "/secret")},
                        {"Contents/Resources", linkEntry(outside())}};
    EXPECT_EQ(manifest(), expected);
}

// The link is read, never opened, so a FIFO behind it neither blocks nor
// refuses the bundle.
TEST_F(BundleManifestTest, ALinkToAFifoOutsideIsJustALink) {
    ASSERT_EQ(::mkfifo((outside() + "/pipe").c_str(), 0644), 0);
    makeLink(outside() + "/pipe", at("Contents/MacOS/Tavio"));
    const auto answer = runInChild([this] {
        ::alarm(5);
        const auto read = manifest();
        return std::string(read && read->entries.size() == 3 ? "listed" : "refused");
    });
    EXPECT_EQ(answer, "listed");
}

TEST_F(BundleManifestTest, AFifoInsideRefusesTheBundleWithoutBlocking) {
    makeUsualBundle();
    ASSERT_EQ(::mkfifo(at("Contents/Resources/pipe").c_str(), 0644), 0);
    // In a child with an alarm: a walk that opened the FIFO would block and
    // be killed, giving no answer.
    const auto answer = runInChild([this] {
        ::alarm(5);
        return std::string(manifest().has_value() ? "listed" : "refused");
    });
    EXPECT_EQ(answer, "refused");
}

TEST_F(BundleManifestTest, ASocketInsideRefusesTheBundle) {
    makeUsualBundle();
    const base::UniqueFd sock(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_TRUE(sock);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = at("Contents/MacOS/socket");
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(::bind(sock.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_FALSE(manifest().has_value());
}

TEST_F(BundleManifestTest, AFileThatCannotBeReadRefusesTheBundle) {
    makeUsualBundle();
    const auto answer = [this] {
        return std::string(manifest().has_value() ? "listed" : "refused");
    };
    ASSERT_EQ(asAnotherUser(answer), "listed");
    ASSERT_EQ(::chmod(at("Contents/MacOS/Tavio").c_str(), 0), 0);
    EXPECT_EQ(asAnotherUser(answer), "refused");
}

TEST_F(BundleManifestTest, LeavesTheBundleDescriptorOpenAndUsable) {
    makeUsualBundle();
    const base::UniqueFd folder = openFolder(bundle());
    ASSERT_TRUE(folder);
    const auto first = BundleManifest::of(folder.get());
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(::fcntl(folder.get(), F_GETFD), FD_CLOEXEC);
    // A second reading through the same descriptor sees the same bundle.
    EXPECT_EQ(BundleManifest::of(folder.get()), first);
}

// What stillHolds() is given by its caller: the entry's folder, open, and
// its lstat.
struct Examined {
    base::UniqueFd folder;
    std::string name;
    struct stat status {};
};

Examined examine(const std::string& folder, const std::string& name) {
    Examined examined{openFolder(folder), name, {}};
    if (!examined.folder || ::fstatat(examined.folder.get(), name.c_str(), &examined.status,
                                      AT_SYMLINK_NOFOLLOW) != 0) {
        throw std::runtime_error("cannot examine " + folder + "/" + name);
    }
    return examined;
}

class StillHoldsTest : public BundleManifestTest {
  protected:
    void SetUp() override {
        BundleManifestTest::SetUp();
        makeUsualBundle();
        const auto read = manifest();
        ASSERT_TRUE(read.has_value());
        manifest_ = *read;
    }

    // Whether the manifest still holds the entry at `relative` in the bundle.
    bool holds(const std::string& relative) const {
        const std::size_t slash = relative.rfind('/');
        const std::string folder =
            slash == std::string::npos ? bundle() : bundle() + "/" + relative.substr(0, slash);
        const std::string name = slash == std::string::npos ? relative : relative.substr(slash + 1);
        const Examined examined = examine(folder, name);
        return manifest_.stillHolds(relative, examined.folder.get(), name, examined.status);
    }

    BundleManifest manifest_;
};

TEST_F(StillHoldsTest, EveryEntryOfAnUntouchedBundleHolds) {
    for (const auto& [path, entry] : manifest_.entries) {
        EXPECT_TRUE(holds(path)) << path;
    }
}

TEST_F(StillHoldsTest, AFileWithOtherBytesOfTheSameSizeDoesNot) {
    writeFile(at("Contents/MacOS/Tavio"), "PROGRAM", 0755);
    EXPECT_FALSE(holds("Contents/MacOS/Tavio"));
    EXPECT_TRUE(holds("Contents/Info.plist"));
}

TEST_F(StillHoldsTest, AFileWithTheSameBytesRewrittenStillHolds) {
    ASSERT_EQ(::unlink(at("Contents/MacOS/Tavio").c_str()), 0);
    writeFile(at("Contents/MacOS/Tavio"), "program", 0600);
    EXPECT_TRUE(holds("Contents/MacOS/Tavio"));
}

TEST_F(StillHoldsTest, AFileThatGrewDoesNot) {
    writeFile(at("Contents/Info.plist"), "info and more");
    EXPECT_FALSE(holds("Contents/Info.plist"));
}

TEST_F(StillHoldsTest, AFileNotListedDoesNot) {
    writeFile(at("Contents/MacOS/added"), "program");
    EXPECT_FALSE(holds("Contents/MacOS/added"));
}

TEST_F(StillHoldsTest, AListedFileAskedForUnderAnotherPathDoesNot) {
    // The same bytes, the same folder: only the path it was listed at counts.
    const Examined examined = examine(at("Contents"), "Info.plist");
    EXPECT_FALSE(manifest_.stillHolds("Contents/Info", examined.folder.get(), "Info.plist",
                                      examined.status));
    EXPECT_TRUE(manifest_.stillHolds("Contents/Info.plist", examined.folder.get(), "Info.plist",
                                     examined.status));
}

TEST_F(StillHoldsTest, AFolderWhereAFileWasListedDoesNot) {
    ASSERT_EQ(::unlink(at("Contents/Info.plist").c_str()), 0);
    makeDirectories(at("Contents/Info.plist"));
    EXPECT_FALSE(holds("Contents/Info.plist"));
}

TEST_F(StillHoldsTest, AFileWhereAFolderWasListedDoesNot) {
    removeAll(at("Contents/Resources/Empty"));
    writeFile(at("Contents/Resources/Empty"), "");
    EXPECT_FALSE(holds("Contents/Resources/Empty"));
}

TEST_F(StillHoldsTest, AnotherFolderInPlaceOfAListedFolderHolds) {
    removeAll(at("Contents/Resources/Empty"));
    makeDirectories(at("Contents/Resources/Empty"));
    EXPECT_TRUE(holds("Contents/Resources/Empty"));
}

TEST_F(StillHoldsTest, ALinkWithAnotherTargetDoesNot) {
    const std::string link = at("Contents/Frameworks/Core.framework/Versions/Current");
    ASSERT_EQ(::unlink(link.c_str()), 0);
    makeLink("./A", link);
    EXPECT_FALSE(holds("Contents/Frameworks/Core.framework/Versions/Current"));
}

TEST_F(StillHoldsTest, ALinkMadeAgainWithTheSameTargetHolds) {
    const std::string link = at("Contents/Frameworks/Core.framework/Versions/Current");
    ASSERT_EQ(::unlink(link.c_str()), 0);
    makeLink("A", link);
    EXPECT_TRUE(holds("Contents/Frameworks/Core.framework/Versions/Current"));
}

// A link to a file with exactly the listed bytes is still not that file.
TEST_F(StillHoldsTest, ALinkWhereAFileWasListedDoesNot) {
    writeFile(outside() + "/copy", "program");
    ASSERT_EQ(::unlink(at("Contents/MacOS/Tavio").c_str()), 0);
    makeLink(outside() + "/copy", at("Contents/MacOS/Tavio"));
    EXPECT_FALSE(holds("Contents/MacOS/Tavio"));
}

TEST_F(StillHoldsTest, AFileWhereALinkWasListedDoesNot) {
    const std::string link = at("Contents/Frameworks/Core.framework/Versions/Current");
    ASSERT_EQ(::unlink(link.c_str()), 0);
    writeFile(link, "A");
    EXPECT_FALSE(holds("Contents/Frameworks/Core.framework/Versions/Current"));
}

TEST_F(StillHoldsTest, AFolderWhereALinkWasListedDoesNot) {
    const std::string link = at("Contents/Resources/dangling");
    ASSERT_EQ(::unlink(link.c_str()), 0);
    makeDirectories(link);
    EXPECT_FALSE(holds("Contents/Resources/dangling"));
}

TEST_F(StillHoldsTest, AFifoWhereAFileWasListedDoesNotAndIsNotOpened) {
    ASSERT_EQ(::unlink(at("Contents/MacOS/Tavio").c_str()), 0);
    ASSERT_EQ(::mkfifo(at("Contents/MacOS/Tavio").c_str(), 0644), 0);
    const auto answer = runInChild([this] {
        ::alarm(5);
        return std::string(holds("Contents/MacOS/Tavio") ? "holds" : "does not");
    });
    EXPECT_EQ(answer, "does not");
}

TEST_F(StillHoldsTest, AFileThatCannotBeReadDoesNot) {
    const auto answer = [this] {
        return std::string(holds("Contents/Info.plist") ? "holds" : "does not");
    };
    ASSERT_EQ(asAnotherUser(answer), "holds");
    ASSERT_EQ(::chmod(at("Contents/Info.plist").c_str(), 0), 0);
    EXPECT_EQ(asAnotherUser(answer), "does not");
}

// The caller's lstat must describe the file that is read: a file swapped in
// after it was examined is not taken for the one examined.
TEST_F(StillHoldsTest, AFileReplacedAfterItWasExaminedDoesNot) {
    const Examined examined = examine(at("Contents/MacOS"), "Tavio");
    writeFile(at("Contents/MacOS/other"), "program");
    ASSERT_EQ(::rename(at("Contents/MacOS/other").c_str(), at("Contents/MacOS/Tavio").c_str()), 0);
    EXPECT_FALSE(manifest_.stillHolds("Contents/MacOS/Tavio", examined.folder.get(), "Tavio",
                                      examined.status));
}

// The stored form: toNode() and fromNode().

using testrecords::Node;
using testrecords::owned;

plist_t entryNode(const char* key, plist_t value) {
    plist_t entry = plist_new_dict();
    plist_dict_set_item(entry, key, value);
    return entry;
}

// A manifest node holding the sample's entries and `path` = `value`.
Node sampleNodeWith(const char* path, plist_t value) {
    Node node = owned(testrecords::sampleManifest().toNode());
    plist_dict_set_item(node.get(), path, value);
    return node;
}

TEST(BundleManifestNodeTest, AManifestReadsBackEqualFromItsNode) {
    const BundleManifest manifest = testrecords::sampleManifest();
    const Node node = owned(manifest.toNode());
    EXPECT_EQ(BundleManifest::fromNode(node.get()), manifest);
}

// The one key of the entry `path` in a manifest node, and its value.
std::pair<std::string, plist_t> onlyItemOf(plist_t manifest, const char* path) {
    const plist_t entry = plist_dict_get_item(manifest, path);
    std::pair<std::string, plist_t> item{"", nullptr};
    if (entry == nullptr || plist_get_node_type(entry) != PLIST_DICT ||
        plist_dict_get_size(entry) != 1) {
        return item;
    }
    target::PropertyList::forEachEntry(entry, [&](const char* key, plist_t value) {
        item = {key != nullptr ? key : "", value};
    });
    return item;
}

TEST(BundleManifestNodeTest, EachKindIsStoredAsADictionaryWithOneKey) {
    BundleManifest manifest;
    manifest.entries = {{"Contents", folderEntry()},
                        {"Contents/Info.plist", fileEntry("info")},
                        {"Contents/Current", linkEntry("../A")}};
    const Node node = owned(manifest.toNode());
    ASSERT_EQ(plist_get_node_type(node.get()), PLIST_DICT);
    EXPECT_EQ(plist_dict_get_size(node.get()), 3u);
    const auto [folderKey, folder] = onlyItemOf(node.get(), "Contents");
    EXPECT_EQ(folderKey, "folder");
    std::uint8_t set = 0;
    plist_get_bool_val(folder, &set);
    EXPECT_EQ(set, 1);
    const auto [fileKey, file] = onlyItemOf(node.get(), "Contents/Info.plist");
    EXPECT_EQ(fileKey, "hash2");
    EXPECT_EQ(target::PropertyList::dataOf(file), testrecords::sha256("info"));
    const auto [linkKey, link] = onlyItemOf(node.get(), "Contents/Current");
    EXPECT_EQ(linkKey, "symlink");
    EXPECT_EQ(target::PropertyList::stringOf(link), "../A");
}

TEST(BundleManifestNodeTest, AnEmptyManifestReadsBackEmpty) {
    const Node node = owned(BundleManifest{}.toNode());
    const auto read = BundleManifest::fromNode(node.get());
    ASSERT_TRUE(read.has_value());
    EXPECT_TRUE(read->entries.empty());
}

TEST(BundleManifestNodeTest, NoNodeOrANodeOtherThanADictionaryGivesNothing) {
    EXPECT_FALSE(BundleManifest::fromNode(nullptr).has_value());
    const Node array = owned(plist_new_array());
    EXPECT_FALSE(BundleManifest::fromNode(array.get()).has_value());
    const Node text = owned(plist_new_string("Contents"));
    EXPECT_FALSE(BundleManifest::fromNode(text.get()).has_value());
}

TEST(BundleManifestNodeTest, TheSampleWithAnotherGoodEntryStillReads) {
    const Node node = sampleNodeWith("Contents/Resources", entryNode("folder", plist_new_bool(1)));
    const auto read = BundleManifest::fromNode(node.get());
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->entries.size(), 6u);
    EXPECT_EQ(read->entries.at("Contents/Resources"), folderEntry());
}

// One bad entry among good ones makes the whole manifest unreadable.
TEST(BundleManifestNodeTest, AnEntryOfAnUnknownShapeGivesNothing) {
    const std::string digest = testrecords::sha256("x");
    const auto shapes = std::vector<std::function<plist_t()>>{
        [] { return entryNode("directory", plist_new_bool(1)); },
        [] { return entryNode("folder", plist_new_bool(0)); },
        [] { return entryNode("folder", plist_new_string("yes")); },
        [] { return entryNode("symlink", plist_new_string("")); },
        [] { return entryNode("symlink", plist_new_data("A", 1)); },
        [&] { return entryNode("hash2", plist_new_data(digest.data(), 31)); },
        [&] { return entryNode("hash2", plist_new_string(digest.substr(0, 16).c_str())); },
        [] { return plist_new_dict(); },
        [] { return plist_new_bool(1); },
        [] { return plist_new_string("folder"); },
        [] {
            plist_t entry = entryNode("folder", plist_new_bool(1));
            plist_dict_set_item(entry, "symlink", plist_new_string("A"));
            return entry;
        },
    };
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        const Node node = sampleNodeWith("Contents/Resources", shapes[i]());
        EXPECT_FALSE(BundleManifest::fromNode(node.get()).has_value()) << "shape " << i;
    }
}

TEST(BundleManifestNodeTest, ADigestOfThirtyThreeBytesGivesNothing) {
    const std::string digest = testrecords::sha256("x") + "!";
    const Node node =
        sampleNodeWith("Contents/x", entryNode("hash2", plist_new_data(digest.data(), 33)));
    EXPECT_FALSE(BundleManifest::fromNode(node.get()).has_value());
}

TEST(BundleManifestNodeTest, AnEmptyPathGivesNothing) {
    const Node node = sampleNodeWith("", entryNode("folder", plist_new_bool(1)));
    EXPECT_FALSE(BundleManifest::fromNode(node.get()).has_value());
}

}  // namespace
