#pragma once

#include <string>
#include <string_view>

namespace target {

// Paths in the target subsystem are plain absolute strings without a
// trailing slash ("/home/alice", "/Applications"); only the root folder is
// written "/". These helpers keep them that way.

// `path` with every trailing slash removed, except that "/" (or "///")
// stays "/". An empty path stays empty.
std::string withoutTrailingSlashes(std::string path);

// `base` followed by one more component, with exactly one slash between
// them: "/" + "Applications" is "/Applications".
std::string appendingPathComponent(std::string_view base, std::string_view component);

// The path as shown to the user, with the home folder written as "~": the
// home itself is "~", anything below it "~/…"; every other path (a sibling
// such as "/home/alice2" of "/home/alice" included) is shown unchanged.
// `home` is in the form above (no trailing slash).
std::string displayPath(std::string_view path, std::string_view home);

}  // namespace target
