#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>

#include "Canaries.h"
#include "Files.h"
#include "Footprint.h"
#include "TempDir.h"
#include "platform/linux/BundleSeal.h"
#include "target/PropertyList.h"

namespace {

using footprint::FootprintOptions;
using footprint::PlantedFootprint;

constexpr const char* kIdentifier = "io.tavio.Tavio";

// Everything below `root`: relative path to SHA-256 for files, to "-> target"
// for links, to "/" for folders.
void describeTree(const std::string& root,
                  const std::string& relative,
                  std::map<std::string, std::string>& tree) {
    for (const std::string& name : testsupport::listNames(root + "/" + relative)) {
        const std::string path = relative.empty() ? name : relative + "/" + name;
        const std::string full = root + "/" + path;
        if (testsupport::isLink(full)) {
            char target[4096] = {};
            (void)::readlink(full.c_str(), target, sizeof target - 1);
            tree[path] = std::string("-> ") + target;
        } else if (testsupport::isDirectory(full)) {
            tree[path] = "/";
            describeTree(root, path, tree);
        } else {
            tree[path] = footprint::sha256Hex(testsupport::readFile(full));
        }
    }
}

std::uint64_t bytesBelow(const std::string& path) {
    std::map<std::string, std::string> tree;
    describeTree(path, "", tree);
    std::uint64_t total = 0;
    for (const auto& [relative, what] : tree) {
        struct stat st {};
        if (what.size() == 64 && ::lstat((path + "/" + relative).c_str(), &st) == 0) {
            total += static_cast<std::uint64_t>(st.st_size);
        }
    }
    return total;
}

std::size_t filesBelow(const std::string& path) {
    std::map<std::string, std::string> tree;
    describeTree(path, "", tree);
    return static_cast<std::size_t>(std::count_if(
        tree.begin(), tree.end(), [](const auto& entry) { return entry.second.size() == 64; }));
}

class FootprintTest : public ::testing::Test {
  protected:
    testsupport::TempDir temp;
    FootprintOptions options = smallOptions(temp / "home", temp / "Applications");

    static FootprintOptions smallOptions(const std::string& home, const std::string& apps) {
        FootprintOptions o;
        o.home = home;
        o.applications = apps;
        o.playerPath = TAVIO_PLAYER_PATH;
        o.hostID = "0123456789abcdef0123456789abcdef";
        o.appSizeMB = 2;
        o.cacheFiles = 150;
        o.largeCacheFiles = 2;
        o.largeCacheFileMB = 1;
        return o;
    }

    PlantedFootprint plant(const FootprintOptions& o) {
        auto result = footprint::plantFootprint(o);
        if (auto* error = std::get_if<std::string>(&result)) {
            throw std::runtime_error(*error);
        }
        return std::get<PlantedFootprint>(result);
    }

