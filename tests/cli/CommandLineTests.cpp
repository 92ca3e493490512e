// The command line's parts: its options, its language, the stable words and
// codes of its JSON, and what a report's rows say.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

#include "base/Text.h"
#include "cli/Catalogue.h"
#include "cli/JsonReport.h"
#include "cli/Options.h"
#include "cli/ReportRows.h"
#include "cli/SystemLog.h"
#include "cli/TextReport.h"

namespace {

using cli::Options;
using cli::Row;

Options parsed(const std::vector<std::string>& arguments) {
    auto result = cli::parseOptions(arguments);
    EXPECT_TRUE(std::holds_alternative<Options>(result))
        << std::get<cli::UsageError>(result).message;
    return std::holds_alternative<Options>(result) ? std::get<Options>(result) : Options{};
}

std::string refusal(const std::vector<std::string>& arguments) {
    auto result = cli::parseOptions(arguments);
    return std::holds_alternative<cli::UsageError>(result)
               ? std::get<cli::UsageError>(result).message
               : std::string();
}

TEST(OptionsTest, LongOptionsInEitherFormAndDefaults) {
    const Options none = parsed({"--json"});
    EXPECT_EQ(none.action, Options::Action::remove);
    EXPECT_FALSE(none.yes);
    EXPECT_EQ(none.quitTimeout, std::chrono::seconds(30));
    const Options all = parsed({"--yes", "--json", "--quiet", "--no-quit", "--quit-timeout", "5"});
    EXPECT_TRUE(all.yes && all.json && all.quiet && all.noQuit);
    EXPECT_EQ(all.quitTimeout, std::chrono::seconds(5));
    EXPECT_EQ(parsed({"--quit-timeout=0"}).quitTimeout, std::chrono::seconds(0));
    EXPECT_EQ(parsed({"--list", "--"}).action, Options::Action::list);
}

TEST(OptionsTest, HelpAndVersionWinWhereverTheyStand) {
    EXPECT_EQ(parsed({"--yes", "--help"}).action, Options::Action::help);
    EXPECT_EQ(parsed({"--version", "--list"}).action, Options::Action::version);
    EXPECT_EQ(parsed({"--help", "--version"}).action, Options::Action::help);
}

TEST(OptionsTest, RefusesWhatItDoesNotKnow) {
    EXPECT_NE(refusal({"--bogus"}).find("unrecognized option '--bogus'"), std::string::npos);
    EXPECT_NE(refusal({"-y"}).find("unrecognized option"), std::string::npos);
    EXPECT_NE(refusal({"now"}).find("unexpected argument 'now'"), std::string::npos);
    EXPECT_NE(refusal({"--", "now"}).find("unexpected argument"), std::string::npos);
    EXPECT_NE(refusal({"--yes=1"}).find("takes no value"), std::string::npos);
    EXPECT_NE(refusal({"--quit-timeout"}).find("needs a number"), std::string::npos);
    for (const char* wrong : {"soon", "-1", "1.5", "", "99999999999999999999", "86401"}) {
        EXPECT_NE(refusal({std::string("--quit-timeout=") + wrong}).find("invalid number"),
                  std::string::npos)
            << wrong;
    }
}

TEST(CatalogueTest, LanguageIsPickedAsTheWindowPicksIt) {
    auto from = [](std::map<std::string, std::string> values) {
        return cli::chooseLanguage([values](const char* name) -> const char* {
            const auto found = values.find(name);
            return found == values.end() ? nullptr : found->second.c_str();
        });
    };
    EXPECT_EQ(from({}), "en");
    EXPECT_EQ(from({{"LANGUAGE", "de"}, {"LANG", "C.UTF-8"}}), "de");
    EXPECT_EQ(from({{"LANGUAGE", "fr:de_AT"}, {"LANG", "C.UTF-8"}}), "de");
    EXPECT_EQ(from({{"LANG", "de_DE.UTF-8"}}), "de");
    EXPECT_EQ(from({{"LC_ALL", "C"}, {"LANG", "de_DE.UTF-8"}}), "en");
    EXPECT_EQ(from({{"LC_MESSAGES", "de_CH.UTF-8@euro"}, {"LANG", "C"}}), "de");
    EXPECT_EQ(from({{"LANG", "fr_FR.UTF-8"}}), "en");
}

TEST(CatalogueTest, TextsComeFromTheWindowsCataloguesWithTheirPlaceholdersFilled) {
    const cli::Catalogue german("de");
    EXPECT_EQ(german.text("Core", "Permission denied"), "Zugriff verweigert");
    EXPECT_EQ(german.text("CategoryRows", "Found"), "Gefunden");
    EXPECT_EQ(german.text("CommandLine", "yes"), "ja");
    EXPECT_EQ(german.text("Core", "no such text"), "no such text");
    const cli::Catalogue linux("en");
    EXPECT_EQ(linux.text("ReviewView", "Stays on your Mac"), "Stays on your computer");
    EXPECT_EQ(linux.text("FinishedView",
                         "The app and its data for “%1” were removed. Items that were already "
                         "gone: %2. Your original .torrent files and downloads were not touched.",
                         "alice", "3"),
              "The app and its data for “alice” were removed. Items that were already gone: 3. "
              "Your original .torrent files and downloads were not touched.");
}

// Every sentence the core can write has a stable code of its own in every
// language, so a tool never has to read the translated text.
TEST(ReasonCodeTest, EverySentenceOfTheCoreHasItsOwnCodeInEveryLanguage) {
    for (const char* language : {"en", "de"}) {
        const cli::Catalogue texts(language);
        texts.installForCore();
        std::set<std::string> codes;
        std::size_t sentences = 0;
        for (std::size_t i = 0; i < cli::kCatalogueEntryCount; ++i) {
            const cli::CatalogueEntry& entry = cli::kCatalogueEntries[i];
            if (std::strcmp(entry.context, "Core") != 0 || entry.language != texts.language() ||
                std::strstr(entry.source, "%d") != nullptr) {
                continue;
            }
            ++sentences;
            const std::string code = cli::codeOfSentence(entry.translation);
            EXPECT_NE(code, "other") << language << ": " << entry.source;
            codes.insert(code);
        }
        EXPECT_GE(sentences, 19u) << language;
        EXPECT_EQ(codes.size(), sentences) << language << ": two sentences share a code";
        base::setTextLookup({});
    }
    EXPECT_EQ(cli::codeOfSentence(removal::RemovalReason::system(5).explanation()), "system-error");
    EXPECT_EQ(cli::codeOfSentence(removal::RemovalReason::system(-2).explanation()),
              "system-error");
    EXPECT_EQ(cli::codeOfSentence("System error "), "other");
    EXPECT_EQ(cli::codeOfSentence("System error 5x"), "other");
    EXPECT_EQ(cli::codeOfSentence("a sentence of someone else"), "other");
}

TEST(JsonTest, StringsAreEscapedAndAlwaysValidUtf8) {
    EXPECT_EQ(cli::jsonString("plain"), "\"plain\"");
    EXPECT_EQ(cli::jsonString("a\"b\\c"), "\"a\\\"b\\\\c\"");
    EXPECT_EQ(cli::jsonString("line\nbreak\t\x01"), "\"line\\u000abreak\\u0009\\u0001\"");
    EXPECT_EQ(cli::jsonString("Übersprungen “x”"), "\"Übersprungen “x”\"");
    EXPECT_EQ(cli::jsonString("bad\xff\xc3"), "\"bad\xEF\xBF\xBD\xEF\xBF\xBD\"");
}

target::InventoryItem item(const std::string& path, target::ItemState state) {
    return target::InventoryItem{"tree:" + path,
                                 target::ItemCategory::cache,
                                 target::ItemTarget::preferences("io.tavio.Tavio"),
                                 path,
                                 path,
                                 std::move(state)};
}

TEST(RowsTest, APreviewNeverReadsLikeARun) {
    target::Inventory inventory;
    inventory.items = {item("/h/a", target::ItemState::present()),
                       item("/h/b", target::ItemState::absent()),
                       item("/h/c", target::ItemState::skipped("Not an app bundle"))};
    const cli::Summary summary{cli::Summary::Result::preview, "alice", "1",
                               cli::previewRows(inventory)};
    EXPECT_TRUE(summary.dryRun());
    EXPECT_FALSE(summary.changed());
    EXPECT_EQ(summary.rows[0].outcome, Row::Outcome::wouldRemove);
    EXPECT_EQ(summary.rows[1].outcome, Row::Outcome::notFound);
    EXPECT_EQ(summary.rows[2].outcome, Row::Outcome::wouldKeep);
    EXPECT_EQ(summary.rows[2].reason->code, "not-an-app-bundle");
    const std::string json = cli::jsonDocument(summary);
    EXPECT_NE(json.find("\"dry_run\": true"), std::string::npos);
    EXPECT_NE(json.find("\"would_remove\": 1"), std::string::npos);
    EXPECT_EQ(json.find("\"removed\""), std::string::npos);
}

TEST(RowsTest, ChangedOnlyWhenSomethingWasOrMayHaveBeenRemoved) {
    using engine::ItemOutcome;
    using removal::RemovalFailure;
    using removal::RemovalReason;
    const auto present = target::ItemState::present();
    engine::UninstallReport report;
    report.results = {{item("/h/a", present), ItemOutcome::alreadyAbsent()},
                      {item("/h/b", present),
                       ItemOutcome::failed({{"/h/b", RemovalReason::applicationRunning()}})}};
    cli::Summary untouched{cli::Summary::Result::incomplete, "alice", "1", cli::reportRows(report)};
    EXPECT_FALSE(untouched.changed());
    EXPECT_EQ(untouched.rows[1].leftovers.front().reason.code, "tavio-running");
    report.results.push_back(
        {item("/h/c", present), ItemOutcome::failed({{"/h/c/x", RemovalReason::permissionDenied()},
                                                     {"/h/c", RemovalReason::system(39)}})});
    cli::Summary half{cli::Summary::Result::incomplete, "alice", "1", cli::reportRows(report)};
    EXPECT_TRUE(half.changed());
    EXPECT_EQ(half.rows[2].leftovers.size(), 2u);
    EXPECT_EQ(half.rows[2].reason, half.rows[2].leftovers.front().reason);
    EXPECT_EQ(half.rows[2].leftovers.back().reason.code, "system-error");
    EXPECT_EQ(half.count(Row::Outcome::left), 2);
    report.results = {{item("/h/a", present), ItemOutcome::removed()}};
    EXPECT_TRUE((cli::Summary{cli::Summary::Result::complete, "alice", "1", cli::reportRows(report)}
                     .changed()));
}

TEST(SystemLogTest, EachResultHasAMessageIdOfItsOwn) {
    std::set<std::string> ids;
    using cli::LogResult;
    for (const LogResult result : {LogResult::changed, LogResult::unchanged, LogResult::partial,
                                   LogResult::refused, LogResult::cancelled}) {
        const std::string id = cli::messageID(result);
        EXPECT_EQ(id.size(), 32u);
        EXPECT_EQ(id.find_first_not_of("0123456789abcdef"), std::string::npos);
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 5u);
    EXPECT_EQ(cli::logResult({cli::Summary::Result::didNotQuit, "a", "1", {}}), LogResult::refused);
    EXPECT_EQ(cli::logResult({cli::Summary::Result::complete, "a", "1", {}}), LogResult::unchanged);
    EXPECT_STREQ(cli::logResultWord(LogResult::partial), "partial");
}

TEST(TextReportTest, GermanReviewAndSummariesUseTheCatalogue) {
    const cli::Catalogue german("de");
    target::Inventory inventory;
    inventory.userName = "alice";
    inventory.items = {item("/h/a", target::ItemState::present())};
    const std::string review = cli::reviewText(inventory, german);
    EXPECT_NE(review.find("Gefunden"), std::string::npos) << review;
    EXPECT_NE(review.find("„alice“"), std::string::npos) << review;
    EXPECT_NE(cli::summaryText({cli::Summary::Result::preview, "alice", "1", {}}, german)
                  .find("Vorschau"),
              std::string::npos);
}

}  // namespace
