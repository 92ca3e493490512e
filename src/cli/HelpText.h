#pragma once

namespace cli {

// What --help prints: every option and exit status, as the manual page has
// them.
const char* helpText();

}  // namespace cli
