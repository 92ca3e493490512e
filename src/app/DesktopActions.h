#pragma once

#include <QString>
#include <QStringList>

namespace app {

// The three desktop services behind the finished screen's "Copy Paths" and
// "Reveal" buttons, kept behind an interface so that the model can be tested
// without a clipboard, a file manager or the files themselves. The system's
// own are SystemDesktopActions. All calls are made on the GUI thread and
// return at once.
class DesktopActions {
  public:
    virtual ~DesktopActions() = default;

    // Clears the clipboard and puts `text` on it as plain text.
    virtual void setClipboardText(const QString& text) = 0;

    // Whether something exists at `path` now. A symbolic link counts by what
    // it points to, the way a file manager sees it: a dangling link does not
    // exist.
    virtual bool exists(const QString& path) const = 0;

    // Shows the file manager with `paths` selected. Called even with an empty
    // list, in which case the platform decides what, if anything, to show.
    virtual void reveal(const QStringList& paths) = 0;

  protected:
    DesktopActions() = default;
    DesktopActions(const DesktopActions&) = default;
    DesktopActions& operator=(const DesktopActions&) = default;
};

}  // namespace app
