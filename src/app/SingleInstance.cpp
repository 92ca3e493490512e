#include "app/SingleInstance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QDir>
#include <QFileInfo>

namespace app {

SingleInstance::SingleInstance(const QString& folder)
    : path_(QDir(folder).filePath(
          QStringLiteral("io.tavio.Tavio.Uninstaller-%1.lock").arg(::getuid()))) {}

SingleInstance::~SingleInstance() {
    if (fd_ >= 0) {
        (void)::close(fd_);
    }
}

bool SingleInstance::acquire() {
    if (fd_ >= 0) {
        return true;
    }
    // Never through a link another user could have planted in a shared folder.
    const QByteArray file = QFile::encodeName(path_);
    const int fd = ::open(file.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        return true;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        (void)::close(fd);
        return false;
    }
    fd_ = fd;
    return true;
}

QString SingleInstance::defaultFolder() {
    QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QFileInfo info(runtime);
    if (!runtime.isEmpty() && info.isDir() && info.isWritable()) {
        return runtime;
    }
    return QDir::tempPath();
}

}  // namespace app
