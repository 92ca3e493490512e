#include "app/DesktopColorScheme.h"

#include <QGuiApplication>
#include <QPalette>

#include "app/ColorScheme.h"

namespace app {

void followDesktopColorScheme(bool prefersDark) {
    if (!prefersDark || colorscheme::isDark(QGuiApplication::palette())) {
        return;
    }
    QGuiApplication::setPalette(colorscheme::darkPalette());
}

}  // namespace app
