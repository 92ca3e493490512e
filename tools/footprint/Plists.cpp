#include "Plists.h"

#include <cstdlib>

namespace footprint {

Plist dictionary(std::initializer_list<std::pair<const char*, plist_t>> entries) {
    Plist root(plist_new_dict());
    for (const auto& [key, value] : entries) {
        plist_dict_set_item(root.get(), key, value);
    }
    return root;
}

Plist array(std::initializer_list<plist_t> items) {
    Plist root(plist_new_array());
    for (const plist_t item : items) {
        plist_array_append_item(root.get(), item);
    }
    return root;
}

std::string serialize(const Plist& root, PlistFormat format) {
    char* bytes = nullptr;
    uint32_t length = 0;
    std::string result;
    if (format == PlistFormat::xml) {
        plist_to_xml(root.get(), &bytes, &length);
        result.assign(bytes == nullptr ? "" : bytes, bytes == nullptr ? 0 : length);
        plist_to_xml_free(bytes);
    } else {
        plist_to_bin(root.get(), &bytes, &length);
        result.assign(bytes == nullptr ? "" : bytes, bytes == nullptr ? 0 : length);
        plist_to_bin_free(bytes);
    }
    return result;
}

}  // namespace footprint
