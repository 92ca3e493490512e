#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace footprint {

// What went wrong, as a sentence with the path in it; nothing on success.
using Error = std::optional<std::string>;

// `size` bytes that depend only on `seed`: the same seed gives the same bytes
// on every run and every machine, so planted files can be compared byte for
// byte and their hashes written down once.
std::string deterministicBytes(std::string_view seed, std::size_t size);

// Creates `path` and its missing parents (like mkdir -p).
Error makeDirectories(const std::string& path, mode_t mode = 0755);

// Writes `bytes` to a new or truncated regular file. The last component is
// never followed if it is a link.
Error writeFile(const std::string& path, std::string_view bytes, mode_t mode = 0644);

// The whole content of a regular file, without following a final link.
std::optional<std::string> readFile(const std::string& path);

// Makes a symbolic link at `path` pointing to `target`.
Error makeLink(const std::string& target, const std::string& path);

// The SHA-256 of `bytes`, as 64 lower-case hex digits.
std::string sha256Hex(std::string_view bytes);

}  // namespace footprint
