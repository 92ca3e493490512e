#include "cli/Catalogue.h"

#include <cstring>

#include "base/Text.h"

namespace cli {
namespace {

constexpr std::string_view kFallbackLanguage = "en";

bool hasCatalogue(std::string_view language) {
    for (std::size_t i = 0; i < kCatalogueEntryCount; ++i) {
        if (language == kCatalogueEntries[i].language) {
            return true;
        }
    }
    return false;
}

// "de_DE.UTF-8@euro" and "de" name the catalogue "de"; "C" and "POSIX" none.
std::string languageOfLocale(std::string_view locale) {
    const std::size_t end = locale.find_first_of("_.@");
    return std::string(locale.substr(0, end));
}

void replaceFirst(std::string& text, std::string_view marker, std::string_view value) {
    const std::size_t at = text.find(marker);
    if (at != std::string::npos) {
        text.replace(at, marker.size(), value);
    }
}

}  // namespace

std::string chooseLanguage(const std::function<const char*(const char*)>& variable) {
    if (const char* list = variable("LANGUAGE"); list != nullptr) {
        std::string_view rest(list);
        while (!rest.empty()) {
            const std::size_t colon = rest.find(':');
            std::string language = languageOfLocale(rest.substr(0, colon));
            if (!language.empty() && hasCatalogue(language)) {
                return language;
            }
            rest = colon == std::string_view::npos ? std::string_view{} : rest.substr(colon + 1);
        }
    }
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = variable(name);
        if (value != nullptr && *value != '\0') {
            const std::string language = languageOfLocale(value);
            return hasCatalogue(language) ? language : std::string(kFallbackLanguage);
        }
    }
    return std::string(kFallbackLanguage);
}

Catalogue::Catalogue(std::string language) : language_(std::move(language)) {
    for (std::size_t i = 0; i < kCatalogueEntryCount; ++i) {
        const CatalogueEntry& entry = kCatalogueEntries[i];
        if (language_ == entry.language && *entry.translation != '\0') {
            translations_.emplace(keyOf(entry.context, entry.source), entry.translation);
        }
    }
}

// Context and text joined by a byte that neither holds.
std::string Catalogue::keyOf(std::string_view context, std::string_view english) {
    std::string key(context);
    key += '\x04';
    key += english;
    return key;
}

std::string Catalogue::text(std::string_view context, std::string_view english) const {
    const auto found = translations_.find(keyOf(context, english));
    return found == translations_.end() ? std::string(english) : found->second;
}

std::string Catalogue::text(std::string_view context,
                            std::string_view english,
                            std::string_view first,
                            std::string_view second) const {
    std::string result = text(context, english);
    replaceFirst(result, "%1", first);
    replaceFirst(result, "%2", second);
    return result;
}

void Catalogue::installForCore() const {
    base::setTextLookup([this](std::string_view english) { return text("Core", english); });
}

}  // namespace cli
