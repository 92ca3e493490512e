#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "target/PropertyList.h"

namespace target {

// The uninstaller's own application property list (its Info.plist), the one
// place its configuration lives. The running program's bundle is the ".app"
// folder around its executable when the executable sits in
// "<Name>.app/Contents/MacOS/"; otherwise the property list is the file
// "Info.plist" beside the executable.
class MainBundle {
  public:
    // Where the property list of the program at `executablePath` is; empty
    // when that path is not absolute (unknown).
    static std::string infoPropertyListPath(std::string_view executablePath);

    // Reads the property list at the absolute `path`. Never fails: a relative
    // or empty path, a missing, unreadable
    // or malformed file (a link or a FIFO in its place included) simply
    // holds no keys. The final component is not followed if it is a link.
    static MainBundle load(const std::string& path);

    // The running program's bundle, read once on first use (from any thread)
    // and kept for the life of the process.
    static const MainBundle& main();

    // The string stored under `key`, when there is one and it is not empty;
    // `fallback` when the key is missing, holds another type (a number, an
    // array) or the empty string, or when there is no property list at all.
    std::string targetString(std::string_view key, std::string_view fallback) const;

  private:
    explicit MainBundle(std::optional<PropertyList> info) : info_(std::move(info)) {}

    std::optional<PropertyList> info_;
};

// The absolute path of the running program's executable with links resolved,
// or an empty string when the system cannot tell. One implementation per
// platform (Linux: /proc/self/exe).
std::string runningExecutablePath();

}  // namespace target
