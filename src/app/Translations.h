#pragma once

#include <QString>
#include <span>

class QLocale;
class QTranslator;

namespace app {

// The translation catalogues compiled into the program (under :/i18n, one
// file per language, named uninstall-tavio_<language>.qm).
inline constexpr char kTranslationsFolder[] = ":/i18n";
inline constexpr char kTranslationsName[] = "uninstall-tavio";
// The translation context of every sentence the core shows.
inline constexpr char kCoreContext[] = "Core";

// The catalogue used when none of the user's languages has one: the words
// of this platform's desktop for the English texts. Only Linux builds carry
// it; elsewhere the English texts are already the platform's own.
inline constexpr char kFallbackLanguage[] = "en";

// Loads the catalogue for the user's languages (the system locale, which
// honours LANGUAGE, LC_ALL, LC_MESSAGES and LANG), or else the fallback
// catalogue, into `translator` and installs it. False when there is
// neither: the English texts stand as they are.
bool installTranslations(QTranslator& translator);
bool installTranslations(QTranslator& translator, const QLocale& locale);

// Points the core's text lookup at the installed translations, under the
// context "Core".
void installCoreTextLookup();

// Every English sentence the core can ask for, as listed for translation.
// The core looks them up at run time by their English text, so the
// translation tools cannot find them in its sources; this list is where
// they are seen.
std::span<const char* const> coreTexts();

}  // namespace app
