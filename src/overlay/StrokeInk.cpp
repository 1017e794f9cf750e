#include "StrokeInk.h"

#include "DevicePixels.h"
#include "Renderer.h"

#include <QPainter>

namespace {

// An area left in more pieces than this is painted as one rect around them.
constexpr int mostPiecesPainted = 4;

} // namespace

QRect StrokeInk::toDevice(const QRectF& onOverlay) const {
    return DevicePixels::covering(onOverlay, dpr) & pixels.rect();
}

bool StrokeInk::refresh(const Item& item, const QRect& area, QPoint at, QSize overlaySize,
                        qreal ratio) {
    if (pixels.isNull() || at != origin || overlaySize != size || ratio != dpr) {
        origin = at;
        size = overlaySize;
        dpr = ratio;
        pixels = QImage(size * dpr, QImage::Format_ARGB32_Premultiplied);
        pixels.setDevicePixelRatio(dpr);
        pixels.fill(Qt::transparent);
        fresh = QRegion();
        used = QRect();
        mark = {};
    }
    if (pixels.isNull())
        return false;
    if (item.points.empty())
        return true;
    if (!mark.grewInto(item)) {
        // Another stroke: what the last one left goes.
        if (!used.isEmpty()) {
            QPainter painter(&pixels);
            DevicePixels::clearAndClip(painter, used, dpr);
        }
        fresh = QRegion();
        used = QRect();
    } else if (item.points.size() > mark.pointCount) {
        // The new segments change pixels only within the bounds of the tail.
        const QRectF tail =
            Renderer::tailBounds(item, mark.pointCount).translated(-QPointF(origin));
        fresh -= toDevice(tail).adjusted(-1, -1, 1, 1);
    }
    mark = StrokeMark::of(item);

    const QRegion todo = QRegion(toDevice(QRectF(area))) - fresh;
    if (todo.rectCount() > mostPiecesPainted) {
        paintAt(item, todo.boundingRect());
    } else {
        for (const QRect& rect : todo)
            paintAt(item, rect);
    }
    fresh += todo;
    used |= todo.boundingRect();
    return true;
}

// Exactly what the whole item shows there: cleared in whole device pixels,
// then stroked with what reaches them, clipped to them.
void StrokeInk::paintAt(const Item& item, const QRect& devicePixels) {
    QPainter painter(&pixels);
    DevicePixels::clearAndClip(painter, devicePixels, dpr);
    painter.translate(-QPointF(origin));
    const QRectF area(QPointF(devicePixels.topLeft()) / dpr + QPointF(origin),
                      QSizeF(devicePixels.size()) / dpr);
    Renderer::drawWithin(painter, item, 1.0, false, area);
}

void StrokeInk::paint(QPainter& painter, const QRect& area) const {
    const QRect inside = area & QRect(QPoint(), size);
    if (pixels.isNull() || used.isEmpty() || inside.isEmpty())
        return;
    DevicePixels::composite(painter, pixels, toDevice(QRectF(inside)) & used, dpr);
}

bool StrokeInk::completes(const Item& finished) {
    if (pixels.isNull() || !mark.grewInto(finished))
        return false;
    const QRectF bounds = Renderer::itemBounds(finished, false).translated(-QPointF(origin));
    refresh(finished, bounds.toAlignedRect(), origin, size, dpr);
    return true;
}

void StrokeInk::startOver() {
    mark = {};
}

void StrokeInk::clear() {
    pixels = QImage();
    fresh = QRegion();
    used = QRect();
    mark = {};
}
