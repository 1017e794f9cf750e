#pragma once

#include <QColor>

class QPainter;
class TextLayout;

// The soft dark drop shadow under a text item. It is drawn without a graphics
// effect: the line is painted into a small image in device pixels, its alpha
// blurred there, and the image put back one pixel lower.
namespace TextShadow {

// The blur radius in device-independent pixels; the blur's standard deviation is half of it.
inline constexpr qreal blurRadius = 3.0;
// The shadow falls this far downward on screen.
inline constexpr qreal offset = 1.0;
// How far beyond the glyphs the blurred shadow can paint, in device-independent
// pixels, at a device scale of 1 or more (three box blurs of at most the deviation each).
inline constexpr qreal reach = 3 * blurRadius * 0.5;

void draw(QPainter& painter, const TextLayout& layout, const QColor& color);

} // namespace TextShadow
