#pragma once

#include <map>
#include <optional>
#include <string>

namespace platform {

// Whether an app bundle's Contents/Info.plist declares the product's bundle
// identifier: yes, no, or nothing known. Only a bundle that is plainly
// something else says no: its path leads through a file or a link, or its
// Info.plist is not a regular file, is too large or is not a property list.
// A bundle or Info.plist that is missing or unreadable says nothing: a copy
// may run from a bundle that was moved or deleted since it started, and it
// may be Tavio.
enum class Declares { yes, no, unknown };

// The answers for the bundles met during one look at the process table, each
// bundle read once. The bundle paths come from the kernel or from the
// application folders; the last two levels of each are opened without
// following any link, like every other read of the user's files.
class BundleDeclarations {
  public:
    explicit BundleDeclarations(std::string identifier) : identifier_(std::move(identifier)) {}

    Declares of(const std::string& bundle);

  private:
    std::string identifier_;
    std::map<std::string, Declares> answers_;
};

// The bundle that holds an executable at <bundle>.app/Contents/MacOS/<name>,
// or nothing when the executable lies anywhere else.
std::optional<std::string> enclosingBundle(const std::string& executable);

// The last component of a "/"-separated path (the path itself when it has no
// slash), and everything before it (empty when that is nothing or "/").
std::string lastComponent(const std::string& path);
std::string parentOf(const std::string& path);

}  // namespace platform
