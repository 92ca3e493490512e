#include "app/Translations.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>
#include <string>
#include <string_view>

#include "base/Text.h"

namespace app {
namespace {

// Kept equal to what the core produces by a test that asks the core for
// every reason, every verification problem and the notes of a scan.
constexpr const char* kCoreTexts[] = {
    // Removal reasons.
    QT_TRANSLATE_NOOP("Core", "System error %d"),
    QT_TRANSLATE_NOOP("Core", "Permission denied"),
    QT_TRANSLATE_NOOP("Core", "A symbolic link in the path was refused"),
    QT_TRANSLATE_NOOP("Core", "Not owned by this user"),
    QT_TRANSLATE_NOOP("Core", "Another volume is mounted inside; it was not entered"),
    QT_TRANSLATE_NOOP("Core", "Changed since it was checked"),
    QT_TRANSLATE_NOOP("Core", "Folder nesting is too deep"),
    QT_TRANSLATE_NOOP("Core", "Tavio is still running"),
    QT_TRANSLATE_NOOP("Core", "It was created again after removal"),
    QT_TRANSLATE_NOOP("Core", "A parent is not a folder"),
    QT_TRANSLATE_NOOP("Core", "Could not check whether Tavio is running"),
    QT_TRANSLATE_NOOP("Core", "added or changed after the app was verified"),
    QT_TRANSLATE_NOOP("Core", "Could not save a record of the removal, so it was not started"),
    // App copies that were not verified.
    QT_TRANSLATE_NOOP("Core", "Skipped: not a verified Tavio app"),
    QT_TRANSLATE_NOOP("Core", "Not an app bundle"),
    QT_TRANSLATE_NOOP("Core", "Skipped: not a verified Tavio app (the executable is missing)"),
    QT_TRANSLATE_NOOP("Core",
                      "Skipped: not a verified Tavio app (the code signature is not valid)"),
    QT_TRANSLATE_NOOP("Core", "Skipped: the app could not be read"),
    // A copy whose removal was cut off.
    QT_TRANSLATE_NOOP("Core", "An earlier removal of this copy was interrupted"),
    QT_TRANSLATE_NOOP("Core", "Skipped: not the copy that an interrupted removal had verified"),
};

}  // namespace

bool installTranslations(QTranslator& translator) {
    return installTranslations(translator, QLocale::system());
}

bool installTranslations(QTranslator& translator, const QLocale& locale) {
    const QString name = QString::fromLatin1(kTranslationsName);
    const QString folder = QString::fromLatin1(kTranslationsFolder);
    const bool loaded =
        translator.load(locale, name, QStringLiteral("_"), folder) ||
        translator.load(name + QLatin1Char('_') + QString::fromLatin1(kFallbackLanguage), folder);
    return loaded && QCoreApplication::installTranslator(&translator);
}

void installCoreTextLookup() {
    base::setTextLookup([](std::string_view english) {
        const std::string key(english);
        return QCoreApplication::translate(kCoreContext, key.c_str()).toStdString();
    });
}

std::span<const char* const> coreTexts() {
    return kCoreTexts;
}

}  // namespace app
