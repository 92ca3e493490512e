#include "app/TemporaryCopy.h"

#include <QDir>
#include <QFileInfo>

namespace app {

QString bundlePathForExecutable(const QString& executablePath) {
    if (executablePath.isEmpty()) {
        return {};
    }
    const QFileInfo macOS(QFileInfo(executablePath).absolutePath());
    const QFileInfo contents(macOS.absolutePath());
    const QFileInfo bundle(contents.absolutePath());
    const bool inBundle = macOS.fileName() == QLatin1String("MacOS") &&
                          contents.fileName() == QLatin1String("Contents") &&
                          bundle.fileName().endsWith(QLatin1String(".app"));
    return QDir::cleanPath(inBundle ? bundle.filePath() : macOS.filePath());
}

QString temporaryCopyFolder(const QString& bundlePath, const QString& temporaryPath) {
    if (bundlePath.isEmpty() || temporaryPath.isEmpty()) {
        return {};
    }
    QString folder = QFileInfo(QFileInfo(bundlePath).absolutePath()).canonicalFilePath();
    const QString temporary = QFileInfo(temporaryPath).canonicalFilePath();
    if (folder.isEmpty() || temporary.isEmpty()) {
        return {};
    }
    const QFileInfo resolved(folder);
    if (resolved.absolutePath() != temporary ||
        !resolved.fileName().startsWith(QLatin1String(kTemporaryCopyPrefix))) {
        return {};
    }
    return folder;
}

void removeTemporaryCopy(const QString& bundlePath, const QString& temporaryPath) {
    const QString folder = temporaryCopyFolder(bundlePath, temporaryPath);
    if (!folder.isEmpty()) {
        (void)QDir(folder).removeRecursively();
    }
}

}  // namespace app
