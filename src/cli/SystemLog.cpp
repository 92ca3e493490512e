#include "cli/SystemLog.h"

#include <sys/stat.h>
#include <syslog.h>
#include <systemd/sd-journal.h>

namespace cli {
namespace {

int priorityOf(const std::string& result) {
    if (result == "partial") {
        return LOG_WARNING;
    }
    if (result == "refused" || result == "cancelled") {
        return LOG_NOTICE;
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

std::string messageOf(const Summary& summary, const std::string& result, std::size_t left) {
    std::string message = "Uninstall of Tavio for " + summary.account + ": " + result + ", " +
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

std::string logResult(const Summary& summary) {
    if (summary.result == "did-not-quit") {
        return "refused";
    }
    if (summary.result == "cancelled") {
        return "cancelled";
    }
    if (summary.result == "incomplete") {
        return "partial";
    }
    return summary.changed() ? "changed" : "unchanged";
}

const char* messageID(const std::string& result) {
    if (result == "changed") {
        return "236c8bdc7bc94f95aa34e4c39bf70323";
    }
    if (result == "unchanged") {
        return "bcc822772c9c4556aaec833e5698b938";
    }
    if (result == "partial") {
        return "b95ceca7888d42b68ee4ade0155d33f4";
    }
    if (result == "refused") {
        return "bfc232bea9dc47bda15783b7fe049005";
    }
    return "07e355b57ecc44318efeedb4944cbc60";
}

void logRun(const Summary& summary, unsigned userID) {
    if (summary.dryRun()) {
        return;
    }
    const std::string result = logResult(summary);
    const std::size_t left = leftoverCount(summary);
    const std::string message = messageOf(summary, result, left);
    const int priority = priorityOf(result);
    const int sent =
        !journalRuns()
            ? -1
            : sd_journal_send(
                  "MESSAGE=%s", message.c_str(), "MESSAGE_ID=%s", messageID(result), "PRIORITY=%d",
                  priority, "SYSLOG_IDENTIFIER=uninstall-tavio", "RESULT=%s", result.c_str(),
                  "REMOVED=%d", summary.count(Row::Outcome::removed), "ALREADY_GONE=%d",
                  summary.count(Row::Outcome::alreadyGone), "LEFTOVERS=%zu", left,
                  "TAVIO_ACCOUNT=%s", summary.account.c_str(), "TAVIO_UID=%u", userID, nullptr);
    if (sent < 0) {
        // No journal runs here: one line to the classic system log instead.
        openlog("uninstall-tavio", LOG_PID, LOG_USER);
        syslog(priority, "%s [RESULT=%s MESSAGE_ID=%s]", message.c_str(), result.c_str(),
               messageID(result));
        closelog();
    }
}

}  // namespace cli
