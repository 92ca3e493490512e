#pragma once

#include <QPalette>

// Light and dark looks for the window. Qt's own platform themes give a dark
// palette on some desktops and not on others; where the desktop asks for a
// dark look and the palette Qt was given is light, the program draws with
// `darkPalette()` instead (in the Fusion style, which follows the palette).
namespace colorscheme {

// Whether a palette draws light text on a dark window.
bool isDark(const QPalette& palette);

// A complete dark palette (every role, every colour group), with the
// platform's own choice kept where it is already dark.
QPalette darkPalette();

}  // namespace colorscheme
