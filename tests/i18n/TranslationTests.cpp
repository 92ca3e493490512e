#include <QtQml/qqmlextensionplugin.h>
#include <unistd.h>

#include <QFile>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRegularExpression>
#include <QTranslator>
#include <QXmlStreamReader>
#include <QtTest>
#include <memory>
#include <set>
#include <string>

#include "FakeAdapters.h"
#include "ModelFakes.h"
#include "QtTestMain.h"
#include "TempDir.h"
#include "app/ApplicationShell.h"
#include "app/Translations.h"
#include "app/UninstallerModel.h"
#include "base/Text.h"
#include "removal/RemovalReason.h"
#include "target/AppVerificationProblem.h"
#include "target/InventoryBuilder.h"

Q_IMPORT_QML_PLUGIN(UninstallTavioPlugin)
Q_IMPORT_QML_PLUGIN(UninstallTavioAppPlugin)

using namespace std::chrono_literals;
using removal::RemovalReason;
using target::AppVerificationProblem;

namespace {

// Every removal reason, one per kind, in the order of the kinds.
std::vector<RemovalReason> everyReason() {
    std::vector<RemovalReason> reasons = {
        RemovalReason::other("a ready-made sentence"),
        RemovalReason::system(5),
        RemovalReason::permissionDenied(),
        RemovalReason::symbolicLinkInPath(),
        RemovalReason::notOwnedByCurrentUser(),
        RemovalReason::crossesVolume(),
        RemovalReason::changedSinceVerification(),
        RemovalReason::tooDeep(),
        RemovalReason::applicationRunning(),
        RemovalReason::reappeared(),
        RemovalReason::notADirectory(),
        RemovalReason::runningNotChecked(),
        RemovalReason::notVerifiedBefore(),
        RemovalReason::notRecorded(),
    };
    return reasons;
}

// Every verification problem, one per kind, in the order of the kinds.
std::vector<AppVerificationProblem> everyProblem() {
    return {
        AppVerificationProblem::identifierMismatch("org.example.Other"),
        AppVerificationProblem::missingIdentifier(),
        AppVerificationProblem::notAnAppBundle(),
        AppVerificationProblem::missingExecutable(),
        AppVerificationProblem::invalidSignature(),
        AppVerificationProblem::unreadable(),
    };
}

struct Message {
    QString context;
    QString source;
    QString translation;
    QString type;
};

QList<Message> readCatalogue(const QString& path, QString* language) {
    QList<Message> messages;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return messages;
    }
    QXmlStreamReader xml(&file);
    QString context;
    Message message;
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement()) {
            continue;
        }
        const auto name = xml.name();
        if (name == QLatin1String("TS")) {
            *language = xml.attributes().value(QLatin1String("language")).toString();
        } else if (name == QLatin1String("name")) {
            context = xml.readElementText();
        } else if (name == QLatin1String("source")) {
            message = Message{context, xml.readElementText(), {}, {}};
        } else if (name == QLatin1String("translation")) {
            message.type = xml.attributes().value(QLatin1String("type")).toString();
            message.translation = xml.readElementText();
            messages.append(message);
        }
    }
    return messages;
}

QStringList placeholders(const QString& text) {
    static const QRegularExpression placeholder(QStringLiteral("%(\\d|d)"));
    QStringList found;
    for (auto it = placeholder.globalMatch(text); it.hasNext();) {
        found.append(it.next().captured());
    }
    found.sort();
    return found;
}

// A catalogue in `language` with a finished translation for every entry,
// the same placeholders as its source, the typography of the language, and
// every sentence of the core.
bool catalogueIsComplete(const QString& path, const QString& expectedLanguage) {
    QString language;
    const QList<Message> messages = readCatalogue(path, &language);
    [&] {
        QCOMPARE(language, expectedLanguage);
        QVERIFY(messages.size() > 40);
    }();
    if (QTest::currentTestFailed()) {
        return false;
    }
    std::set<QString> core;
    for (const Message& message : messages) {
        const QString where = message.context + QStringLiteral(": ") + message.source;
        const auto check = [&](bool ok, const QString& what) {
            if (!ok) {
                QTest::qFail(qPrintable(what + QStringLiteral(" ") + where), __FILE__, __LINE__);
            }
            return ok;
        };
        if (!check(message.type.isEmpty(), message.type) ||
            !check(!message.translation.isEmpty(), QStringLiteral("empty")) ||
            !check(placeholders(message.translation) == placeholders(message.source),
                   QStringLiteral("placeholders")) ||
            // No straight quotes, no three-dot ellipsis; German opens its
            // quotes low.
            !check(!message.translation.contains(QLatin1Char('"')), QStringLiteral("quote")) ||
            !check(!message.translation.contains(QLatin1String("...")), QStringLiteral("dots")) ||
            !check(language != QLatin1String("de") ||
                       !message.translation.contains(QChar(0x201C)) ||
                       message.translation.contains(QChar(0x201E)),
                   QStringLiteral("German quotes"))) {
            return false;
        }
        if (message.context == QLatin1String("Core")) {
            core.insert(message.source);
        }
    }
    for (const char* text : app::coreTexts()) {
        if (!core.contains(QString::fromUtf8(text))) {
            QTest::qFail(text, __FILE__, __LINE__);
            return false;
        }
    }
    return true;
}

