// The installed app: the bundle layout the uninstaller verifies, with the
// stand-in player as its executable so that a planted app can really be run.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "Footprint.h"
#include "Planter.h"
#include "Plists.h"
#include "platform/linux/BundleSeal.h"

namespace footprint {
namespace {

constexpr std::size_t kPaddingChunk = 4u << 20;

std::string infoPlist(const FootprintOptions& o) {
    const Plist info = dictionary({
        {"CFBundleIdentifier", plist_new_string(o.identifier.c_str())},
        {"CFBundleExecutable", plist_new_string(o.executableName.c_str())},
        {"CFBundleName", plist_new_string("Tavio")},
        {"CFBundlePackageType", plist_new_string("APPL")},
        {"CFBundleShortVersionString", plist_new_string("2.4.1")},
        {"CFBundleVersion", plist_new_string("241")},
        {"LSMinimumSystemVersion", plist_new_string("11.0")},
    });
    return serialize(info, PlistFormat::xml);
}

// A framework in the usual versioned layout, whose links all stay inside the
// bundle, as real apps ship them.
void plantFramework(Planter& p, const std::string& contents) {
    const std::string framework = contents + "/Frameworks/TavioCore.framework";
    p.directory(framework + "/Versions/A/Resources");
    p.noise(framework, "Versions/A/TavioCore", 256 * 1024);
    p.file(framework + "/Versions/A/Resources/Info.plist",
           serialize(dictionary({{"CFBundleIdentifier", plist_new_string("io.tavio.TavioCore")}}),
                     PlistFormat::xml));
    p.link("A", framework + "/Versions/Current");
    p.link("Versions/Current/TavioCore", framework + "/TavioCore");
    p.link("Versions/Current/Resources", framework + "/Resources");
}

// Media packs that bring the bundle to about `sizeMB` in all.
void plantPadding(Planter& p, const std::string& contents, std::uint64_t have, std::size_t sizeMB) {
    const std::uint64_t want = static_cast<std::uint64_t>(sizeMB) << 20;
    p.directory(contents + "/Resources/Media");
    for (std::size_t n = 0; have < want && p.ok(); ++n) {
        const std::size_t size =
            static_cast<std::size_t>(std::min<std::uint64_t>(kPaddingChunk, want - have));
        char name[32];
        std::snprintf(name, sizeof name, "Resources/Media/media-%02zu.pak", n);
        p.noise(contents, name, size);
        have += size;
    }
}

// Seals the finished bundle for the identifier, as the product is shipped,
// and counts the seal among the planted files.
Error sealBundle(const std::string& bundle,
                 const std::string& identifier,
                 PlantedFootprint& planted) {
    if (const auto error = platform::writeSeal(bundle, identifier)) {
        return "cannot seal " + bundle + ": " + error->message;
    }
    struct stat seal {};
    const std::string sealPath = bundle + "/Contents/" + std::string(platform::kSealFolder) + "/" +
                                 std::string(platform::kSealFile);
    if (::lstat(sealPath.c_str(), &seal) == 0) {
        planted.files += 1;
        planted.bytes += static_cast<std::uint64_t>(seal.st_size);
    }
    return std::nullopt;
}

}  // namespace

std::variant<PlantedFootprint, std::string> plantAppBundle(const FootprintOptions& options) {
    PlantedFootprint planted;
    Planter p(planted);
    const auto player = readFile(options.playerPath);
    if (!player) {
        return "cannot read the player executable " + options.playerPath;
    }
    const std::string bundle = options.applications + "/" + options.appName;
    const std::string contents = bundle + "/Contents";
    p.directory(options.applications);
    p.directory(contents + "/MacOS");
    p.directory(contents + "/Resources/en.lproj");
    p.file(contents + "/Info.plist", infoPlist(options));
    p.file(contents + "/PkgInfo", "APPL????");
    p.file(contents + "/MacOS/" + options.executableName, *player, 0755);
    p.file(contents + "/Resources/en.lproj/Localizable.strings",
           "\"Open Torrent…\" = \"Open Torrent…\";\n");
    p.noise(contents, "Resources/Tavio.icns", 64 * 1024);
    plantFramework(p, contents);
    plantPadding(p, contents, planted.bytes, options.appSizeMB);
    if (!p.ok()) {
        return *p.error();
    }
    if (options.seal) {
        if (const auto error = sealBundle(bundle, options.identifier, planted)) {
            return *error;
        }
    }
    planted.locations.push_back(bundle);
    return planted;
}

}  // namespace footprint
