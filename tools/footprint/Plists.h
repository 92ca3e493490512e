#pragma once

#include <plist/plist.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

namespace footprint {

// A property-list node that frees itself (and everything below it).
struct PlistFree {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using Plist = std::unique_ptr<void, PlistFree>;

enum class PlistFormat { xml, binary };

// A dictionary of the given entries. The dictionary takes ownership of every
// node passed in, so the values are written inline: dictionary({{"Volume",
// plist_new_real(0.8)}}).
Plist dictionary(std::initializer_list<std::pair<const char*, plist_t>> entries);

// An array of the given nodes, which it takes ownership of.
Plist array(std::initializer_list<plist_t> items);

// The file bytes of `root` in the given format.
std::string serialize(const Plist& root, PlistFormat format);

}  // namespace footprint
