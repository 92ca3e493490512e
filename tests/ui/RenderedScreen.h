#pragma once

#include <QColor>
#include <QImage>
#include <QList>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRectF>
#include <QString>

// What one rendered screen shows: every text and symbol that the user can
// see, with where it is, the colour it is drawn in and the colour of what is
// drawn behind it, read from the screen's own pixels.
namespace rendered {

enum class Kind { text, largeText, symbol };

struct Mark {
    QString what;  // the text, or the symbol's source, for messages
    Kind kind;
    QQuickItem* item;
    QRectF scene;       // in the window's coordinates (points)
    QColor ink;         // as drawn: the item's colour at its effective opacity
    QColor background;  // the most common colour just around the item
    bool inactive;      // part of a disabled control or of a disabled screen
};

// The texts and symbols of a window, from its image (grabbed at the window's
// device pixel ratio). Items hidden, transparent or clipped away (scrolled out
// of view) are left out.
QList<Mark> marks(QQuickWindow* window, const QImage& image);

// The contrast a mark needs: 4.5 for text, 3 for large text and symbols.
double required(Kind kind);

}  // namespace rendered
