#include "app/ColorContrast.h"

#include <algorithm>
#include <cmath>

namespace {

double linear(double channel) {
    return channel <= 0.04045 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

bool reaches(const QColor& colour, const QList<QColor>& backgrounds, double minimum) {
    return std::all_of(backgrounds.cbegin(), backgrounds.cend(), [&](const QColor& background) {
        return ColorContrast::ratio(ColorContrast::over(colour, background), background) >= minimum;
    });
}

}  // namespace

ColorContrast::ColorContrast(QObject* parent) : QObject(parent) {}

double ColorContrast::luminance(const QColor& colour) {
    const QColor rgb = colour.toRgb();
    return 0.2126 * linear(rgb.redF()) + 0.7152 * linear(rgb.greenF()) +
           0.0722 * linear(rgb.blueF());
}

double ColorContrast::ratio(const QColor& first, const QColor& second) {
    const double a = luminance(first);
    const double b = luminance(second);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

QColor ColorContrast::over(const QColor& colour, const QColor& background) {
    const QColor top = colour.toRgb();
    const QColor bottom = background.toRgb();
    const double alpha = top.alphaF();
    auto mix = [alpha](double a, double b) { return a * alpha + b * (1 - alpha); };
    return QColor::fromRgbF(static_cast<float>(mix(top.redF(), bottom.redF())),
                            static_cast<float>(mix(top.greenF(), bottom.greenF())),
                            static_cast<float>(mix(top.blueF(), bottom.blueF())));
}

QColor ColorContrast::readable(const QColor& colour,
                               const QVariantList& backgrounds,
                               double minimum) {
    QList<QColor> surfaces;
    for (const QVariant& background : backgrounds) {
        surfaces.append(background.value<QColor>());
    }
    if (surfaces.isEmpty() || !colour.isValid()) {
        return colour;
    }
    // A light surface wants darker ink, a dark one lighter.
    const bool darken = luminance(surfaces.first()) > 0.18;
    QColor adjusted = colour.toHsl();
    for (int step = 0; step < 100 && !reaches(adjusted, surfaces, minimum); ++step) {
        const float next =
            std::clamp(adjusted.lightnessF() + (darken ? -0.01F : 0.01F), 0.0F, 1.0F);
        adjusted.setHslF(adjusted.hslHueF(), adjusted.hslSaturationF(), next, adjusted.alphaF());
        if (next == 0.0F || next == 1.0F) {
            break;
        }
    }
    return adjusted.toRgb();
}
