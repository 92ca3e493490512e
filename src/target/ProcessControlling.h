#pragma once

namespace target {

// The running copies of the target product, as far as the uninstaller needs
// them: whether any is still running, and a polite request to quit.
//
// Implementations are stateless: every call asks the system afresh (the engine
// polls isRunning() while it waits for the product to quit), and they may be
// called from any thread. Neither operation reports errors; a failed system
// call counts as "no running copy".
class ProcessControlling {
  public:
    virtual ~ProcessControlling() = default;

    // True when at least one copy of the product, other than the uninstaller's
    // own process, is running and has not yet terminated. A copy that has
    // exited but is still listed by the system (a zombie) does not count.
    virtual bool isRunning() const = 0;

    // What a look for running copies found: none, at least one, or nothing
    // certain because the look itself failed (isRunning() is then true:
    // nothing proves that no copy runs). A system whose look cannot fail
    // needs only isRunning().
    enum class Running { no, yes, cannotTell };
    virtual Running lookForCopies() const { return isRunning() ? Running::yes : Running::no; }

    // Asks every such copy once to quit in the ordinary way, as if the user
    // had chosen Quit, and returns at once without waiting. Never forces a
    // quit; does nothing when no copy runs.
    virtual void requestQuit() const = 0;

  protected:
    ProcessControlling() = default;
    ProcessControlling(const ProcessControlling&) = default;
    ProcessControlling& operator=(const ProcessControlling&) = default;
};

}  // namespace target
