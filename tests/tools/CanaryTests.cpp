#include <gtest/gtest.h>
#include <unistd.h>

#include "Canaries.h"
#include "Files.h"
#include "Footprint.h"
#include "TempDir.h"

namespace {

using footprint::CanaryCheck;

class CanaryTest : public ::testing::Test {
  protected:
    testsupport::TempDir temp;
    const std::string home = temp / "home";
    const std::string applications = temp / "Applications";
    const std::string manifest = footprint::defaultManifestPath(home);

    void SetUp() override {
        if (const auto error = footprint::plantCanaries(home, applications, manifest)) {
            throw std::runtime_error(*error);
        }
    }

    CanaryCheck check() const {
        auto result = footprint::checkCanaries(home, applications, manifest);
        if (auto* error = std::get_if<std::string>(&result)) {
            throw std::runtime_error(*error);
        }
        return std::get<CanaryCheck>(result);
    }
};

TEST_F(CanaryTest, UntouchedCanariesPass) {
    const CanaryCheck result = check();

    EXPECT_TRUE(result.passed());
    EXPECT_TRUE(result.missing.empty());
    EXPECT_TRUE(result.changed.empty());
}

TEST_F(CanaryTest, CanariesIncludeTheUsersTorrentsMediaExportsAndOtherApps) {
    EXPECT_TRUE(testsupport::exists(home + "/Downloads/ubuntu-24.04-desktop-amd64.iso.torrent"));
    EXPECT_TRUE(testsupport::exists(home + "/Movies/Tavio/Night of the Living Dead (1968).mkv"));
    EXPECT_TRUE(testsupport::exists(home + "/Documents/Tavio Exports/playlist.m3u8"));
    EXPECT_TRUE(
        testsupport::exists(home + "/Library/Application Support/org.example.Other/settings.json"));
    EXPECT_TRUE(testsupport::exists(applications + "/Other Player.app/Contents/Info.plist"));
}

TEST_F(CanaryTest, ChangedCanaryIsReported) {
    const std::string path = home + "/Downloads/Public Domain Film 00.torrent";
    std::string bytes = testsupport::readFile(path);
    bytes[bytes.size() / 2] ^= 0x01;  // one bit, same size
    testsupport::writeFile(path, bytes);

    const CanaryCheck result = check();

    EXPECT_FALSE(result.passed());
    EXPECT_EQ(result.changed, std::vector<std::string>{path});
    EXPECT_TRUE(result.missing.empty());
}

TEST_F(CanaryTest, MissingCanaryIsReported) {
    const std::string path = applications + "/Other Player.app/Contents/MacOS/OtherPlayer";
    ASSERT_EQ(::unlink(path.c_str()), 0);

    const CanaryCheck result = check();

    EXPECT_FALSE(result.passed());
    EXPECT_EQ(result.missing, std::vector<std::string>{path});
}

TEST_F(CanaryTest, CanaryReplacedByALinkToTheSameBytesIsReportedMissing) {
    const std::string path = home + "/Library/Caches/org.example.Other/cache.bin";
    const std::string moved = temp / "cache.bin";
    ASSERT_EQ(::rename(path.c_str(), moved.c_str()), 0);
    testsupport::makeLink(moved, path);

    EXPECT_EQ(check().missing, std::vector<std::string>{path});
}

TEST_F(CanaryTest, UnreadableManifestIsAnErrorNotAPass) {
    ASSERT_EQ(::unlink(manifest.c_str()), 0);

    const auto result = footprint::checkCanaries(home, applications, manifest);

    EXPECT_TRUE(std::holds_alternative<std::string>(result));
}

TEST_F(CanaryTest, MalformedManifestIsAnErrorNotAPass) {
    testsupport::writeFile(manifest, "not a manifest\n");

    const auto result = footprint::checkCanaries(home, applications, manifest);

    EXPECT_TRUE(std::holds_alternative<std::string>(result));
}

// Whatever an uninstall removes of the product must never hold a canary.
TEST_F(CanaryTest, NoCanaryLiesInsideAProductLocation) {
    footprint::FootprintOptions options;
    options.home = home;
    options.applications = applications;
    options.playerPath = TAVIO_PLAYER_PATH;
    options.hostID = "0123456789abcdef0123456789abcdef";
    options.appSizeMB = 0;
    options.cacheFiles = 10;
    options.largeCacheFiles = 0;
    auto planted = footprint::plantFootprint(options);
    ASSERT_TRUE(std::holds_alternative<footprint::PlantedFootprint>(planted));

    const std::string listed = testsupport::readFile(manifest);
    for (const std::string& location : std::get<footprint::PlantedFootprint>(planted).locations) {
        const std::string relative =
            location.substr(location.find('/', temp.path().size() + 1) + 1);
        EXPECT_EQ(listed.find(" " + relative), std::string::npos) << relative;
    }
    EXPECT_TRUE(check().passed());
}

}  // namespace
