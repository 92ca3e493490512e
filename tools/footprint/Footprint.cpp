// The product's data in the user's Library, laid out as the player writes it.
// Sizes and counts are chosen to look like a few weeks of use: a handful of
// preference files, a dozen remembered torrents, thousands of thumbnails and
// a few partial stream downloads in the cache.
#include "Footprint.h"

#include <cstdio>

#include "Planter.h"
#include "Plists.h"

namespace footprint {
namespace {

std::string numbered(const char* format, std::size_t n) {
    char name[64];
    std::snprintf(name, sizeof name, format, n);
    return name;
}

// A small but well-formed bencoded torrent, as the player keeps a copy of
// each torrent it opened.
std::string torrentBytes(std::size_t n) {
    const std::string name = numbered("Public Domain Film %02zu.mkv", n);
    const std::string pieces = deterministicBytes(name, 20 * (4 + n % 5));
    const std::string announce = "http://tracker.example.org:6969/announce";
    return "d8:announce" + std::to_string(announce.size()) + ":" + announce + "4:infod6:lengthi" +
           std::to_string(1'048'576 * (n + 1)) + "e4:name" + std::to_string(name.size()) + ":" +
           name + "12:piece lengthi262144e6:pieces" + std::to_string(pieces.size()) + ":" + pieces +
           "ee";
}

bool plantPreferences(Planter& p, const FootprintOptions& o, const std::string& library) {
    const std::string folder = library + "/Preferences";
    const Plist settings = dictionary({
        {"NSWindow Frame TavioMainWindow", plist_new_string("120 80 1280 760 0 0 1920 1055 ")},
        {"Volume", plist_new_real(0.8)},
        {"SubtitleLanguage", plist_new_string("en")},
        {"DownloadRateLimit", plist_new_uint(0)},
        {"ShowPlaylist", plist_new_bool(1)},
        {"LastVersion", plist_new_string("2.4.1")},
    });
    p.directory(folder, 0700);
    p.file(folder + "/" + o.identifier + ".plist", serialize(settings, PlistFormat::xml), 0600);
    p.location(folder + "/" + o.identifier + ".plist");
    if (o.hostID.empty()) {
        return p.ok();
    }
    const Plist perHost = dictionary({
        {"AudioOutputDevice", plist_new_string("BuiltInSpeakerDevice")},
        {"DisplayScale", plist_new_real(2.0)},
    });
    const std::string byHost = folder + "/ByHost";
    const std::string file = byHost + "/" + o.identifier + "." + o.hostID + ".plist";
    p.directory(byHost, 0700);
    p.file(file, serialize(perHost, PlistFormat::binary), 0600);
    return p.ok();
}

bool plantHistory(Planter& p, const FootprintOptions& o, const std::string& support) {
    const std::string history = support + "/History";
    p.directory(history + "/Torrents", 0700);
    for (std::size_t n = 0; n < o.torrentCopies; ++n) {
        p.file(history + "/Torrents/" + sha256Hex(torrentBytes(n)).substr(0, 40) + ".torrent",
               torrentBytes(n));
    }
    std::string entries = "[\n";
    const Plist positions(plist_new_dict());
    for (std::size_t n = 0; n < o.torrentCopies; ++n) {
        const std::string title = numbered("Public Domain Film %02zu", n);
        entries += "  {\"title\": \"" + title +
                   "\", \"watchedAt\": " + std::to_string(1'700'000'000 + n * 86'400) + "}";
        entries += n + 1 < o.torrentCopies ? ",\n" : "\n";
        plist_dict_set_item(positions.get(), title.c_str(), plist_new_real(37.5 * (n + 1)));
    }
    p.file(history + "/history.json", entries + "]\n");
    p.file(history + "/Positions.plist", serialize(positions, PlistFormat::binary));
    p.directory(support + "/Subtitles");
    p.file(support + "/Subtitles/Public Domain Film 00.en.srt",
           "1\n00:00:01,000 --> 00:00:04,000\nHello.\n");
    p.location(history + "/Torrents");
    p.location(history);
    p.location(support);
    return p.ok();
}

bool plantCaches(Planter& p, const FootprintOptions& o, const std::string& cache) {
    p.directory(cache + "/Thumbnails");
    for (std::size_t n = 0; n < o.cacheFiles && p.ok(); ++n) {
        const std::string bucket = numbered("Thumbnails/%02zx", n % 64);
        if (n < 64) {
            p.directory(cache + "/" + bucket);
        }
        p.noise(cache, bucket + numbered("/%06zu.jpg", n), 512 + (n * 977) % 3584);
    }
    p.directory(cache + "/Streams");
    for (std::size_t n = 0; n < o.largeCacheFiles; ++n) {
        p.noise(cache, numbered("Streams/stream-%02zu.part", n), o.largeCacheFileMB << 20);
    }
    p.noise(cache, "Cache.db", 96 * 1024);
    p.location(cache);
    return p.ok();
}

bool plantStorageLogsAndState(Planter& p, const FootprintOptions& o, const std::string& library) {
    const std::string storage = library + "/HTTPStorages/" + o.identifier;
    p.directory(storage);
    p.file(storage + "/httpstorages.sqlite",
           std::string("SQLite format 3", 16) + deterministicBytes("httpstorages", 32 * 1024));
    p.noise(storage, "httpstorages.sqlite-wal", 8 * 1024);
    p.noise(storage, "httpstorages.sqlite-shm", 32 * 1024);
    p.location(storage);

    const std::string logs = library + "/Logs/" + o.identifier;
    std::string log;
    for (std::size_t n = 0; n < 400; ++n) {
        log += numbered("2024-05-01 12:00:%02zu Tavio[812] stream buffered\n", n % 60);
    }
    p.directory(logs);
    p.file(logs + "/Tavio.log", log);
    p.file(logs + "/Tavio.1.log", log + log);
    p.location(logs);

    const std::string state = library + "/Saved Application State/" + o.identifier + ".savedState";
    p.directory(state, 0700);
    p.file(state + "/windows.plist",
           serialize(array({plist_new_string("TavioMainWindow")}), PlistFormat::binary));
    p.noise(state, "data.data", 16 * 1024);
    p.location(state);
    return p.ok();
}

}  // namespace

std::variant<PlantedFootprint, std::string> plantFootprint(const FootprintOptions& options) {
    PlantedFootprint planted;
    Planter p(planted);
    const std::string library = options.home + "/Library";
    p.directory(options.home);
    p.directory(library, 0700);
    plantPreferences(p, options, library);
    plantHistory(p, options, library + "/Application Support/" + options.identifier);
    plantCaches(p, options, library + "/Caches/" + options.identifier);
    plantStorageLogsAndState(p, options, library);
    if (!options.hostID.empty()) {
        p.location(library + "/Preferences/ByHost/" + options.identifier + "." + options.hostID +
                   ".plist");
    }
    if (!p.ok()) {
        return *p.error();
    }
    if (options.app) {
        auto app = plantAppBundle(options);
        if (auto* error = std::get_if<std::string>(&app)) {
            return *error;
        }
        const auto& bundle = std::get<PlantedFootprint>(app);
        planted.locations.insert(planted.locations.end(), bundle.locations.begin(),
                                 bundle.locations.end());
        planted.files += bundle.files;
        planted.bytes += bundle.bytes;
    }
    return planted;
}

std::string currentHostID() {
    const auto content = readFile("/etc/machine-id");
    if (!content) {
        return {};
    }
    std::string id = *content;
    while (!id.empty() && (id.back() == '\n' || id.back() == ' ')) {
        id.pop_back();
    }
    return id;
}

}  // namespace footprint
