#pragma once

#include <QRect>

class QImage;
class QPainter;

// Images an overlay keeps at its device pixel ratio are cleared and copied in
// whole device pixels: at a fractional ratio a logical edge falls inside one,
// and the painter would blend or resample it.
namespace DevicePixels {

// The device pixels that cover `logical` (image coordinates) at `dpr`.
QRect covering(const QRectF& logical, qreal dpr);
// Clears `pixels` of the image the painter paints on and clips it to them;
// the painter is left with no transform.
void clearAndClip(QPainter& painter, const QRect& pixels, qreal dpr);
// Composites `source` pixels of `image` one to one onto the same pixels of
// what the painter paints on, whatever its own transform.
void composite(QPainter& painter, const QImage& image, const QRect& source, qreal dpr);

} // namespace DevicePixels
