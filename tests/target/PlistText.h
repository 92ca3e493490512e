#pragma once

#include <plist/plist.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace testplist {

// An XML property list with `body` as its top-level value, written the way
// the system's own writer writes it.
inline std::string xml(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           body + "\n</plist>\n";
}

// The same list in the binary format, converted by libplist itself.
inline std::string binary(const std::string& xmlText) {
    plist_t root = nullptr;
    plist_from_xml(xmlText.data(), static_cast<std::uint32_t>(xmlText.size()), &root);
    if (root == nullptr) {
        throw std::runtime_error("test fixture is not a property list");
    }
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    plist_free(root);
    std::string out(bytes, length);
    plist_to_bin_free(bytes);
    return out;
}

}  // namespace testplist
