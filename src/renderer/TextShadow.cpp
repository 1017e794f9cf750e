#include "TextShadow.h"

#include "TextLayout.h"

#include <QImage>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr int blurPasses = 3;
// Beyond this scale a wider blur is not worth its cost.
constexpr qreal largestBlurScale = 8.0;

// The painter's combined scale from device-independent to device pixels
// (device pixel ratio times any world scaling).
qreal deviceScale(const QTransform& toDevice) {
    const qreal scale = std::sqrt(std::abs(toDevice.determinant()));
    if (!std::isfinite(scale) || scale <= 0)
        return 1.0;
    return scale;
}

// The device pixels that can show anything, so that a very long line off to the
// side never costs a huge image.
QRectF visibleDeviceRect(const QPainter& painter) {
    const QPaintDevice* device = painter.device();
    QRectF visible(0, 0, device->width(), device->height());
    if (device->devType() != QInternal::Image) // widgets measure in device-independent pixels
        visible = QRectF(0, 0, device->width() * device->devicePixelRatio(),
                         device->height() * device->devicePixelRatio());
    if (painter.hasClipping())
        visible &= painter.deviceTransform().mapRect(painter.clipBoundingRect());
    return visible;
}

// One running-sum box blur of a line of alpha values; zero beyond both ends.
void boxBlur(const std::vector<int>& in, std::vector<int>& out, int count, int radius) {
    const int window = 2 * radius + 1;
    int sum = 0;
    for (int i = 0; i <= radius && i < count; ++i)
        sum += in[size_t(i)];
    for (int i = 0; i < count; ++i) {
        out[size_t(i)] = (sum + window / 2) / window;
        if (i + radius + 1 < count)
            sum += in[size_t(i + radius + 1)];
        if (i - radius >= 0)
            sum -= in[size_t(i - radius)];
    }
}

// Three box blurs in each direction approximate a Gaussian. Only the alpha of
// the painted line matters; the result is the colour at the blurred alpha.
void blurAlpha(QImage& image, int radius, const QColor& color) {
    const int width = image.width();
    const int height = image.height();
    const qsizetype stride = image.bytesPerLine() / qsizetype(sizeof(QRgb));
    QRgb* pixels = reinterpret_cast<QRgb*>(image.bits());
    std::vector<int> line(size_t(std::max(width, height)));
    std::vector<int> scratch(line.size());

    const auto blurLine = [&](QRgb* first, qsizetype step, int count) {
        for (int i = 0; i < count; ++i)
            line[size_t(i)] = qAlpha(first[i * step]);
        for (int pass = 0; pass < blurPasses; ++pass) {
            boxBlur(line, scratch, count, radius);
            line.swap(scratch);
        }
    };
    for (int y = 0; y < height; ++y) {
        QRgb* row = pixels + y * stride;
        blurLine(row, 1, width);
        for (int x = 0; x < width; ++x)
            row[x] = qRgba(0, 0, 0, line[size_t(x)]);
    }
    const QRgb tint = color.rgba();
    for (int x = 0; x < width; ++x) {
        blurLine(pixels + x, stride, height);
        for (int y = 0; y < height; ++y) {
            const int alpha = (line[size_t(y)] * qAlpha(tint) + 127) / 255;
            pixels[x + y * stride] =
                qPremultiply(qRgba(qRed(tint), qGreen(tint), qBlue(tint), alpha));
        }
    }
}

} // namespace

namespace TextShadow {

void draw(QPainter& painter, const TextLayout& layout, const QColor& color) {
    if (layout.isEmpty() || color.alpha() == 0)
        return;
    // Work in whole device pixels so the image lands without resampling.
    const QTransform toDevice = painter.deviceTransform();
    if (!toDevice.isInvertible())
        return;
    const qreal scale = deviceScale(toDevice);
    const int radius = std::max(1, int(blurRadius * 0.5 * std::min(scale, largestBlurScale)));
    const int spread = blurPasses * radius + 1;

    const QRectF grownVisible =
        visibleDeviceRect(painter).adjusted(-spread, -spread, spread, spread);
    const QRectF shadowInk = toDevice.mapRect(layout.inkBox().translated(0, offset))
                                 .adjusted(-spread, -spread, spread, spread) &
                             grownVisible;
    const QPoint origin(int(std::floor(shadowInk.left())), int(std::floor(shadowInk.top())));
    const QSize size(int(std::ceil(shadowInk.right())) - origin.x(),
                     int(std::ceil(shadowInk.bottom())) - origin.y());
    if (size.isEmpty())
        return;

    QImage mask(size, QImage::Format_ARGB32_Premultiplied);
    if (mask.isNull()) // out of memory: a line without its shadow is still legible
        return;
    mask.fill(Qt::transparent);
    {
        QPainter maskPainter(&mask);
        maskPainter.setRenderHint(QPainter::Antialiasing);
        maskPainter.setRenderHint(QPainter::TextAntialiasing);
        maskPainter.setTransform(toDevice * QTransform::fromTranslate(-origin.x(), -origin.y()));
        maskPainter.setFont(layout.font());
        maskPainter.setPen(Qt::black);
        maskPainter.drawText(layout.baseline() + QPointF(0, offset), layout.shown());
    }
    blurAlpha(mask, radius, color);
    mask.setDevicePixelRatio(scale);
    painter.drawImage(toDevice.inverted().map(QPointF(origin)), mask);
}

} // namespace TextShadow