    std::string library(const std::string& relative) const {
        return options.home + "/Library/" + relative;
    }
};

TEST_F(FootprintTest, PlantsEveryLocationOfTheProductInUninstallOrder) {
    const PlantedFootprint planted = plant(options);

    const std::string id = kIdentifier;
    const std::vector<std::string> expected{
        library("Preferences/" + id + ".plist"),
        library("Application Support/" + id + "/History/Torrents"),
        library("Application Support/" + id + "/History"),
        library("Application Support/" + id),
        library("Caches/" + id),
        library("HTTPStorages/" + id),
        library("Logs/" + id),
        library("Saved Application State/" + id + ".savedState"),
        library("Preferences/ByHost/" + id + "." + options.hostID + ".plist"),
        options.applications + "/Tavio.app",
    };
    EXPECT_EQ(planted.locations, expected);
    for (const std::string& location : expected) {
        EXPECT_TRUE(testsupport::exists(location)) << location;
    }
    EXPECT_EQ(planted.files, filesBelow(options.home) + filesBelow(options.applications));
    EXPECT_EQ(planted.bytes, bytesBelow(options.home) + bytesBelow(options.applications));
}

TEST_F(FootprintTest, PreferencesAreOneXmlAndOneBinaryPerHostFile) {
    plant(options);
    const std::string xml =
        testsupport::readFile(library(std::string("Preferences/") + kIdentifier + ".plist"));
    const std::string binary = testsupport::readFile(library(
        std::string("Preferences/ByHost/") + kIdentifier + "." + options.hostID + ".plist"));

    EXPECT_TRUE(xml.starts_with("<?xml"));
    EXPECT_TRUE(binary.starts_with("bplist00"));
    EXPECT_FALSE(target::PropertyList::parse(xml)->keys().empty());
    EXPECT_FALSE(target::PropertyList::parse(binary)->keys().empty());
}

TEST_F(FootprintTest, CacheHoldsTheRequestedNumberOfSmallFilesAndTheLargeOnes) {
    plant(options);
    const std::string cache = library(std::string("Caches/") + kIdentifier);

    std::size_t thumbnails = 0;
    for (const std::string& bucket : testsupport::listNames(cache + "/Thumbnails")) {
        thumbnails += testsupport::listNames(cache + "/Thumbnails/" + bucket).size();
    }
    EXPECT_EQ(thumbnails, 150u);
    const auto streams = testsupport::listNames(cache + "/Streams");
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(testsupport::readFile(cache + "/Streams/" + streams[0]).size(), 1u << 20);
}

TEST_F(FootprintTest, TorrentCopiesAreBencodedTorrents) {
    plant(options);
    const std::string torrents =
        library(std::string("Application Support/") + kIdentifier + "/History/Torrents");

    const auto names = testsupport::listNames(torrents);
    EXPECT_EQ(names.size(), options.torrentCopies);
    for (const std::string& name : names) {
        EXPECT_TRUE(name.ends_with(".torrent")) << name;
        const std::string bytes = testsupport::readFile(torrents + "/" + name);
        EXPECT_TRUE(bytes.starts_with("d8:announce")) << name;
        EXPECT_TRUE(bytes.ends_with("ee")) << name;
    }
}

TEST_F(FootprintTest, AppBundleDeclaresTheProductAndRunsThePlayer) {
    plant(options);
    const std::string contents = options.applications + "/Tavio.app/Contents";

    auto info = target::PropertyList::parse(testsupport::readFile(contents + "/Info.plist"));
    ASSERT_TRUE(info.has_value());
    EXPECT_EQ(info->stringValue("CFBundleIdentifier"), kIdentifier);
    EXPECT_EQ(info->stringValue("CFBundleExecutable"), "Tavio");
    EXPECT_EQ(testsupport::readFile(contents + "/MacOS/Tavio"),
              testsupport::readFile(TAVIO_PLAYER_PATH));
    struct stat st {};
    ASSERT_EQ(::stat((contents + "/MacOS/Tavio").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0755u);
}

TEST_F(FootprintTest, AppBundleIsSealedForTheIdentifier) {
    plant(options);
    const std::string bundle = options.applications + "/Tavio.app";

    EXPECT_TRUE(platform::sealIsValid(bundle, kIdentifier));
    EXPECT_FALSE(platform::sealIsValid(bundle, "io.tavio.TavioBeta"));
}

TEST_F(FootprintTest, SealCoversEveryPlantedFileSoAChangeBreaksIt) {
    plant(options);
    const std::string bundle = options.applications + "/Tavio.app";
    testsupport::writeFile(bundle + "/Contents/Resources/en.lproj/Localizable.strings", "changed");

    EXPECT_FALSE(platform::sealIsValid(bundle, kIdentifier));
}

TEST_F(FootprintTest, NoSealLeavesTheAppUnsealed) {
    options.seal = false;
    plant(options);
    const std::string bundle = options.applications + "/Tavio.app";

    EXPECT_FALSE(testsupport::exists(bundle + "/Contents/_CodeSignature"));
    EXPECT_FALSE(platform::sealIsValid(bundle, kIdentifier));
}

TEST_F(FootprintTest, AppBundleHasAboutTheRequestedSize) {
    options.appSizeMB = 3;
    plant(options);

    const std::uint64_t size = bytesBelow(options.applications + "/Tavio.app");
    EXPECT_GE(size, 3u << 20);
    EXPECT_LT(size, (3u << 20) + (64u << 10));
}

TEST_F(FootprintTest, AppBundleLinksAreRelativeAndStayInside) {
    plant(options);
    const std::string framework =
        options.applications + "/Tavio.app/Contents/Frameworks/TavioCore.framework";

    EXPECT_TRUE(testsupport::isLink(framework + "/Versions/Current"));
    EXPECT_TRUE(testsupport::isLink(framework + "/TavioCore"));
    // Followed, the links reach the real library inside the bundle.
    EXPECT_EQ(testsupport::readFile(framework + "/TavioCore"),
              testsupport::readFile(framework + "/Versions/A/TavioCore"));
}

TEST_F(FootprintTest, NoAppMeansNoBundle) {
    options.app = false;
    const PlantedFootprint planted = plant(options);

    EXPECT_FALSE(testsupport::exists(options.applications + "/Tavio.app"));
    EXPECT_NE(planted.locations.back(), options.applications + "/Tavio.app");
}

TEST_F(FootprintTest, OtherIdentifierNamesEveryLocation) {
    options.identifier = "io.tavio.TavioBeta";
    plant(options);

    EXPECT_TRUE(testsupport::exists(library("Caches/io.tavio.TavioBeta")));
    EXPECT_FALSE(testsupport::exists(library(std::string("Caches/") + kIdentifier)));
    auto info = target::PropertyList::parse(
        testsupport::readFile(options.applications + "/Tavio.app/Contents/Info.plist"));
    EXPECT_EQ(info->stringValue("CFBundleIdentifier"), "io.tavio.TavioBeta");
}

TEST_F(FootprintTest, PlantingIsDeterministic) {
    const FootprintOptions second = smallOptions(temp / "home2", temp / "Applications2");
    plant(options);
    plant(second);

    std::map<std::string, std::string> first;
    std::map<std::string, std::string> again;
    describeTree(options.home, "", first);
    describeTree(second.home, "", again);
    EXPECT_EQ(first, again);
    first.clear();
    again.clear();
    describeTree(options.applications, "", first);
    describeTree(second.applications, "", again);
    EXPECT_EQ(first, again);
}

TEST_F(FootprintTest, MissingPlayerIsReportedNotPlanted) {
    options.playerPath = temp / "no-such-player";

    const auto result = footprint::plantFootprint(options);

    ASSERT_TRUE(std::holds_alternative<std::string>(result));
    EXPECT_NE(std::get<std::string>(result).find("no-such-player"), std::string::npos);
    EXPECT_FALSE(testsupport::exists(options.applications + "/Tavio.app"));
}

}  // namespace
