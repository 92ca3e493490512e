#include "cli/SystemLog.h"

#include <sys/stat.h>
#include <syslog.h>
#include <systemd/sd-journal.h>

namespace cli {
namespace {

int priorityOf(LogResult result) {
    switch (result) {
        case LogResult::partial:
            return LOG_WARNING;
        case LogResult::refused:
        case LogResult::cancelled:
            return LOG_NOTICE;
        case LogResult::changed:
        case LogResult::unchanged:
            break;
    }
    return LOG_INFO;
}

std::size_t leftoverCount(const Summary& summary) {
    std::size_t count = 0;
    for (const auto& row : summary.rows) {
        count += row.leftovers.size();
    }
    return count;
}

std::string messageOf(const Summary& summary, LogResult result, std::size_t left) {
    std::string message = "Uninstall of Tavio for " + summary.account + ": " +
                          logResultWord(result) + ", " +
                          std::to_string(summary.count(Row::Outcome::removed)) + " removed, " +
                          std::to_string(left) + " left";
    for (const auto& row : summary.rows) {
        for (const auto& leftover : row.leftovers) {
            message += "; " + leftover.path + " (" + leftover.reason.code + ")";
        }
    }
    return message;
}

// The journal is running when its socket is there. Without it the journal's
// library drops a message without a word, so it is asked first.
bool journalRuns() {
    struct stat st;
    return ::stat("/run/systemd/journal/socket", &st) == 0 && S_ISSOCK(st.st_mode);
}

}  // namespace

LogResult logResult(const Summary& summary) {
    using Result = Summary::Result;
    switch (summary.result) {
        case Result::didNotQuit:
            return LogResult::refused;
        case Result::cancelled:
            return LogResult::cancelled;
        case Result::incomplete:
            return LogResult::partial;
        case Result::preview:
        case Result::complete:
            break;
    }
    return summary.changed() ? LogResult::changed : LogResult::unchanged;
}

const char* logResultWord(LogResult result) {
    switch (result) {
        case LogResult::changed:
            return "changed";
        case LogResult::unchanged:
            return "unchanged";
        case LogResult::partial:
            return "partial";
        case LogResult::refused:
            return "refused";
        case LogResult::cancelled:
            return "cancelled";
    }
    return "partial";
}

const char* messageID(LogResult result) {
    switch (result) {
        case LogResult::changed:
            return "236c8bdc7bc94f95aa34e4c39bf70323";
        case LogResult::unchanged:
            return "bcc822772c9c4556aaec833e5698b938";
        case LogResult::partial:
            return "b95ceca7888d42b68ee4ade0155d33f4";
        case LogResult::refused:
            return "bfc232bea9dc47bda15783b7fe049005";
        case LogResult::cancelled:
            return "07e355b57ecc44318efeedb4944cbc60";
    }
    return "b95ceca7888d42b68ee4ade0155d33f4";
}

void logRun(const Summary& summary, unsigned userID) {
    if (summary.dryRun()) {
        return;
    }
    const LogResult result = logResult(summary);
    const std::size_t left = leftoverCount(summary);
    const std::string message = messageOf(summary, result, left);
    const int priority = priorityOf(result);
    if (journalRuns() &&
        sd_journal_send("MESSAGE=%s", message.c_str(), "MESSAGE_ID=%s", messageID(result),
                        "PRIORITY=%d", priority, "SYSLOG_IDENTIFIER=uninstall-tavio", "RESULT=%s",
                        logResultWord(result), "REMOVED=%d", summary.count(Row::Outcome::removed),
                        "ALREADY_GONE=%d", summary.count(Row::Outcome::alreadyGone),
                        "LEFTOVERS=%zu", left, "TAVIO_ACCOUNT=%s", summary.account.c_str(),
                        "TAVIO_UID=%u", userID, nullptr) >= 0) {
        return;
    }
    // No journal runs here: one line to the classic system log instead.
    openlog("uninstall-tavio", LOG_PID, LOG_USER);
    syslog(priority, "%s [RESULT=%s MESSAGE_ID=%s]", message.c_str(), logResultWord(result),
           messageID(result));
    closelog();
}

}  // namespace cli
