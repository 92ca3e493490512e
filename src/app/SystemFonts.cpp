#include "app/SystemFonts.h"

#include <QFontDatabase>

SystemFonts::SystemFonts(QObject* parent) : QObject(parent) {}

QFont SystemFonts::fixed() {
    return QFontDatabase::systemFont(QFontDatabase::FixedFont);
}
