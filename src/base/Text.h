#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace base {

// Every sentence that the core shows to a user goes through one lookup, keyed
// by its English text, so that the application can point it at its
// translations once at start-up. Without a lookup (or when the lookup returns
// an empty string) the English text is used as it stands.
using TextLookup = std::function<std::string(std::string_view english)>;

// Installs the lookup for the whole process. Call it once at start-up, before
// any other thread asks for a text; an empty function restores English.
void setTextLookup(TextLookup lookup);

// The user-facing sentence for the English key.
std::string localizedText(std::string_view english);

}  // namespace base
