#include "cli/HelpText.h"

namespace cli {

const char* helpText() {
    return R"(Usage: uninstall-tavio [OPTION]...
Remove the Tavio video player and all of its data for the user who runs it:
every copy of the app that can be verified, its settings, recent torrent
copies, playback history and positions, caches, logs and saved window state.
The user's own .torrent files and downloads, and other users' data, are never
touched. Without options the window opens; with any option, this command line
runs instead and needs no display.

  --list                 show what would be removed, and why a found copy of
                           the app would be kept; change nothing
  --yes                  remove without asking; without it, the review is
                           shown on the terminal and a yes is asked for, and
                           with no terminal nothing is changed
      --json             print the report (or the list) as one JSON document
                           on standard output (schema 1, described in
                           /usr/share/uninstall-tavio/report.schema.json)
      --quit-timeout=SECONDS
                         how long to wait for Tavio to quit after asking it
                           to (default 30)
      --no-quit          never ask Tavio to quit; if it runs, change nothing
      --quiet            print no report text (the JSON of --json still is)
      --help             display this help and exit
      --version          output version information and exit

Progress is written to standard error when it is a terminal; standard output
carries only the report. Each run that removes something, or fails to, is
summarised in the system log: journalctl -t uninstall-tavio

Exit status:
   0  nothing of Tavio is left (also when there was nothing to remove)
   1  items are left; the report gives each with its reason
  64  usage error, or no terminal to ask on and no --yes
  70  internal error
  75  Tavio is running and did not quit (or --no-quit): nothing was removed;
        try again later
 128+N  stopped by signal N before removal began: nothing was removed
)";
}

}  // namespace cli
