#include "base/Text.h"

#include <utility>

namespace base {
namespace {

TextLookup& installedLookup() {
    static TextLookup lookup;
    return lookup;
}

}  // namespace

void setTextLookup(TextLookup lookup) {
    installedLookup() = std::move(lookup);
}

std::string localizedText(std::string_view english) {
    const TextLookup& lookup = installedLookup();
    if (lookup) {
        std::string translated = lookup(english);
        if (!translated.empty()) {
            return translated;
        }
    }
    return std::string(english);
}

}  // namespace base
