#include "RenderedScreen.h"

#include <QFont>
#include <QHash>
#include <QUrl>

#include "app/ColorContrast.h"

namespace rendered {
namespace {

// Large text as the contrast guidelines define it: 18 points, or 14 bold.
bool isLarge(const QFont& font) {
    const double points = font.pointSizeF();
    return points >= 18 || (points >= 14 && font.weight() >= QFont::DemiBold);
}

double effectiveOpacity(const QQuickItem* item) {
    double opacity = 1;
    for (; item; item = item->parentItem()) {
        opacity *= item->opacity();
    }
    return opacity;
}

// The part of the scene that an item's clipping ancestors let through.
QRectF visibleArea(const QQuickItem* item, const QRectF& window) {
    QRectF area = window;
    for (const QQuickItem* up = item->parentItem(); up; up = up->parentItem()) {
        if (up->clip()) {
            area &= up->mapRectToScene(up->boundingRect());
        }
    }
    return area;
}

// The most common colour on a ring two to three device pixels outside the
// rectangle: what the item is drawn on, whatever it is (window, card, button).
QColor surrounding(const QImage& image, const QRectF& scene) {
    const double ratio = image.devicePixelRatio();
    const QRect inner = QRectF(scene.topLeft() * ratio, scene.size() * ratio).toAlignedRect();
    QHash<QRgb, int> counts;
    for (int distance = 2; distance <= 3; ++distance) {
        const QRect ring = inner.adjusted(-distance, -distance, distance, distance);
        for (int x = ring.left(); x <= ring.right(); ++x) {
            for (int y : {ring.top(), ring.bottom()}) {
                if (image.valid(x, y))
                    ++counts[image.pixel(x, y)];
            }
        }
        for (int y = ring.top() + 1; y < ring.bottom(); ++y) {
            for (int x : {ring.left(), ring.right()}) {
                if (image.valid(x, y))
                    ++counts[image.pixel(x, y)];
            }
        }
    }
    QRgb best = 0;
    int most = -1;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        if (it.value() > most) {
            best = it.key();
            most = it.value();
        }
    }
    return QColor::fromRgb(best);
}

void collect(QQuickItem* item, QQuickWindow* window, const QImage& image, QList<Mark>& out) {
    if (!item->isVisible() || qFuzzyIsNull(item->opacity())) {
        return;
    }
    const bool text = item->inherits("QQuickText") || item->inherits("QQuickTextEdit");
    const bool symbol = item->inherits("QQuickIconImage");
    const QString what =
        text ? item->property("text").toString() : item->property("source").toUrl().fileName();
    if ((text || symbol) && !what.isEmpty() && item->width() > 0 && item->height() > 0) {
        const QRectF scene = item->mapRectToScene(item->boundingRect());
        const QRectF windowArea(0, 0, window->width(), window->height());
        if (visibleArea(item, windowArea).contains(scene)) {
            QColor ink = item->property("color").value<QColor>();
            ink.setAlphaF(static_cast<float>(ink.alphaF() * effectiveOpacity(item)));
            const QColor background = surrounding(image, scene);
            const Kind kind = symbol                                           ? Kind::symbol
                              : isLarge(item->property("font").value<QFont>()) ? Kind::largeText
                                                                               : Kind::text;
            out.append({what, kind, item, scene, ColorContrast::over(ink, background), background,
                        !item->isEnabled()});
        }
    }
    for (QQuickItem* child : item->childItems()) {
        collect(child, window, image, out);
    }
}

}  // namespace

QList<Mark> marks(QQuickWindow* window, const QImage& image) {
    QList<Mark> out;
    collect(window->contentItem(), window, image, out);
    return out;
}

double required(Kind kind) {
    return kind == Kind::text ? ColorContrast::kText : ColorContrast::kSymbol;
}

}  // namespace rendered
