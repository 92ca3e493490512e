#pragma once

#include <string>

#include "cli/JsonReport.h"

namespace cli {

// Leaves a summary of a run in the system log, so that an administrator
// finds every run with `journalctl -t uninstall-tavio`, or one kind of
// outcome with `journalctl MESSAGE_ID=<id>`: the journal's own fields where
// the journal runs, else one line through syslog(3) (facility user). A
// preview changes nothing and is not logged.
//
// Fields: SYSLOG_IDENTIFIER=uninstall-tavio, MESSAGE_ID (one per RESULT),
// PRIORITY, RESULT=changed|unchanged|partial|refused|cancelled, REMOVED=,
// ALREADY_GONE=, LEFTOVERS= (how many paths are left), TAVIO_ACCOUNT=,
// TAVIO_UID=.
void logRun(const Summary& summary, unsigned userID);

// What a run came to, as the log says it.
enum class LogResult { changed, unchanged, partial, refused, cancelled };

LogResult logResult(const Summary& summary);

// The word of RESULT= ("changed", …).
const char* logResultWord(LogResult result);

// The MESSAGE_ID of a result, 32 hex digits.
const char* messageID(LogResult result);

}  // namespace cli
