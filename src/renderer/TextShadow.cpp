#include "TextShadow.h"

#include "TextLayout.h"

#include <QImage>
#include <QPainter>
#include <QPixmap>
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
QRectF visibleDeviceRect(const QPainter& painter, bool clipped) {
    const QPaintDevice* device = painter.device();
    QSizeF size(device->width(), device->height()); // widgets measure device-independently
    if (device->devType() == QInternal::Image)
        size = static_cast<const QImage*>(device)->deviceIndependentSize();
    else if (device->devType() == QInternal::Pixmap)
        size = static_cast<const QPixmap*>(device)->deviceIndependentSize();
    // From the device's own coordinates to its pixels: the pixel ratio and, for
    // a child widget, its offset in the window's backing store.
    const QTransform deviceToPixels =
        painter.worldTransform().inverted() * painter.deviceTransform();
    QRectF visible = deviceToPixels.mapRect(QRectF(QPointF(), size));
    if (clipped && painter.hasClipping())
        visible &= painter.deviceTransform().mapRect(painter.clipBoundingRect());
    return visible;
}

// Box blurs with running sums and zero beyond the edges. Dividing by the
// window is a multiply and a shift: the blur runs on every text draw.
class BoxBlur {
public:
    explicit BoxBlur(int radius)
        : radius(radius), window(2 * radius + 1), scale((1 << 16) / window) {}

    void row(const quint8* in, quint8* out, int count) const {
        int sum = 0;
        for (int i = 0; i <= radius && i < count; ++i)
            sum += in[i];
        for (int i = 0; i < count; ++i) {
            out[i] = quint8(average(sum));
            if (i + radius + 1 < count)
                sum += in[i + radius + 1];
            if (i - radius >= 0)
                sum -= in[i - radius];
        }
    }

    // All columns at once, a row at a time, so memory is read in order.
    void columns(const quint8* in, quint8* out, int width, int height,
                 std::vector<int>& sums) const {
        sums.assign(size_t(width), 0);
        for (int y = 0; y <= radius && y < height; ++y)
            addRow(sums, in + qsizetype(y) * width, width, 1);
        for (int y = 0; y < height; ++y) {
            quint8* target = out + qsizetype(y) * width;
            for (int x = 0; x < width; ++x)
                target[x] = quint8(average(sums[size_t(x)]));
            if (y + radius + 1 < height)
                addRow(sums, in + qsizetype(y + radius + 1) * width, width, 1);
            if (y - radius >= 0)
                addRow(sums, in + qsizetype(y - radius) * width, width, -1);
        }
    }

private:
    int average(int sum) const { return (sum * scale + (1 << 15)) >> 16; }
    static void addRow(std::vector<int>& sums, const quint8* row, int width, int sign) {
        for (int x = 0; x < width; ++x)
            sums[size_t(x)] += sign * row[x];
    }

    int radius;
    int window;
    int scale;
};

// Three box blurs in each direction approximate a Gaussian. Only the alpha of
// the painted line matters; the result is the colour at the blurred alpha.
void blurAlpha(QImage& image, int radius, const QColor& color) {
    const int width = image.width();
    const int height = image.height();
    std::vector<quint8> plane(size_t(width) * size_t(height));
    std::vector<quint8> scratch(plane.size());
    for (int y = 0; y < height; ++y) {
        const QRgb* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        quint8* target = plane.data() + qsizetype(y) * width;
        for (int x = 0; x < width; ++x)
            target[x] = quint8(qAlpha(line[x]));
    }

    const BoxBlur blur(radius);
    for (int y = 0; y < height; ++y) {
        quint8* line = plane.data() + qsizetype(y) * width;
        if (std::all_of(line, line + width, [](quint8 alpha) { return alpha == 0; }))
            continue; // most rows above and below the glyphs
        quint8* other = scratch.data() + qsizetype(y) * width;
        for (int pass = 0; pass < blurPasses; ++pass) {
            blur.row(line, other, width);
            std::swap(line, other);
        }
        if (line != plane.data() + qsizetype(y) * width) // an odd number of passes
            std::copy(line, line + width, plane.data() + qsizetype(y) * width);
    }
    std::vector<int> sums;
    for (int pass = 0; pass < blurPasses; ++pass) {
        blur.columns(plane.data(), scratch.data(), width, height, sums);
        plane.swap(scratch);
    }

    const QRgb tint = color.rgba();
    for (int y = 0; y < height; ++y) {
        QRgb* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        const quint8* source = plane.data() + qsizetype(y) * width;
        for (int x = 0; x < width; ++x) {
            const int alpha = (source[x] * qAlpha(tint) + 127) / 255;
            line[x] = qPremultiply(qRgba(qRed(tint), qGreen(tint), qBlue(tint), alpha));
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

    // At a fractional scale a shadow cut down to the clip comes out a few
    // levels darker than the same shadow made whole, and partial repaints
    // would then not match whole ones: there it is always made whole.
    const bool wholeScale = std::abs(scale - std::round(scale)) < 1e-6;
    const QRectF grownVisible =
        visibleDeviceRect(painter, wholeScale).adjusted(-spread, -spread, spread, spread);
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
