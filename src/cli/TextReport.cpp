#include "cli/TextReport.h"

#include <sstream>

namespace cli {

std::string categoryTitle(target::ItemCategory category, const Catalogue& texts) {
    using target::ItemCategory;
    switch (category) {
        case ItemCategory::settings:
            return texts.text(QT_TRANSLATE_NOOP("CategoryRows", "Settings"));
        case ItemCategory::torrentCopies:
            return texts.text(QT_TRANSLATE_NOOP("CategoryRows", "Recent torrent copies"));
        case ItemCategory::history:
            return texts.text(QT_TRANSLATE_NOOP("CategoryRows", "Playback history and positions"));
        case ItemCategory::cache:
            return texts.text(
                QT_TRANSLATE_NOOP("CategoryRows", "Temporary cache and update downloads"));
        case ItemCategory::logsAndState:
            return texts.text(QT_TRANSLATE_NOOP("CategoryRows", "Logs and saved window state"));
        case ItemCategory::app:
            return texts.text(QT_TRANSLATE_NOOP("CategoryRows", "Tavio app"));
    }
    return {};
}

namespace {

// One category of the review: its title, Found or Not found, and each item
// that is there, with the reason of one that stays and the note of one whose
// earlier removal was cut off.
void writeCategory(std::ostringstream& out,
                   const target::Inventory& inventory,
                   target::ItemCategory category,
                   const Catalogue& texts) {
    using StateKind = target::ItemState::Kind;
    const auto items = inventory.itemsIn(category);
    bool found = false;
    for (const auto& item : items) {
        found = found || item.state.kind() != StateKind::absent;
    }
    out << "  " << categoryTitle(category, texts) << ": "
        << (found ? texts.text(QT_TRANSLATE_NOOP("CategoryRows", "Found"))
                  : texts.text(QT_TRANSLATE_NOOP("CategoryRows", "Not found")))
        << "\n";
    for (const auto& item : items) {
        if (item.state.kind() == StateKind::absent) {
            continue;
        }
        out << "    " << item.displayPath;
        if (!item.state.reason().empty()) {
            out << " (" << item.state.reason() << ")";
        }
        out << "\n";
    }
}

void writeIncomplete(std::ostringstream& out, const Summary& summary, const Catalogue& texts) {
    out << texts.text(QT_TRANSLATE_NOOP("FinishedView", "Uninstall Incomplete")) << "\n"
        << texts.text(QT_TRANSLATE_NOOP("FinishedView",
                                        "Some items could not be removed. They are still on "
                                        "your Mac:"))
        << "\n";
    for (const auto& row : summary.rows) {
        for (const auto& leftover : row.leftovers) {
            out << "  " << leftover.path << ": " << leftover.reason.text << "\n";
        }
    }
}

void writeDidNotQuit(std::ostringstream& out, const Catalogue& texts) {
    out << texts.text(QT_TRANSLATE_NOOP("QuitFailedView", "Tavio Didn’t Quit")) << "\n"
        << texts.text(QT_TRANSLATE_NOOP(
               "QuitFailedView",
               "Nothing was deleted. Finish or stop playback, close any Tavio dialog, then try "
               "again. If Tavio still doesn’t quit, choose Tavio › Quit Tavio yourself."))
        << "\n";
}

// Nothing of Tavio is left: either nothing was there, or all of it went.
void writeComplete(std::ostringstream& out, const Summary& summary, const Catalogue& texts) {
    if (!summary.changed()) {
        out << texts.text(QT_TRANSLATE_NOOP("NothingToRemoveView", "Tavio Isn’t Installed")) << "\n"
            << texts.text(QT_TRANSLATE_NOOP("NothingToRemoveView",
                                            "No Tavio app or app data was found for “%1”. Nothing "
                                            "was changed."),
                          summary.account)
            << "\n";
        return;
    }
    const std::string gone = std::to_string(summary.count(Row::Outcome::alreadyGone));
    out << texts.text(QT_TRANSLATE_NOOP("FinishedView", "Tavio Was Uninstalled")) << "\n"
        << texts.text(QT_TRANSLATE_NOOP("FinishedView",
                                        "The app and its data for “%1” were removed. Items "
                                        "that were already gone: %2. Your original .torrent "
                                        "files and downloads were not touched."),
                      summary.account, gone)
        << "\n";
}

}  // namespace

std::string reviewText(const target::Inventory& inventory, const Catalogue& texts) {
    std::ostringstream out;
    out << texts.text(QT_TRANSLATE_NOOP("ReviewView", "Uninstall Tavio?")) << "\n"
        << texts.text(QT_TRANSLATE_NOOP("ReviewView",
                                        "This permanently removes Tavio and its data for the user "
                                        "“%1”. Other users on this Mac are not affected."),
                      inventory.userName)
        << "\n\n"
        << texts.text(QT_TRANSLATE_NOOP("ReviewView", "Will be removed")) << "\n";
    for (const auto category : target::kAllItemCategories) {
        writeCategory(out, inventory, category, texts);
    }
    out << "\n"
        << texts.text(QT_TRANSLATE_NOOP("ReviewView", "Stays on your Mac")) << "\n  "
        << texts.text(QT_TRANSLATE_NOOP(
               "ReviewView", "Your original .torrent files, exports and downloaded files"))
        << "\n";
    return out.str();
}

std::string summaryText(const Summary& summary, const Catalogue& texts) {
    using Result = Summary::Result;
    std::ostringstream out;
    switch (summary.result) {
        case Result::preview:
            out << texts.text(
                       QT_TRANSLATE_NOOP("CommandLine", "This was a preview: nothing was changed."))
                << "\n";
            break;
        case Result::didNotQuit:
            writeDidNotQuit(out, texts);
            break;
        case Result::cancelled:
            out << texts.text(QT_TRANSLATE_NOOP("CommandLine",
                                                "Stopped before anything was removed. Nothing was "
                                                "changed."))
                << "\n";
            break;
        case Result::complete:
            writeComplete(out, summary, texts);
            break;
        case Result::incomplete:
            writeIncomplete(out, summary, texts);
            break;
    }
    return out.str();
}

}  // namespace cli
