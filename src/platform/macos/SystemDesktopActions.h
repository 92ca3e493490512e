#pragma once

#include "app/DesktopActions.h"

namespace platform {

// The desktop services on macOS: the general pasteboard, the file manager's
// existence test (which follows links) and the workspace's file viewer.
class SystemDesktopActions final : public app::DesktopActions {
  public:
    void setClipboardText(const QString& text) override;
    bool exists(const QString& path) const override;
    void reveal(const QStringList& paths) override;
};

}  // namespace platform
