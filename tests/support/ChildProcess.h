#pragma once

#include <functional>
#include <optional>
#include <string>

namespace testsupport {

// Writes all of `data` to `fd`, through interruptions; false when a write
// failed.
bool writeAll(int fd, const std::string& data);

// Everything `fd` gives until its end (or until a read fails).
std::string readToEnd(int fd);

// Runs `body` in a forked child and returns what it returned, or nothing when
// the child died or exited without answering. The child never returns into
// GoogleTest: it writes its answer to a pipe and _exits. Used for what a test
// must not do to itself: change user, enter a new mount namespace, lower
// limits.
std::optional<std::string> runInChild(const std::function<std::string()>& body);

// In a child: enters a new user and mount namespace in which the caller is
// root (like `unshare -Urm`) with private mount propagation, so mounts made
// there vanish with the child. Returns an empty string on success, otherwise
// why namespaces are not available here.
std::string enterPrivateMountNamespace();

// In a child (of runInChild): runs `body` as the second process of a new
// process-id and mount namespace with a /proc of its own, where it sees no
// process but its own and those it starts; whatever it leaves running ends
// with it. Returns what `body` returned, or nothing when it died. Root needs
// no more; anyone else gets a user namespace too, mapped to root in it.
// Throws (into the caller's answer) when namespaces are not available.
std::optional<std::string> inPrivateProcessTable(const std::function<std::string()>& body);

}  // namespace testsupport
