#include "Canaries.h"

#include <sstream>
#include <string_view>

#include "Footprint.h"
#include "Planter.h"
#include "Plists.h"

namespace footprint {
namespace {

// The manifest names each canary relative to one of two roots, so that the
// two folders can be checked wherever they are.
constexpr const char* kHome = "home";
constexpr const char* kApplications = "applications";

struct Canary {
    const char* root;
    const char* path;
    std::size_t size;  // 0: the content is given below
    const char* content = nullptr;
    mode_t mode = 0644;
};

const Canary kCanaries[] = {
    {kHome, "Downloads/ubuntu-24.04-desktop-amd64.iso.torrent", 24 * 1024},
    {kHome, "Downloads/Public Domain Film 00.torrent", 8 * 1024},
    {kHome, "Downloads/Public Domain Film 00.mkv", 384 * 1024},
    {kHome, "Movies/Tavio/Night of the Living Dead (1968).mkv", 512 * 1024},
    {kHome, "Movies/Tavio/Exports/clip-0001.mp4", 128 * 1024},
    {kHome, "Documents/Tavio Exports/playlist.m3u8", 0,
     "#EXTM3U\n#EXTINF:5400,Night of the Living Dead\n../../Movies/Tavio/"
     "Night of the Living Dead (1968).mkv\n"},
    {kHome, "Library/Application Support/org.example.Other/settings.json", 0,
     "{\"theme\": \"dark\"}\n"},
    {kHome, "Library/Application Support/org.example.Other/History/Torrents/other.torrent",
     4 * 1024},
    {kHome, "Library/Caches/org.example.Other/cache.bin", 64 * 1024},
    {kHome, "Library/Logs/org.example.Other/other.log", 0, "started\n"},
    {kHome, "Library/Preferences/org.example.Other.plist", 0, nullptr},
    {kApplications, "Other Player.app/Contents/Info.plist", 0, nullptr},
    {kApplications, "Other Player.app/Contents/MacOS/OtherPlayer", 96 * 1024, nullptr, 0755},
};

std::string contentOf(const Canary& canary) {
    const std::string path = canary.path;
    if (canary.content != nullptr) {
        return canary.content;
    }
    if (path.ends_with(".plist")) {
        const bool app = path.starts_with("Other Player.app");
        const Plist plist = dictionary({
            {"CFBundleIdentifier", plist_new_string("org.example.Other")},
            {app ? "CFBundleExecutable" : "LastOpened", plist_new_string("OtherPlayer")},
        });
        return serialize(plist, app ? PlistFormat::xml : PlistFormat::binary);
    }
    return deterministicBytes(path, canary.size);
}

std::string parentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

}  // namespace

std::string defaultManifestPath(const std::string& home) {
    return home + "/.tavio-footprint-canaries";
}

Error plantCanaries(const std::string& home,
                    const std::string& applications,
                    const std::string& manifestPath) {
    PlantedFootprint counted;
    Planter p(counted);
    std::string manifest;
    for (const Canary& canary : kCanaries) {
        const std::string root = std::string_view(canary.root) == kHome ? home : applications;
        const std::string path = root + "/" + canary.path;
        const std::string bytes = contentOf(canary);
        p.directory(parentOf(path));
        p.file(path, bytes, canary.mode);
        manifest += sha256Hex(bytes) + " " + canary.root + " " + canary.path + "\n";
    }
    p.file(manifestPath, manifest);
    return p.error();
}

std::variant<CanaryCheck, std::string> checkCanaries(const std::string& home,
                                                     const std::string& applications,
                                                     const std::string& manifestPath) {
    const auto manifest = readFile(manifestPath);
    if (!manifest) {
        return "cannot read the canary manifest " + manifestPath;
    }
    CanaryCheck check;
    std::istringstream lines(*manifest);
    std::string line;
    std::size_t count = 0;
    while (std::getline(lines, line)) {
        // "<sha256> <root> <path>": the path is the rest of the line and may
        // hold spaces.
        const std::size_t first = line.find(' ');
        const std::size_t second = first == std::string::npos ? first : line.find(' ', first + 1);
        if (first != 64 || second == std::string::npos || second + 1 >= line.size()) {
            return "malformed line in the canary manifest: " + line;
        }
        const std::string root = line.substr(first + 1, second - first - 1);
        if (root != kHome && root != kApplications) {
            return "unknown root in the canary manifest: " + root;
        }
        const std::string path =
            (root == kHome ? home : applications) + "/" + line.substr(second + 1);
        const auto bytes = readFile(path);
        if (!bytes) {
            check.missing.push_back(path);
        } else if (sha256Hex(*bytes) != line.substr(0, 64)) {
            check.changed.push_back(path);
        }
        ++count;
    }
    if (count == 0) {
        return "the canary manifest " + manifestPath + " lists no canaries";
    }
    return check;
}

}  // namespace footprint
