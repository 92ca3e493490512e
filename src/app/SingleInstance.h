#pragma once

#include <QString>
#include <QStringList>

class QWindow;

namespace app {

// One uninstaller per user at a time: two runs side by side would remove the
// same files under each other. The first start holds an exclusive lock on a
// file of its user's for as long as it runs; the kernel lets the lock go
// however the program ends. A second start finds it taken, asks the running
// copy to bring its window to the front and ends without scanning anything.
//
// Nobody else may keep the program from starting, so the lock is only ever
// held on a file that belongs to the user: in the user's private runtime
// folder when there is one, otherwise in the temporary folder, where anyone
// may create a file of that name first. A file there that is not the user's
// is passed over for the next folder (the home folder), never locked. When
// no folder will do, the program runs unguarded and says why.
//
// The file is removed when the program ends normally. It is removed while
// the lock is still held, and a start that locked a file checks that the
// file is still the one at its path: a start that opened it just before it
// was removed tries again with a new one, so two starts never hold locks on
// two different files at once.
class SingleInstance {
  public:
    // The lock of this user, in the first of `folders` that will do.
    explicit SingleInstance(QStringList folders);
    ~SingleInstance();

    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;

    enum class Outcome {
        held,               // this start holds the lock
        heldByAnotherCopy,  // a running copy of the user's holds it
        unguarded,          // no folder would do: see problem()
    };
    Outcome acquire();

    // Where the lock may go, in order: $XDG_RUNTIME_DIR when it is a folder
    // of the user's that no one else may enter, the temporary folder (Qt's,
    // which follows $TMPDIR), then the home folder.
    static QStringList defaultFolders();

    // The lock file, once held.
    QString path() const { return path_; }
    // Why no folder would do, after Outcome::unguarded.
    QString problem() const { return problem_; }

  private:
    enum class Attempt { held, heldByAnotherCopy, unusable, again };
    Attempt tryFolder(const QString& folder);

    QStringList folders_;
    QString path_;
    QString problem_;
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
