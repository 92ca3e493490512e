#include "app/DesktopColorScheme.h"

namespace app {

// Qt's macOS theme follows the system appearance by itself: its palette is
// already dark when the desktop is.
bool desktopPrefersDark() {
    return false;
}

}  // namespace app