// The texts of every visible item of the window.
void collectTexts(QQuickItem* item, QStringList& texts) {
    if (!item->isVisible()) {
        return;
    }
    const QVariant text = item->property("text");
    if (text.isValid() && !text.toString().isEmpty()) {
        texts.append(text.toString());
    }
    for (QQuickItem* child : item->childItems()) {
        collectTexts(child, texts);
    }
}

}  // namespace

// The translations as the program installs them. CTest runs this with a
// German locale (LANG=de_DE.UTF-8, LANGUAGE=de).
class TranslationTests : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase();
    void cleanupTestCase();

    void theCoreTextListIsWhatTheCoreAsksFor();
    void theGermanCatalogueIsComplete();
    void theLinuxEnglishCatalogueIsComplete();
    void anyOtherLanguageGetsLinuxEnglish();
    void noTextNamesTheMacOrTheFinder();
    void theCoreSpeaksGerman();
    void theWindowSpeaksGerman();

  private:
    QTranslator translator_;
};

void TranslationTests::initTestCase() {
    QVERIFY2(app::installTranslations(translator_),
             "no catalogue for the locale under :/i18n (is LANGUAGE=de set?)");
    QCOMPARE(translator_.language(), QStringLiteral("de"));
}

void TranslationTests::cleanupTestCase() {
    base::setTextLookup({});
    QCoreApplication::removeTranslator(&translator_);
}

void TranslationTests::theCoreTextListIsWhatTheCoreAsksFor() {
    // The kinds are listed above in full: the last one closes each list.
    QCOMPARE(everyReason().size(), std::size_t(RemovalReason::Kind::notRecorded) + 1);
    QCOMPARE(everyProblem().size(), std::size_t(AppVerificationProblem::Kind::unreadable) + 1);
    for (std::size_t i = 0; i < everyReason().size(); ++i) {
        QCOMPARE(std::size_t(everyReason()[i].kind()), i);
    }
    for (std::size_t i = 0; i < everyProblem().size(); ++i) {
        QCOMPARE(std::size_t(everyProblem()[i].kind()), i);
    }

    std::set<std::string> asked;
    base::setTextLookup([&asked](std::string_view english) {
        asked.emplace(english);
        return std::string(english);
    });
    for (const RemovalReason& reason : everyReason()) {
        (void)reason.explanation();
    }
    for (const AppVerificationProblem& problem : everyProblem()) {
        (void)problem.explanation();
    }
    (void)target::interruptedRemovalNote();
    (void)target::notTheRecordedCopyExplanation();
    base::setTextLookup({});

    std::set<std::string> listed;
    for (const char* text : app::coreTexts()) {
        QVERIFY2(listed.emplace(text).second, text);
    }
    for (const std::string& text : asked) {
        QVERIFY2(listed.contains(text), ("not listed for translation: " + text).c_str());
    }
    for (const std::string& text : listed) {
        QVERIFY2(asked.contains(text), ("listed but never asked for: " + text).c_str());
    }
}

void TranslationTests::theGermanCatalogueIsComplete() {
    QVERIFY(catalogueIsComplete(QStringLiteral(UT_GERMAN_CATALOGUE), QStringLiteral("de")));
}

void TranslationTests::theLinuxEnglishCatalogueIsComplete() {
    QVERIFY(catalogueIsComplete(QStringLiteral(UT_ENGLISH_CATALOGUE), QStringLiteral("en")));
}

// Which catalogue each locale gets: its own language where there is one,
// Linux English for every other language and for the C locale.
void TranslationTests::anyOtherLanguageGetsLinuxEnglish() {
    QCoreApplication::removeTranslator(&translator_);
    for (const auto& [locale, language] :
         {std::pair{QLocale(QStringLiteral("de_AT")), QStringLiteral("de")},
          std::pair{QLocale(QStringLiteral("en_GB")), QStringLiteral("en")},
          std::pair{QLocale(QStringLiteral("fr_FR")), QStringLiteral("en")},
          std::pair{QLocale::c(), QStringLiteral("en")}}) {
        QTranslator translator;
        QVERIFY2(app::installTranslations(translator, locale), qPrintable(locale.name()));
        QCOMPARE(translator.language(), language);
        QCOMPARE(QCoreApplication::translate("FinishedView", "Reveal in Finder"),
                 language == QLatin1String("de") ? QStringLiteral("Im Dateimanager zeigen")
                                                 : QStringLiteral("Show in File Manager"));
        QCoreApplication::removeTranslator(&translator);
    }
    QVERIFY(QCoreApplication::installTranslator(&translator_));
}

