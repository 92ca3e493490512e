#pragma once

namespace app {

// Whether the desktop asks applications for a dark look: the desktop
// portal's colour-scheme setting ("prefer dark"), asked on the session bus
// with a short timeout, or a GTK theme named with the ":dark" variant. Any
// thread may ask, once the application exists.
bool desktopPrefersDark();

// Draws the window dark when the desktop prefers dark (the answer of
// desktopPrefersDark()) and the palette Qt's platform theme gave is light
// (Qt 6.4's own themes follow the desktop only on some desktops). A palette
// that is already dark, or a light desktop, is left as it is. Call on the
// GUI thread, after the application exists and before the window does.
void followDesktopColorScheme(bool prefersDark);

}  // namespace app
