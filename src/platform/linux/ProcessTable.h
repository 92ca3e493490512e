#pragma once

#include <sys/types.h>

#include <optional>
#include <variant>
#include <vector>

#include "platform/linux/ProcessInstance.h"

namespace platform {

// Reading the kernel's process table under /proc. Every answer is a snapshot:
// a process may exit, and its id be reused, right after it was read.

// The ids of the processes (not threads) whose /proc entry belongs to `owner`,
// in ascending order. `complete` is false when part of /proc could not be
// read for any reason but a process having gone meanwhile, or when /proc is
// not the process table of our own process-id namespace: whoever asks
// whether a program runs must then take it that it may.
struct OwnedProcesses {
    std::vector<pid_t> pids;
    bool complete = true;
};
OwnedProcesses processesOwnedBy(uid_t owner);

// Why a look at one process found no live process of the owner's.
enum class LookFailure {
    // It is gone (the kernel knows no process by that id any more), is a
    // zombie, dead or exiting (terminated though still listed), is a kernel
    // thread, or belongs to someone else (its effective user, as the owner of
    // its /proc folder shows).
    notAProcessOfOurs,
    // The look itself failed (EACCES, EIO, ENOMEM, EMFILE, …), or an entry
    // vanished while its process still exists: it may be anything.
    unknown,
};

// The process that has `pid` now, when it is alive and belongs to `owner`.
// All of it is read through one descriptor of /proc/<pid>, so the answer
// describes a single process even if the id is reused meanwhile. When the
// kernel hides the executable (ProcessInstance::executableHidden()), the
// answer holds the process's command name and first argument instead; when
// even those cannot be read, the look fails.
std::variant<ProcessInstance, LookFailure> describeProcess(pid_t pid, uid_t owner);

}  // namespace platform
