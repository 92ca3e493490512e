#pragma once

#include <QFileInfo>
#include <QStringList>
#include <condition_variable>
#include <mutex>
#include <optional>

#include "app/DesktopActions.h"
#include "target/ProcessControlling.h"

// Stand-ins for the app tests that must hold a run at a chosen point or look
// at what the model asked of the desktop.
namespace apptest {

// A running Tavio that the test switches on and off, and can hold the
// engine inside one isRunning() call (numbered from 0) until released, so
// that a test can look at the model while the run stands still.
class ControlledProcesses : public target::ProcessControlling {
  public:
    bool isRunning() const override {
        std::unique_lock<std::mutex> lock(mutex_);
        const int call = calls_++;
        if (holdAt_ == call) {
            held_ = true;
            changed_.notify_all();
            changed_.wait(lock, [this] { return !holdAt_; });
            held_ = false;
        }
        return running_;
    }
    void requestQuit() const override {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++quitRequests_;
    }

    void setRunning(bool running) {
        const std::lock_guard<std::mutex> lock(mutex_);
        running_ = running;
    }
    // Holds the engine in the isRunning() call with this number.
    void holdAtCall(int call) {
        const std::lock_guard<std::mutex> lock(mutex_);
        holdAt_ = call;
    }
    bool isHeld() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return held_;
    }
    void release() {
        const std::lock_guard<std::mutex> lock(mutex_);
        holdAt_.reset();
        changed_.notify_all();
    }
    int calls() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }
    int quitRequests() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return quitRequests_;
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool running_ = false;
    std::optional<int> holdAt_;
    mutable bool held_ = false;
    mutable int calls_ = 0;
    mutable int quitRequests_ = 0;
};

// Records what the model asked for; existence is the real file system's.
class RecordingActions : public app::DesktopActions {
  public:
    void setClipboardText(const QString& text) override { clipboard.append(text); }
    bool exists(const QString& path) const override { return QFileInfo::exists(path); }
    void reveal(const QStringList& paths) override { revealed.append(paths); }

    QStringList clipboard;        // every text put there, in order
    QList<QStringList> revealed;  // every reveal call's paths, in order
};

}  // namespace apptest
