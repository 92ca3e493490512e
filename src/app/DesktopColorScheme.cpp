#include "app/DesktopColorScheme.h"

#include <QGuiApplication>
#include <QPalette>

#include "app/ColorScheme.h"

namespace app {

void followDesktopColorScheme() {
    if (colorscheme::isDark(QGuiApplication::palette()) || !desktopPrefersDark()) {
        return;
    }
    QGuiApplication::setPalette(colorscheme::darkPalette());
}

}  // namespace app
