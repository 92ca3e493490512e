#pragma once

#include "app/DesktopActions.h"

namespace app {

// The desktop services of the system the program runs on. Existence follows
// links, as a file manager does. One implementation per system:
// - Linux: the clipboard is Qt's. Revealing asks the session's file manager
//   through the freedesktop FileManager1 interface (ShowItems) without
//   waiting for it; when no file manager answers, the folder of the first
//   path is opened instead, and with no path at all nothing is shown.
// - macOS: the general pasteboard, the file manager's existence test and the
//   workspace's file viewer.
class SystemDesktopActions final : public DesktopActions {
  public:
    void setClipboardText(const QString& text) override;
    bool exists(const QString& path) const override;
    void reveal(const QStringList& paths) override;
};

}  // namespace app
