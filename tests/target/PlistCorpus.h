#pragma once

#include <plist/plist.h>

#include <string>
#include <vector>

#include "PlistText.h"

namespace testplist {

// Seeds for the corpus-replay tests: every value type, nesting near the
// limit, long strings and keys, each in XML and in binary.
inline std::vector<std::string> seedCorpus() {
    std::string nested;
    for (int i = 0; i < 250; ++i) {
        nested += i % 2 == 0 ? "<array>" : "<dict><key>k</key>";
    }
    nested += "<string>bottom</string>";
    for (int i = 249; i >= 0; --i) {
        nested += i % 2 == 0 ? "</array>" : "</dict>";
    }
    const std::vector<std::string> xmlSeeds = {
        xml("<dict><key>CFBundleIdentifier</key><string>io.tavio.Tavio</string>"
            "<key>CFBundleExecutable</key><string>Tavio</string>"
            "<key>CFBundleVersion</key><string>241</string></dict>"),
        xml("<dict><key>Identifier</key><string>io.tavio.Tavio</string><key>files2</key><dict>"
            "<key>MacOS/Tavio</key><dict><key>hash2</key><data>"
            "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=</data></dict>"
            "<key>Versions/Current</key><dict><key>symlink</key><string>A</string></dict>"
            "</dict></dict>"),
        xml("<dict><key>int</key><integer>-42</integer><key>big</key>"
            "<integer>18446744073709551615</integer><key>real</key><real>3.25</real>"
            "<key>yes</key><true/><key>no</key><false/><key>date</key>"
            "<date>2024-02-29T12:00:00Z</date><key>data</key><data>AAECAwQF</data>"
            "<key>unicode</key><string>Tavio \xE2\x80\x9C\xE2\x80\xA6\xE2\x80\x9D</string>"
            "<key>array</key><array><string>a</string><integer>1</integer><array/><dict/>"
            "</array><key>nested</key><dict><key>inner</key><dict><key>x</key><string>y"
            "</string></dict></dict></dict>"),
        xml("<dict><key>" + std::string(300, 'k') + "</key><string>" + std::string(5000, 'v') +
            "</string></dict>"),
        xml(nested),
        xml("<array><string>not a dictionary</string></array>"),
    };
    std::vector<std::string> seeds = xmlSeeds;
    for (const std::string& seed : xmlSeeds) {
        seeds.push_back(binary(seed));
    }
    return seeds;
}

}  // namespace testplist
