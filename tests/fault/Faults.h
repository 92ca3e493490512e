#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Makes one chosen call of the code under test fail, and counts the calls it
// makes. The calls are wrapped at link time (-Wl,--wrap=<name>, set by the
// fault_injection library for whatever links it), so the product code stays
// as it is and only the test programs carry the wrappers. Only calls made
// while armed are counted or failed; the test's own checks run disarmed.
namespace faults {

// Every call that can be made to fail. pidfdOpen and pidfdSendSignal are the
// two system calls the process adapter makes through syscall().
enum class Call : int {
    open,
    openat,
    fstatat,
    statx,
    fstat,
    lstat,
    opendir,
    fdopendir,
    readdir,
    unlinkat,
    close,
    read,
    write,
    fsync,
    renameat,
    mkdirat,
    fchmod,
    fcntl,
    readlink,
    readlinkat,
    getrandom,
    pidfdOpen,
    pidfdSendSignal,
    linkat,
    renameat2,
};
inline constexpr std::size_t kCallCount = static_cast<std::size_t>(Call::renameat2) + 1;

// Not an errno: a fault with this "error" kills the process with SIGKILL just
// before the call is made, as a power cut or the out-of-memory killer would.
inline constexpr int kCrash = -9;

const char* nameOf(Call call);
std::optional<Call> callNamed(std::string_view name);

// The errno values, among those the tests inject, that `call` can really
// return (EINTR only where an interrupted call is possible).
std::vector<int> realisticErrors(Call call);

// The one fault of a run: the `occurrence`-th call (counted from 1) of `call`
// fails with `error`. A failing call is not made, except close(), which Linux
// always carries out whatever it answers.
struct Fault {
    Call call;
    std::uint64_t occurrence;
    int error;

    std::string describe() const;  // "openat #12 EACCES" or "openat #12 crash": to replay it
};

using Counts = std::array<std::uint64_t, kCallCount>;

// Starts counting from zero, with `fault` (or none) to inject.
void arm(std::optional<Fault> fault);
// The counts of the armed stretch up to now.
Counts countsSoFar();
// Stops counting and failing; returns the counts of the armed stretch.
Counts disarm();
// Whether the armed fault was reached.
bool fired();

// The calls of the armed stretch up to now, in the order they were made (at
// most the first 100,000), each with the descriptor or folder descriptor it
// was given (-1 where the call takes none): for checking the order of
// writes and syncs.
struct LoggedCall {
    Call call;
    int fd;

    bool operator==(const LoggedCall&) const = default;
};
std::vector<LoggedCall> callLog();

// Stops counting for the life of the object: for a test's own look in the
// middle of an armed run.
class Paused {
  public:
    Paused();
    ~Paused();
    Paused(const Paused&) = delete;
    Paused& operator=(const Paused&) = delete;

  private:
    bool wasArmed_;
};

}  // namespace faults
