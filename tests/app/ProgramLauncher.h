#pragma once

#include <signal.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

// Starting the real program for a test, and looking at what it left behind.
//
// Each run happens in a child that has entered its own user and mount
// namespace, where the user database is replaced by a copy that gives the
// user a fresh home in the test's temporary folder: the program finds its
// user through that database, so this is the only honest way to hand it an
// empty home without touching the real one.
namespace programtest {

struct Launch {
    std::string executable;
    std::string home;
    std::string temporary;  // TMPDIR
    std::string scratch;    // for the user database copy and the runtime folder
    // Whether $XDG_RUNTIME_DIR names a private folder (scratch/runtime), as a
    // desktop session's does, or is unset, as under su or in a container.
    bool runtimeFolder = true;
    int signal = SIGTERM;
    bool onXServer = false;  // a real window on Xvfb instead of the offscreen platform
    // When set, the program runs under strace, which logs there every file
    // it opens (successful opens only, absolute paths in full).
    std::string openedFilesLog;
    // Called once the window is up, before the signal, with the program's
    // process id and display (empty offscreen). It runs in the child that
    // holds the namespaces, so it hands back what it finds through files.
    std::function<void(pid_t program, const std::string& display)> whileRunning;
};

// Runs the program for `launch` in a namespace of its own: starts it, waits
// until it handles termination signals and has had a moment to show its
// window, sends the signal and waits for it to end. The answer is how it
// ended ("exit N", "signal N"), what went wrong, or why it could not be run
// here at all ("skip: …").
std::string runProgram(const Launch& launch);

// Everything below a folder that a program could change: type, permissions,
// owner, size and modification times, by relative path.
using Snapshot =
    std::map<std::string, std::tuple<unsigned, uid_t, gid_t, off_t, long, long, long, long>>;

Snapshot snapshot(const std::string& root);

// One line per added, removed or changed path; empty when nothing differs.
std::string describeDifference(const Snapshot& before, const Snapshot& after);

// The name of the program's single-instance lock file for `user`, and the
// lock files among the names in `folder`.
std::string lockName(uid_t user);
std::vector<std::string> locksIn(const std::string& folder);

// A file of another user (kAnotherUser) at `path`, which anyone may open,
// locked by this process for as long as the object lives: what a hostile
// user could leave in a shared temporary folder. Needs root.
inline constexpr uid_t kAnotherUser = 54321;
class ForeignLock {
  public:
    explicit ForeignLock(const std::string& path);
    ~ForeignLock();
    ForeignLock(const ForeignLock&) = delete;
    ForeignLock& operator=(const ForeignLock&) = delete;

  private:
    int fd_ = -1;
};

}  // namespace programtest
