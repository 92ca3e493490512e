#pragma once

#include "app/DesktopActions.h"

namespace platform {

// The desktop services on Linux. The clipboard is Qt's. Existence follows
// links, as a file manager does. Revealing asks the session's file manager
// through the freedesktop FileManager1 interface (ShowItems) without
// waiting for it; when no file manager answers, the folder of the first
// path is opened instead, and with no path at all nothing is shown.
class SystemDesktopActions final : public app::DesktopActions {
  public:
    void setClipboardText(const QString& text) override;
    bool exists(const QString& path) const override;
    void reveal(const QStringList& paths) override;
};

}  // namespace platform
