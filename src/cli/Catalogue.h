#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

// Marks a text for the translation tools, which find it by this name, and
// hands its context and English source to Catalogue::text().
#ifndef QT_TRANSLATE_NOOP
#define QT_TRANSLATE_NOOP(context, english) context, english
#endif

namespace cli {

// One translated message, as the build copies it from the window's
// catalogues (make_catalogue.py).
struct CatalogueEntry {
    const char* language;
    const char* context;
    const char* source;
    const char* translation;
};

extern const CatalogueEntry kCatalogueEntries[];
extern const std::size_t kCatalogueEntryCount;

// The language of the texts, as the window picks it: the first language of
// LANGUAGE (a list separated by colons) that has a catalogue, else that of
// LC_ALL, LC_MESSAGES or LANG, the first one set; else the fallback catalogue
// "en", which puts the English texts in the words of this desktop. `variable`
// reads the environment.
std::string chooseLanguage(const std::function<const char*(const char*)>& variable);

// The texts of one language. A text without a translation is shown as its
// English source.
class Catalogue {
  public:
    explicit Catalogue(std::string language);

    const std::string& language() const { return language_; }

    std::string text(std::string_view context, std::string_view english) const;

    // The same, with "%1" (and "%2") filled in.
    std::string text(std::string_view context,
                     std::string_view english,
                     std::string_view first,
                     std::string_view second = {}) const;

    // Points the core's sentences at this catalogue (context "Core"). The
    // catalogue must outlive every later lookup.
    void installForCore() const;

  private:
    static std::string keyOf(std::string_view context, std::string_view english);

    std::string language_;
    // This language's translations, by context and English text: reports
    // look texts up once per leftover, and a large folder has many.
    std::unordered_map<std::string, std::string> translations_;
};

}  // namespace cli
