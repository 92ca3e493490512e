#include "app/SingleInstance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <cerrno>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"

namespace app {
namespace {

QString lockNameIn(const QString& folder) {
    return QDir(folder).filePath(
        QStringLiteral("io.tavio.Tavio.Uninstaller-%1.lock").arg(::getuid()));
}

// A runtime folder is the user's alone, mode 0700, as the XDG base directory
// rules require; one that others may enter or write is no place for the lock.
bool isPrivateFolderOfOurs(const QString& folder) {
    struct stat st {};
    const QByteArray path = QFile::encodeName(folder);
    return !folder.isEmpty() && ::stat(path.constData(), &st) == 0 && S_ISDIR(st.st_mode) &&
           st.st_uid == ::getuid() && (st.st_mode & 077) == 0;
}

}  // namespace

SingleInstance::SingleInstance(QStringList folders) : folders_(std::move(folders)) {}

// The file goes first, while the lock still keeps every other start from
// using it; then the lock, with the descriptor.
SingleInstance::~SingleInstance() {
    if (fd_ >= 0) {
        (void)::unlink(QFile::encodeName(path_).constData());
        (void)::close(fd_);
    }
}

SingleInstance::Outcome SingleInstance::acquire() {
    if (fd_ >= 0) {
        return Outcome::held;
    }
    for (const QString& folder : folders_) {
        // A file removed by the copy that held it, between our open and our
        // lock, is tried again; a few times is plenty for that race.
        Attempt attempt = Attempt::again;
        for (int tries = 0; attempt == Attempt::again && tries < 8; ++tries) {
            attempt = tryFolder(folder);
        }
        if (attempt == Attempt::held) {
            return Outcome::held;
        }
        if (attempt == Attempt::heldByAnotherCopy) {
            return Outcome::heldByAnotherCopy;
        }
    }
    problem_ = QStringLiteral("no file of this user's could be locked in %1")
                   .arg(folders_.join(QStringLiteral(", ")));
    return Outcome::unguarded;
}

// Never through a link another user could have planted in a shared folder,
// and never on a file that is not the user's own: locking someone else's
// file would let them hold the program back by holding the lock.
SingleInstance::Attempt SingleInstance::tryFolder(const QString& folder) {
    const QString path = lockNameIn(folder);
    const QByteArray file = QFile::encodeName(path);
    base::UniqueFd fd(sys::open(file.constData(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    struct stat held {};
    if (!fd || ::fstat(fd.get(), &held) != 0 || !S_ISREG(held.st_mode) ||
        held.st_uid != ::getuid()) {
        return Attempt::unusable;
    }
    if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? Attempt::heldByAnotherCopy : Attempt::unusable;
    }
    struct stat named {};
    if (::lstat(file.constData(), &named) != 0 || named.st_dev != held.st_dev ||
        named.st_ino != held.st_ino) {
        return Attempt::again;
    }
    fd_ = fd.release();
    path_ = path;
    return Attempt::held;
}

QStringList SingleInstance::defaultFolders() {
    QStringList folders;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (isPrivateFolderOfOurs(runtime)) {
        folders << runtime;
    }
    folders << QDir::tempPath() << QDir::homePath();
    return folders;
}

}  // namespace app
