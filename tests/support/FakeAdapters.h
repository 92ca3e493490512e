#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "target/AppVerifying.h"
#include "target/PreferencesAccess.h"
#include "target/ProcessControlling.h"

// Scripted stand-ins for the platform adapters, for tests that must pin an
// order of calls. Each records what it was asked, and is safe to call from
// the engine's thread while the test thread reads it.
namespace testsupport {

class FakePreferences : public target::PreferencesAccess {
  public:
    bool hasValues(const std::string& domain) const override {
        const std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back("hasValues " + domain);
        const auto found = values_.find(domain);
        return found != values_.end() && found->second;
    }
    void removeAll(const std::string& domain) const override {
        const std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back("removeAll " + domain);
        if (clearsOnRemove_) {
            values_[domain] = false;
        }
    }

    void setValues(const std::string& domain, bool hasValues) {
        const std::lock_guard<std::mutex> lock(mutex_);
        values_[domain] = hasValues;
    }
    // A preferences service that accepts the removal but keeps the values.
    void keepValuesOnRemove() { clearsOnRemove_ = false; }
    std::vector<std::string> calls() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }

  private:
    mutable std::mutex mutex_;
    mutable std::map<std::string, bool> values_;
    mutable std::vector<std::string> calls_;
    bool clearsOnRemove_ = true;
};

class FakeVerifier : public target::AppVerifying {
  public:
    std::optional<target::AppVerificationProblem> verify(
        const std::string& bundlePath,
        const std::string& expectedIdentifier) const override {
        const std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back(bundlePath + " " + expectedIdentifier);
        const auto found = problems_.find(bundlePath);
        return found != problems_.end() ? found->second : std::nullopt;
    }

    void refuse(const std::string& bundlePath, target::AppVerificationProblem problem) {
        const std::lock_guard<std::mutex> lock(mutex_);
        problems_.insert_or_assign(bundlePath, std::move(problem));
    }
    std::vector<std::string> calls() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }

  private:
    mutable std::mutex mutex_;
    std::map<std::string, std::optional<target::AppVerificationProblem>> problems_;
    mutable std::vector<std::string> calls_;
};

// isRunning() answers from a script, one answer per call; the last answer
// repeats. A hook may run on each call (to request a stop, say).
class FakeProcesses : public target::ProcessControlling {
  public:
    explicit FakeProcesses(std::vector<bool> script = {false}) : script_(std::move(script)) {}

    bool isRunning() const override {
        std::function<void(int)> hook;
        int call = 0;
        bool answer = false;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            call = isRunningCalls_++;
            answer = script_[std::min<std::size_t>(call, script_.size() - 1)];
            hook = onIsRunning_;
        }
        if (hook) {
            hook(call);
        }
        return answer;
    }
    void requestQuit() const override {
        std::function<void()> hook;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            ++requestQuitCalls_;
            hook = onRequestQuit_;
        }
        if (hook) {
            hook();
        }
    }

    // Through lookForCopies(), a scripted "running" reads as a look that
    // could not tell (isRunning() still answers true).
    Running lookForCopies() const override {
        const bool running = isRunning();
        const std::lock_guard<std::mutex> lock(mutex_);
        return !running ? Running::no : (cannotTell_ ? Running::cannotTell : Running::yes);
    }
    void answerCannotTell() {
        const std::lock_guard<std::mutex> lock(mutex_);
        cannotTell_ = true;
    }

    void onIsRunning(std::function<void(int call)> hook) { onIsRunning_ = std::move(hook); }
    void onRequestQuit(std::function<void()> hook) { onRequestQuit_ = std::move(hook); }
    int isRunningCalls() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return isRunningCalls_;
    }
    int requestQuitCalls() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return requestQuitCalls_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<bool> script_;
    bool cannotTell_ = false;
    mutable int isRunningCalls_ = 0;
    mutable int requestQuitCalls_ = 0;
    std::function<void(int)> onIsRunning_;
    std::function<void()> onRequestQuit_;
};

}  // namespace testsupport
