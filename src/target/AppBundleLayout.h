#pragma once

#include <string>
#include <variant>

#include "base/UniqueFd.h"
#include "target/AppVerificationProblem.h"

namespace target {

// The layout checks of an installed app bundle that every platform shares,
// made relative to open folders so that no link is ever followed:
//
//  1. "Contents" is a folder (not a link to one);
//  2. "Contents/Info.plist" is a regular file;
//  3. it reads as a property-list dictionary (XML or binary);
//  4. it has a string "CFBundleIdentifier";
//  5. equal to the expected identifier, byte for byte;
//  6. it has a string "CFBundleExecutable";
//  7. without a "/" (nor empty, "." or "..");
//  8. "Contents/MacOS" is a folder and the executable in it a regular file.
//
// Problems: 1 to 3 notAnAppBundle, 4 missingIdentifier, 5 identifierMismatch,
// 6 to 8 missingExecutable. A bundle that is itself a link, a plain file or
// missing is notAnAppBundle. Nothing is opened for writing, and no FIFO or
// device is ever opened.
class AppBundleLayout {
  public:
    // Runs the checks in order and stops at the first problem. On success the
    // bundle and its "Contents" folder stay open for the signature check.
    static std::variant<AppBundleLayout, AppVerificationProblem> open(
        const std::string& bundlePath,
        const std::string& expectedIdentifier);

    int bundleFD() const { return bundle_.get(); }
    int contentsFD() const { return contents_.get(); }

  private:
    AppBundleLayout(base::UniqueFd bundle, base::UniqueFd contents)
        : bundle_(std::move(bundle)), contents_(std::move(contents)) {}

    base::UniqueFd bundle_;
    base::UniqueFd contents_;
};

}  // namespace target
