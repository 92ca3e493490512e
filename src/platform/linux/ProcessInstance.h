#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace platform {

// One process as read from /proc at one moment: enough to recognise it again
// later, so that a process id that was freed and handed to another program is
// never mistaken for the process that was found.
struct ProcessInstance {
    pid_t pid = 0;
    // When the process started, in clock ticks after boot (/proc/<pid>/stat).
    std::uint64_t startTime = 0;
    // The path of its executable (the target of /proc/<pid>/exe) and that
    // file's device and inode.
    std::string executable;
    dev_t executableDevice = 0;
    ino_t executableInode = 0;

    bool operator==(const ProcessInstance&) const = default;
};

}  // namespace platform
