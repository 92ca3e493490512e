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
    // file's device and inode. Empty (and zero) when the kernel hides the
    // executable from the process's own user: see executableHidden().
    std::string executable;
    dev_t executableDevice = 0;
    ino_t executableInode = 0;
    // Read only for a process whose executable is hidden: what it says of
    // itself. The command name is the file name it was started by (the
    // kernel keeps its first 15 bytes; field 2 of /proc/<pid>/stat); the
    // first argument is the first word of its command line, usually the path
    // it was started by.
    std::string commandName;
    std::string firstArgument;

    // The kernel shows a process's executable to its own user only when the
    // process is dumpable and runs with the user's own ids and groups: a
    // program that made itself undumpable (ssh-agent, gpg-agent), one started
    // set-user-id or set-group-id, or one started with another group
    // (newgrp, sg, setpriv) hides it.
    bool executableHidden() const { return executable.empty(); }

    bool operator==(const ProcessInstance&) const = default;
};

}  // namespace platform
