#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace testsupport {

using namespace std::chrono_literals;

// A child process started from an executable file, with its standard input
// and output on pipes, for tests that need real processes. Failures to start
// throw (the test fails). The destructor kills and reaps a child that is
// still there, so no test leaves a process behind.
class SpawnedProcess {
  public:
    SpawnedProcess(const std::string& executable, const std::vector<std::string>& arguments);
    ~SpawnedProcess();
    SpawnedProcess(const SpawnedProcess&) = delete;
    SpawnedProcess& operator=(const SpawnedProcess&) = delete;

    pid_t pid() const { return pid_; }

    // The next line of output, or nothing when none came before the timeout
    // or the output ended.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout = 5s);

    // The lines printed before `line`, or nothing when `line` did not come
    // in time.
    std::optional<std::vector<std::string>> readUntil(const std::string& line,
                                                      std::chrono::milliseconds timeout = 5s);

    // Every line until the output ends; nothing when it did not end in time.
    std::optional<std::vector<std::string>> readToEnd(std::chrono::milliseconds timeout = 5s);

    // For tavio-player: sends the marker signal (SIGWINCH) and returns the
    // lines printed before its "ping", which include every SIGTERM that
    // reached the player before the marker.
    std::optional<std::vector<std::string>> linesBeforePing(std::chrono::milliseconds timeout = 5s);

    // Writes to the child's standard input.
    void send(const std::string& text);

    void signal(int number);

    // Waits until the child has exited but leaves it unreaped (a zombie).
    bool waitUntilExited(std::chrono::milliseconds timeout = 5s);

    // Waits for the child to exit and reaps it; returns its wait status, or
    // nothing when it did not exit in time.
    std::optional<int> waitForExit(std::chrono::milliseconds timeout = 5s);

  private:
    pid_t pid_ = -1;
    int pidfd_ = -1;
    int input_ = -1;
    int output_ = -1;
    bool reaped_ = false;
    bool ended_ = false;
    std::string buffered_;
};

// The lines joined with "|", for readable assertion messages.
std::string joined(const std::vector<std::string>& lines);

}  // namespace testsupport
