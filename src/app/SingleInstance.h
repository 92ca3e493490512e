#pragma once

#include <QString>

class QWindow;

namespace app {

// One uninstaller per user at a time: two runs side by side would remove the
// same files under each other. The first start holds an exclusive lock on a
// file in the user's runtime folder (the temporary folder when there is
// none) for as long as it runs; the kernel lets the lock go however the
// program ends. A second start finds it taken, asks the running copy to bring
// its window to the front and ends without scanning anything.
class SingleInstance {
  public:
    // The lock file of this user: `folder` is where it goes.
    explicit SingleInstance(const QString& folder);
    ~SingleInstance();

    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;

    // Takes the lock. False when another start holds it (or the file cannot
    // be opened at all, in which case nothing is guarded and the caller runs).
    bool acquire();

    // Where the lock goes by default: $XDG_RUNTIME_DIR, or Qt's temporary folder.
    static QString defaultFolder();

    QString path() const { return path_; }

  private:
    QString path_;
    int fd_ = -1;
};

// The running copy's side: answers a later start's request by raising
// `window`. Lives on the session bus under the program's own name; without a
// bus, a later start still ends, it just cannot raise the window.
void offerActivation(QWindow* window);

// The later start's side: asks the running copy to raise its window. Returns
// whether it answered.
bool activateRunningCopy();

}  // namespace app
