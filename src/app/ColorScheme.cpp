#include "app/ColorScheme.h"

namespace colorscheme {

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Active, QPalette::Window).lightnessF() < 0.5F;
}

QPalette darkPalette() {
    const QColor window(0x2b, 0x2b, 0x2b);
    const QColor base(0x1e, 0x1e, 0x1e);
    const QColor text(0xec, 0xec, 0xec);
    const QColor disabledText(0x80, 0x80, 0x80);
    const QColor accent(0x35, 0x84, 0xe4);

    QPalette palette(window);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3a));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Light, QColor(0x4a, 0x4a, 0x4a));
    palette.setColor(QPalette::Midlight, QColor(0x40, 0x40, 0x40));
    palette.setColor(QPalette::Mid, QColor(0x30, 0x30, 0x30));
    palette.setColor(QPalette::Dark, QColor(0x1a, 0x1a, 0x1a));
    palette.setColor(QPalette::Shadow, Qt::black);
    palette.setColor(QPalette::Highlight, accent);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, accent.lighter(130));
    palette.setColor(QPalette::LinkVisited, accent.lighter(110));
    palette.setColor(QPalette::ToolTipBase, window);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, disabledText);
    for (const QPalette::ColorRole role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        palette.setColor(QPalette::Disabled, role, disabledText);
    }
    palette.setColor(QPalette::Disabled, QPalette::Highlight, QColor(0x4a, 0x4a, 0x4a));
    return palette;
}

}  // namespace colorscheme
