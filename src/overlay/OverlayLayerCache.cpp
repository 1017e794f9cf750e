#include "OverlayLayerCache.h"

#include "DevicePixels.h"
#include "Renderer.h"

#include <QPainter>
#include <cstring>

namespace {

// Past these, repainting the areas of the items that went costs about as much
// as repainting everything.
constexpr size_t mostItemsGonePiecewise = 64;
constexpr int mostRectsPiecewise = 32;
// How much of what lies under the newest items is kept for undoing them.
constexpr size_t mostBytesUnderneath = 8u << 20;
constexpr size_t mostItemsUnderneath = 64;

} // namespace

QRect OverlayLayerCache::deviceArea(const QRectF& bounds) const {
    const QRectF onLayer = bounds.translated(-QPointF(origin));
    return DevicePixels::covering(onLayer, dpr).adjusted(-1, -1, 1, 1) & image.rect();
}

void OverlayLayerCache::paintNewOnTop(std::span<const Item> items, std::span<const DrawnItem> drawn,
                                      const Prepainted& ready) {
    for (size_t i = 0; i < items.size(); ++i) {
        const QRect area = deviceArea(drawn[i].bounds);
        QImage pixels = image.copy(area);
        underneathBytes += size_t(pixels.sizeInBytes());
        underneath.push_back({drawn[i].key.id, area, std::move(pixels)});
        if (ready.isFor(items[i]) && ready.pixels->size() == image.size()) {
            QPainter painter(&image);
            DevicePixels::composite(painter, *ready.pixels, area, dpr);
        } else {
            paintOnTop(items.subspan(i, 1));
        }
    }
    while (!underneath.empty() &&
           (underneathBytes > mostBytesUnderneath || underneath.size() > mostItemsUnderneath)) {
        underneathBytes -= size_t(underneath.front().pixels.sizeInBytes());
        underneath.erase(underneath.begin());
    }
}

bool OverlayLayerCache::takeOffNewest(size_t count) {
    if (count > underneath.size())
        return false;
    for (size_t i = 0; i < count; ++i)
        if (underneath[underneath.size() - 1 - i].id != held[held.size() - 1 - i].key.id)
            return false;
    for (size_t i = 0; i < count; ++i) {
        const Underneath& patch = underneath.back();
        const int bytesPerLine = patch.area.width() * 4;
        for (int y = 0; y < patch.area.height(); ++y)
            std::memcpy(image.scanLine(patch.area.top() + y) + patch.area.left() * 4,
                        patch.pixels.constScanLine(y), size_t(bytesPerLine));
        underneathBytes -= size_t(patch.pixels.sizeInBytes());
        underneath.pop_back();
    }
    return true;
}

QRect OverlayLayerCache::toLayer(const QRectF& bounds) const {
    // A pixel wider: at a fractional pixel ratio the clip rounds to whole device pixels.
    return bounds.translated(-QPointF(origin)).toAlignedRect().adjusted(-1, -1, 1, 1) &
           QRect(QPoint(), size);
}

void OverlayLayerCache::update(std::span<const Item> items, std::span<const DrawnItem> drawn,
                               QPoint newOrigin, QSize newSize, qreal newDpr,
                               const Prepainted& ready) {
    if (items.empty() || newSize.isEmpty()) {
        clear();
        return;
    }
    if (image.isNull() || newOrigin != origin || newSize != size || newDpr != dpr) {
        origin = newOrigin;
        size = newSize;
        dpr = newDpr;
        image = QImage(size * dpr, QImage::Format_ARGB32_Premultiplied);
        if (image.isNull()) { // out of memory: the overlay paints every item itself
            clear();
            return;
        }
        image.setDevicePixelRatio(dpr);
        // The first stroke on an empty screen comes with its pixels.
        const size_t inHand = ready.isFor(items.back()) ? 1 : 0;
        repaintAll(items.first(items.size() - inHand));
        paintNewOnTop(items.last(inHand), drawn.last(inHand), ready);
        held.assign(drawn.begin(), drawn.end());
        return;
    }

    const bool unchanged = held.size() == drawn.size() && held.front().key == drawn.front().key &&
                           held.back().key == drawn.back().key;
    if (unchanged)
        return;
    // Undone: the newest went, the rest stayed as they were.
    const bool newestWent = drawn.size() < held.size() && drawn.front().key == held.front().key &&
                            drawn.back().key == held[drawn.size() - 1].key;
    if (newestWent && takeOffNewest(held.size() - drawn.size())) {
        held.resize(drawn.size());
        return;
    }
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
        if (!gone.isEmpty()) {
            repaintWhere(gone, items.first(next), drawn.first(next));
            forgetUnderneath(); // painted over differently now
        }
        paintNewOnTop(items.subspan(next), drawn.subspan(next), ready);
    }
    held.assign(drawn.begin(), drawn.end());
}

void OverlayLayerCache::clear() {
    image = QImage();
    held.clear();
    forgetUnderneath();
}

void OverlayLayerCache::forgetUnderneath() {
    underneath.clear();
    underneathBytes = 0;
}

void OverlayLayerCache::repaintAll(std::span<const Item> items) {
    ++wholeRepaints;
    forgetUnderneath();
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
        // A device pixel that a logical edge falls inside would otherwise
        // keep the ink of what went.
        DevicePixels::clearAndClip(painter, DevicePixels::covering(rect, dpr), dpr);
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
    DevicePixels::composite(painter, image, DevicePixels::covering(inside, dpr) & image.rect(),
                            dpr);
}