// Every text the window can show (every entry of the catalogues, which the
// translation tools gather from every screen, accessible names and
// descriptions included) and every sentence of the core, as a Linux user
// sees them in German and in English: none speaks of a Mac or the Finder.
void TranslationTests::noTextNamesTheMacOrTheFinder() {
    QString language;
    const QList<Message> messages = readCatalogue(QStringLiteral(UT_ENGLISH_CATALOGUE), &language);
    QVERIFY(messages.size() > 40);
    static const QRegularExpression apple(QStringLiteral("\\bMac\\b|Finder"));
    QCoreApplication::removeTranslator(&translator_);
    app::installCoreTextLookup();
    for (const QLocale& locale :
         {QLocale(QStringLiteral("de_DE")), QLocale(QStringLiteral("en_US"))}) {
        QTranslator translator;
        QVERIFY(app::installTranslations(translator, locale));
        QStringList shown;
        for (const Message& message : messages) {
            shown.append(QCoreApplication::translate(qPrintable(message.context),
                                                     qPrintable(message.source)));
        }
        for (const RemovalReason& reason : everyReason()) {
            shown.append(QString::fromStdString(reason.explanation()));
        }
        for (const AppVerificationProblem& problem : everyProblem()) {
            shown.append(QString::fromStdString(problem.explanation()));
        }
        for (const QString& text : shown) {
            QVERIFY2(!text.contains(apple),
                     qPrintable(locale.name() + QStringLiteral(": ") + text));
        }
        QCoreApplication::removeTranslator(&translator);
    }
    base::setTextLookup({});
    QVERIFY(QCoreApplication::installTranslator(&translator_));
}

void TranslationTests::theCoreSpeaksGerman() {
    app::installCoreTextLookup();
    QCOMPARE(QString::fromStdString(RemovalReason::permissionDenied().explanation()),
             QStringLiteral("Zugriff verweigert"));
    QCOMPARE(QString::fromStdString(RemovalReason::system(-1).explanation()),
             QStringLiteral("Systemfehler -1"));
    QCOMPARE(QString::fromStdString(RemovalReason::other("as it is").explanation()),
             QStringLiteral("as it is"));
    base::setTextLookup({});
    QCOMPARE(QString::fromStdString(RemovalReason::permissionDenied().explanation()),
             QStringLiteral("Permission denied"));
}

// The real window over the real model, with an app copy that failed its
// check: the review screen, its buttons and the skip reason are German.
void TranslationTests::theWindowSpeaksGerman() {
    app::installCoreTextLookup();
    testsupport::TempDir temp;
    testsupport::makeDirectories(temp / "home/Library/Caches/io.tavio.Tavio");
    testsupport::makeDirectories(temp / "Applications/Tavio.app");
    auto verifier = std::make_shared<testsupport::FakeVerifier>();
    verifier->refuse(temp / "Applications/Tavio.app", AppVerificationProblem::invalidSignature());
    target::UninstallContext context =
        target::UninstallContext::make(::getuid(), {temp / "home", "alice"}, "io.tavio.Tavio");
    context.applicationDirectories = {temp / "Applications"};
    engine::UninstallEngine engine{context,
                                   std::make_shared<apptest::ControlledProcesses>(),
                                   std::make_shared<testsupport::FakePreferences>(),
                                   verifier,
                                   10s,
                                   10ms};
    app::UninstallerModel model(std::move(engine), std::make_shared<apptest::RecordingActions>());
    QCOMPARE(model.phase(), app::UninstallerModel::PhaseKind::Review);

    QStringList texts;
    {
        QQmlApplicationEngine qml;
        qml.addImportPath(QStringLiteral("qrc:/qt/qml"));
        qml.setInitialProperties({{QStringLiteral("model"), QVariant::fromValue(&model)}});
        qml.load(QUrl(QString::fromLatin1(app::kMainQmlUrl)));
        QVERIFY(!qml.rootObjects().isEmpty());
        auto* window = qobject_cast<QQuickWindow*>(qml.rootObjects().first());
        QVERIFY(window);
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QCOMPARE(window->title(), QStringLiteral("Tavio deinstallieren"));
        collectTexts(window->contentItem(), texts);
    }
    base::setTextLookup({});

    const QString all = texts.join(QLatin1Char('\n'));
    for (const QString& expected : {
             QStringLiteral("Tavio deinstallieren?"),
             QStringLiteral("Dadurch werden Tavio und seine Daten für den Benutzer „alice“ "
                            "endgültig entfernt."),
             QStringLiteral("Wird entfernt"),
             QStringLiteral("Bleibt auf Ihrem Computer"),
             QStringLiteral("Einstellungen"),
             QStringLiteral("Tavio-App"),
             QStringLiteral(
                 "Übersprungen: keine geprüfte Tavio-App (die Codesignatur ist ungültig)"),
             QStringLiteral("Abbrechen"),
             QString::fromUtf8("Deinstallieren\u00a0…"),
         }) {
        QVERIFY2(all.contains(expected),
                 qPrintable(expected + QStringLiteral("\nnot in:\n") + all));
    }
    for (const QString& english : {QStringLiteral("Uninstall Tavio?"), QStringLiteral("Cancel"),
                                   QStringLiteral("Will be removed"), QStringLiteral("Skipped")}) {
        QVERIFY2(!all.contains(english), qPrintable(english));
    }
}

int main(int argc, char** argv) {
    return apptest::runTests<TranslationTests>(argc, argv);
}

#include "TranslationTests.moc"
