#include "OverlayLayerCache.h"

#include "Renderer.h"

#include <QPainter>

namespace {

// Past these, repainting the areas of the items that went costs about as much
// as repainting everything.
constexpr size_t mostItemsGonePiecewise = 64;
constexpr int mostRectsPiecewise = 32;

} // namespace

QRect OverlayLayerCache::toLayer(const QRectF& bounds) const {
    // A pixel wider: at a fractional pixel ratio the clip rounds to whole device pixels.
    return bounds.translated(-QPointF(origin)).toAlignedRect().adjusted(-1, -1, 1, 1) &
           QRect(QPoint(), size);
}

void OverlayLayerCache::update(std::span<const Item> items, std::span<const DrawnItem> drawn,
                               QPoint newOrigin, QSize newSize, qreal newDpr) {
    if (items.empty() || newSize.isEmpty()) {
        image = QImage();
        held.clear();
        return;
    }
    if (image.isNull() || newOrigin != origin || newSize != size || newDpr != dpr) {
        origin = newOrigin;
        size = newSize;
        dpr = newDpr;
        image = QImage(size * dpr, QImage::Format_ARGB32_Premultiplied);
        if (image.isNull()) { // out of memory: the overlay paints every item itself
            held.clear();
            return;
        }
        image.setDevicePixelRatio(dpr);
        repaintAll(items);
        held.assign(drawn.begin(), drawn.end());
        return;
    }

    const bool unchanged = held.size() == drawn.size() && held.front().key == drawn.front().key &&
                           held.back().key == drawn.back().key;
    if (unchanged)
        return;
    // The store only appends items and takes some away, so walking both lists
    // in order tells which of the held items went and which are new at the end.
    QRegion gone;
    size_t goneCount = 0;
    size_t next = 0;
    for (const DrawnItem& old : held) {
        if (next < drawn.size() && drawn[next].key == old.key) {
            ++next;
            continue;
        }
        ++goneCount;
        if (goneCount <= mostItemsGonePiecewise)
            gone += toLayer(old.bounds);
    }
    if (goneCount > mostItemsGonePiecewise || gone.rectCount() > mostRectsPiecewise) {
        repaintAll(items);
    } else {
        if (!gone.isEmpty())
            repaintWhere(gone, items.first(next), drawn.first(next));
        paintOnTop(items.subspan(next));
    }
    held.assign(drawn.begin(), drawn.end());
}

void OverlayLayerCache::clear() {
    image = QImage();
    held.clear();
}

void OverlayLayerCache::repaintAll(std::span<const Item> items) {
    ++wholeRepaints;
    image.fill(Qt::transparent);
    paintOnTop(items);
}

void OverlayLayerCache::paintOnTop(std::span<const Item> items) {
    if (items.empty())
        return;
    QPainter painter(&image);
    painter.translate(-QPointF(origin));
    for (const Item& item : items)
        Renderer::draw(painter, item, 1.0, false);
}

void OverlayLayerCache::repaintWhere(const QRegion& region, std::span<const Item> items,
                                     std::span<const DrawnItem> drawn) {
    QPainter painter(&image);
    for (const QRect& rect : region) {
        painter.setClipRect(rect);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(rect, Qt::transparent);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        painter.translate(-QPointF(origin));
        const QRectF area = QRectF(rect).translated(QPointF(origin));
        for (size_t i = 0; i < items.size(); ++i) {
            if (drawn[i].bounds.intersects(area))
                Renderer::drawWithin(painter, items[i], 1.0, false, area);
        }
        painter.resetTransform();
    }
}

void OverlayLayerCache::paint(QPainter& painter, const QRect& area) const {
    const QRect inside = area & QRect(QPoint(), size);
    if (image.isNull() || held.empty() || inside.isEmpty())
        return;
    // In device pixels, so that the painter copies them one to one.
    const QTransform overlay = painter.worldTransform();
    painter.setWorldTransform(QTransform::fromScale(1 / dpr, 1 / dpr) * overlay);
    const QRectF source(QPointF(inside.topLeft()) * dpr, QSizeF(inside.size()) * dpr);
    painter.drawImage(source, image, source);
    painter.setWorldTransform(overlay);
}
