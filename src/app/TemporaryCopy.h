#pragma once

#include <QString>

namespace app {

// A copy of the uninstaller may be run from a folder of its own directly in
// the temporary folder, named with this prefix and something unique after
// it; such a copy removes that folder when it exits. The prefix is fixed in
// the program, never taken from its configuration, so no setting can point
// the clean-up at another folder.
inline constexpr char kTemporaryCopyPrefix[] = "io.tavio.Tavio.uninstaller-";

// The folder of the running program's bundle: the ".app" folder around the
// executable when it sits in "<Name>.app/Contents/MacOS/", otherwise the
// executable's own folder. Not resolved; empty for an empty path.
QString bundlePathForExecutable(const QString& executablePath);

// The folder to remove at exit for a bundle at `bundlePath`, given the
// temporary folder: the folder that holds the bundle, when, with links
// resolved on both sides, it lies directly in the temporary folder and its
// name starts with the prefix. Empty otherwise (a missing folder included).
QString temporaryCopyFolder(const QString& bundlePath, const QString& temporaryPath);

// Removes the temporary copy that `bundlePath` belongs to, if it is one,
// with everything in it. Failure is ignored: there is nobody left to tell.
void removeTemporaryCopy(const QString& bundlePath, const QString& temporaryPath);

}  // namespace app
