#pragma once

#include <QtQml/qqmlregistration.h>

#include <QColor>
#include <QObject>
#include <QVariantList>

// Contrast as the Web Content Accessibility Guidelines measure it, and text
// and symbol colours made to reach it on whatever palette the desktop gives:
// text needs 4.5:1 against what is drawn behind it, symbols and large text
// 3:1. The screens keep their familiar hues (the system green, orange and
// red, the desktop's accent) and only their lightness moves, as far as needed.
class ColorContrast : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

  public:
    static constexpr double kText = 4.5;
    static constexpr double kSymbol = 3.0;

    explicit ColorContrast(QObject* parent = nullptr);

    // The relative luminance of an opaque colour (alpha is ignored).
    static double luminance(const QColor& colour);

    // Between 1 and 21, the same whichever colour comes first.
    Q_INVOKABLE static double ratio(const QColor& first, const QColor& second);

    // `colour` drawn over `background`, with the colour's own alpha.
    static QColor over(const QColor& colour, const QColor& background);

    // `colour`, darkened when the first background is light and lightened
    // when it is dark, until it reaches `minimum` against every background
    // (a list of colours), or as near as black or white gets.
    Q_INVOKABLE static QColor readable(const QColor& colour,
                                       const QVariantList& backgrounds,
                                       double minimum);
};
