#include "cli/JsonReport.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace cli {
namespace {

void writeReason(std::ostringstream& out, const Reason& reason) {
    out << "{\"code\": " << jsonString(reason.code) << ", \"text\": " << jsonString(reason.text)
        << "}";
}

void writeRow(std::ostringstream& out, const Row& row) {
    out << "    {\"category\": " << jsonString(categoryWord(row.category))
        << ", \"location\": " << jsonString(row.location)
        << ", \"display\": " << jsonString(row.displayPath)
        << ", \"outcome\": " << jsonString(outcomeWord(row.outcome)) << ", \"reason\": ";
    if (row.reason) {
        writeReason(out, *row.reason);
    } else {
        out << "null";
    }
    out << ", \"leftovers\": [";
    for (std::size_t i = 0; i < row.leftovers.size(); ++i) {
        out << (i == 0 ? "" : ", ") << "{\"path\": " << jsonString(row.leftovers[i].path)
            << ", \"reason\": ";
        writeReason(out, row.leftovers[i].reason);
        out << "}";
    }
    out << "]}";
}

void writeCounts(std::ostringstream& out, const Summary& summary) {
    using Outcome = Row::Outcome;
    if (summary.dryRun()) {
        out << "{\"would_remove\": " << summary.count(Outcome::wouldRemove)
            << ", \"not_found\": " << summary.count(Outcome::notFound)
            << ", \"would_keep\": " << summary.count(Outcome::wouldKeep) << "}";
    } else {
        out << "{\"removed\": " << summary.count(Outcome::removed)
            << ", \"already_gone\": " << summary.count(Outcome::alreadyGone)
            << ", \"left\": " << summary.count(Outcome::left) << "}";
    }
}

}  // namespace

bool Summary::changed() const {
    return !dryRun() &&
           std::any_of(rows.begin(), rows.end(), [](const Row& row) { return row.changed; });
}

int Summary::count(Row::Outcome outcome) const {
    return static_cast<int>(std::count_if(rows.begin(), rows.end(),
                                          [&](const Row& row) { return row.outcome == outcome; }));
}

std::string jsonDocument(const Summary& summary) {
    std::ostringstream out;
    out << "{\n  \"schema\": " << kSchema << ",\n  \"program\": \"uninstall-tavio\""
        << ",\n  \"version\": " << jsonString(summary.version)
        << ",\n  \"account\": " << jsonString(summary.account)
        << ",\n  \"dry_run\": " << (summary.dryRun() ? "true" : "false")
        << ",\n  \"result\": " << jsonString(resultWord(summary.result))
        << ",\n  \"changed\": " << (summary.changed() ? "true" : "false") << ",\n  \"items\": [";
    for (std::size_t i = 0; i < summary.rows.size(); ++i) {
        out << (i == 0 ? "\n" : ",\n");
        writeRow(out, summary.rows[i]);
    }
    out << (summary.rows.empty() ? "],\n" : "\n  ],\n") << "  \"counts\": ";
    writeCounts(out, summary);
    out << "\n}\n";
    return out.str();
}

const char* resultWord(Summary::Result result) {
    using Result = Summary::Result;
    switch (result) {
        case Result::preview:
            return "preview";
        case Result::complete:
            return "complete";
        case Result::incomplete:
            return "incomplete";
        case Result::didNotQuit:
            return "did-not-quit";
        case Result::cancelled:
            return "cancelled";
    }
    return "incomplete";
}

// Control characters and the two that JSON reserves are escaped; every other
// byte passes as it is, so UTF-8 stays UTF-8. A path is bytes, not text: a
// byte that is not valid UTF-8 is written as U+FFFD, so the document always
// parses (the location of such an item is then only approximate).
std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == '"' || byte == '\\') {
            out += '\\';
            out += static_cast<char>(byte);
        } else if (byte < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            out += escaped;
        } else if (byte < 0x80) {
            out += static_cast<char>(byte);
        } else {
            std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC2 ? 2 : 0;
            bool valid = length != 0 && byte < 0xF5 && i + length <= text.size();
            for (std::size_t k = 1; valid && k < length; ++k) {
                valid = (static_cast<unsigned char>(text[i + k]) & 0xC0) == 0x80;
            }
            if (valid) {
                out.append(text, i, length);
                i += length - 1;
            } else {
                out += "\xEF\xBF\xBD";
            }
        }
    }
    return out + "\"";
}

}  // namespace cli
