#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

#include "platform/linux/ProcessInstance.h"

namespace platform {

// Reading the kernel's process table under /proc. Every answer is a snapshot:
// a process may exit, and its id be reused, right after it was read.

// The ids of the processes (not threads) whose /proc entry belongs to `owner`,
// in ascending order. Empty when /proc cannot be read.
std::vector<pid_t> processesOwnedBy(uid_t owner);

// The process that has `pid` now, when it is alive and belongs to `owner`.
// Nothing when it is gone, is a zombie or dead (it has terminated even though
// it is still listed), belongs to someone else, or its executable cannot be
// read. All of it is read through one descriptor of /proc/<pid>, so the
// answer describes a single process even if the id is reused meanwhile.
std::optional<ProcessInstance> describeProcess(pid_t pid, uid_t owner);

}  // namespace platform
