#pragma once

#include <plist/plist.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace testplist {

// Deterministic mutations of property lists for the corpus-replay tests: the
// same seed always gives the same inputs, on every machine (the engine is
// fully specified, and no standard distribution is used).
class PlistMutator {
  public:
    explicit PlistMutator(std::uint64_t seed) : engine_(seed) {}

    std::uint64_t below(std::uint64_t bound) { return bound == 0 ? 0 : engine_() % bound; }

    // One mutation of `input`, chosen at random; `other` feeds splicing.
    std::string mutate(const std::string& input, const std::string& other) {
        switch (below(8)) {
            case 0:
                return flipBits(input);
            case 1:
                return input.substr(0, below(input.size() + 1));
            case 2:
                return overwriteBytes(input);
            case 3:
                return insertTokens(input);
            case 4:
                return input.rfind("bplist00", 0) == 0 ? damageTrailer(input) : insertTokens(input);
            case 5:
                return input.rfind("bplist00", 0) == 0 ? damageOffsets(input) : flipBits(input);
            case 6:
                return splice(input, other);
            default:
                return eraseChunk(input);
        }
    }

    std::string flipBits(std::string s) {
        for (std::uint64_t n = 1 + below(8); n > 0 && !s.empty(); --n) {
            s[below(s.size())] ^= static_cast<char>(1u << below(8));
        }
        return s;
    }

    std::string overwriteBytes(std::string s) {
        static const unsigned char kInteresting[] = {0x00, 0x01, 0x0F, 0x10, 0x7F, 0x80, 0xA0,
                                                     0xAF, 0xD0, 0xDF, 0xFF, '<',  '>',  '/'};
        for (std::uint64_t n = 1 + below(4); n > 0 && !s.empty(); --n) {
            s[below(s.size())] = static_cast<char>(
                below(2) == 0 ? kInteresting[below(sizeof kInteresting)] : below(256));
        }
        return s;
    }

    // Markup that stresses the nesting estimate: openers, closers, comments,
    // quotes, declarations, repeated up to a few hundred times.
    std::string insertTokens(std::string s) {
        static const char* const kTokens[] = {
            "<array>",       "</array>",  "<dict>",     "</dict>",      "<!--",
            "-->",           "<![CDATA[", "]]>",        "<key>a</key>", "<string>",
            "</string>",     "\"",        "'",          "<?",           "?>",
            "<!DOCTYPE x [", "]>",        "<array/>",   "<dict/>",      "<dict x=\">\">",
            "< array>",      "<ARRAY>",   "<array x/>", "<data>",       "</data>",
            "<integer>",     "<true/>",   "&#0;",       "&lt;",         "\xC3\xA9",
            "\xFF"};
        const std::string token = kTokens[below(sizeof kTokens / sizeof kTokens[0])];
        std::string run;
        for (std::uint64_t n = 1 + below(below(2) == 0 ? 4 : 400); n > 0; --n) {
            run += token;
        }
        s.insert(below(s.size() + 1), run);
        return s;
    }

    // The trailer of a binary list: offset and reference sizes, object
    // count, top object, offset-table position.
    std::string damageTrailer(std::string s) {
        if (s.size() < 32) {
            return flipBits(s);
        }
        const std::size_t trailer = s.size() - 32;
        const std::size_t field = 6 + below(26);
        s[trailer + field] = static_cast<char>(below(2) == 0 ? below(256) : s[trailer + field] + 1);
        return s;
    }

    // An entry of the offset table, or the object it points at.
    std::string damageOffsets(std::string s) {
        if (s.size() < 40) {
            return flipBits(s);
        }
        const std::size_t trailer = s.size() - 32;
        std::uint64_t table = 0;
        for (int i = 0; i < 8; ++i) {
            table = (table << 8) | static_cast<unsigned char>(s[trailer + 24 + i]);
        }
        if (table >= trailer) {
            return flipBits(s);
        }
        s[table + below(trailer - table)] = static_cast<char>(below(256));
        return s;
    }

    std::string splice(const std::string& a, const std::string& b) {
        return a.substr(0, below(a.size() + 1)) + b.substr(below(b.size() + 1));
    }

    std::string eraseChunk(std::string s) {
        if (s.empty()) {
            return s;
        }
        const std::size_t at = below(s.size());
        s.erase(at, 1 + below(std::min<std::size_t>(64, s.size() - at)));
        return s;
    }

  private:
    std::mt19937_64 engine_;
};

// The nesting depth of a parsed tree (containers only), measured without
// recursion so that it is safe on any tree.
inline int treeDepth(plist_t root) {
    std::vector<std::pair<plist_t, int>> pending{{root, 1}};
    int deepest = 0;
    while (!pending.empty()) {
        const auto [node, depth] = pending.back();
        pending.pop_back();
        const plist_type type = plist_get_node_type(node);
        if (type == PLIST_ARRAY) {
            deepest = std::max(deepest, depth);
            for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
                pending.emplace_back(plist_array_get_item(node, i), depth + 1);
            }
        } else if (type == PLIST_DICT) {
            deepest = std::max(deepest, depth);
            plist_dict_iter iterator = nullptr;
            plist_dict_new_iter(node, &iterator);
            for (;;) {
                char* key = nullptr;
                plist_t value = nullptr;
                plist_dict_next_item(node, iterator, &key, &value);
                std::free(key);
                if (value == nullptr) {
                    break;
                }
                pending.emplace_back(value, depth + 1);
            }
            std::free(iterator);
        }
    }
    return deepest;
}

}  // namespace testplist
