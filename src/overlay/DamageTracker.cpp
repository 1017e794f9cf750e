#include "DamageTracker.h"

#include "DrawingStore.h"
#include "Renderer.h"

#include <algorithm>

namespace {

// Many small overlapping areas (the pieces of fading strokes) are gathered on
// a grid of squares this size and make a simple region of few rects: each rect
// costs the painter's clipping more than a few more pixels do.
constexpr int tile = 32;
// Up to this many areas are taken as they are.
constexpr size_t fewAreas = 8;

void addPieces(std::vector<QRectF>& damage, const DrawnItem& drawn) {
    damage.insert(damage.end(), drawn.pieces.begin(), drawn.pieces.end());
}

// The squares of the grid that the rects touch, as a region of bands.
QRegion tiledRegion(const std::vector<QRect>& rects, QSize size) {
    const int columns = (size.width() + tile - 1) / tile;
    const int rows = (size.height() + tile - 1) / tile;
    std::vector<quint8> touched(size_t(columns) * size_t(rows));
    for (const QRect& rect : rects) {
        for (int row = rect.top() / tile; row <= rect.bottom() / tile; ++row) {
            quint8* line = touched.data() + size_t(row) * size_t(columns);
            std::fill(line + rect.left() / tile, line + rect.right() / tile + 1, quint8(1));
        }
    }
    // Bands of rows with the same runs, each run one rect: sorted and banded
    // the way QRegion keeps its rects.
    std::vector<QRect> bands;
    int row = 0;
    while (row < rows) {
        const quint8* line = touched.data() + size_t(row) * size_t(columns);
        int last = row;
        while (last + 1 < rows &&
               std::equal(line, line + columns, line + size_t(last + 1 - row) * size_t(columns)))
            ++last;
        for (int column = 0; column < columns;) {
            if (!line[column]) {
                ++column;
                continue;
            }
            const int start = column;
            while (column < columns && line[column])
                ++column;
            bands.push_back(
                QRect(start * tile, row * tile, (column - start) * tile, (last - row + 1) * tile) &
                QRect(QPoint(), size));
        }
        row = last + 1;
    }
    QRegion region;
    if (!bands.empty())
        region.setRects(bands.data(), int(bands.size()));
    return region;
}

// At a fractional pixel ratio a logical pixel's edge falls inside a device
// pixel, which the painter clips whole: a pixel more around every change keeps
// antialiased edges from being cut.
QRect onePixelWider(const QRectF& rect) {
    return rect.toAlignedRect().adjusted(-1, -1, 1, 1);
}

bool sameItem(const DrawnItem::Key& key, const Item& item) {
    return key.id == item.id;
}

} // namespace

QRegion DamageTracker::update(const DrawingStore& store, const QRect& geometry,
                              const Frame& frame) {
    const bool everything = !known || geometry != overlay || store.isDrawing() != drawing;
    known = true;
    overlay = geometry;
    drawing = store.isDrawing();
    shown = frame;

    std::vector<QRectF> changed;
    syncItems(store, changed);
    updateFades(store, changed);
    updateCurrent(store, changed);
    std::vector<QRect> changedHere;
    updateHud(store, changedHere);
    if (everything)
        return QRegion(QRect(QPoint(), overlay.size()));

    for (const QRectF& rect : changed)
        changedHere.push_back(onePixelWider(rect.translated(-QPointF(overlay.topLeft()))));
    const QRect whole(QPoint(), overlay.size());
    std::erase_if(changedHere, [&](QRect& rect) {
        rect &= whole;
        return rect.isEmpty();
    });
    if (changedHere.size() > fewAreas)
        return tiledRegion(changedHere, overlay.size());
    QRegion region;
    for (const QRect& rect : changedHere)
        region += rect;
    return region;
}

void DamageTracker::syncItems(const DrawingStore& store, std::vector<QRectF>& damage) {
    const std::vector<Item>& items = store.items();
    const size_t liveBefore = steadyFrom;
    const bool unchanged = drawn.size() == items.size() &&
                           (items.empty() || (sameItem(drawn.front().key, items.front()) &&
                                              sameItem(drawn.back().key, items.back())));
    if (unchanged) {
        liveSurvivors = liveBefore;
        return;
    }

    // Items are only ever appended, or taken away anywhere: keep what is still
    // there, in order.
    std::vector<DrawnItem> next;
    next.reserve(items.size());
    size_t old = 0;
    liveSurvivors = 0;
    for (const Item& item : items) {
        while (old < drawn.size() && !sameItem(drawn[old].key, item)) {
            addPieces(damage, drawn[old]);
            ++old;
        }
        if (old < drawn.size()) {
            if (old < liveBefore)
                ++liveSurvivors;
            next.push_back(std::move(drawn[old]));
            ++old;
        } else {
            next.push_back(DrawnItem::of(item));
            addPieces(damage, next.back());
        }
    }
    for (; old < drawn.size(); ++old)
        addPieces(damage, drawn[old]);
    drawn = std::move(next);
    inTimeOrder = std::is_sorted(drawn.begin(), drawn.end(), [](const auto& a, const auto& b) {
        return a.key.finishedAt < b.key.finishedAt;
    });
}

// How many of the first items must be painted one by one: the fading ones,
// and with a clock that went back, whatever lies below the newest fading one.
size_t DamageTracker::liveCount(const DrawingStore& store) const {
    if (!(shown.fadeDelay > 0))
        return 0;
    const std::vector<Item>& items = store.items();
    size_t count = 0;
    for (size_t i = 0; i < items.size(); ++i) {
        if (DrawingStore::alpha(items[i], shown.now, shown.fadeDelay) < 1.0)
            count = i + 1;
        else if (inTimeOrder)
            break;
    }
    return count;
}

void DamageTracker::updateFades(const DrawingStore& store, std::vector<QRectF>& damage) {
    const std::vector<Item>& items = store.items();
    steadyFrom = liveCount(store);
    const size_t end = std::max(steadyFrom, liveSurvivors);
    for (size_t i = 0; i < end; ++i) {
        const double alpha =
            i < steadyFrom ? DrawingStore::alpha(items[i], shown.now, shown.fadeDelay) : 1.0;
        if (alpha != drawn[i].alpha) {
            addPieces(damage, drawn[i]);
            drawn[i].alpha = alpha;
        }
    }
}

void DamageTracker::updateCurrent(const DrawingStore& store, std::vector<QRectF>& damage) {
    const std::optional<Item>& item = store.current();
    if (!item) {
        if (current.present)
            damage.push_back(current.bounds);
        current = Current{};
        return;
    }
    Current next{true, StrokeMark::of(*item), item->text, {}};
    // A stroke only ever grows at its end: what changed is the new piece.
    if (current.present && isFreehandTool(item->kind) && current.mark.grewInto(*item)) {
        if (next.mark.pointCount == current.mark.pointCount)
            return;
        const QRectF tail = Renderer::tailBounds(*item, current.mark.pointCount);
        damage.push_back(tail);
        next.bounds = current.bounds.united(tail);
        current = std::move(next);
        return;
    }
    const bool same = current.present && current.mark.sameStart(*item) &&
                      current.mark.pointCount == next.mark.pointCount &&
                      current.mark.last == next.mark.last && current.text == next.text;
    if (same)
        return;
    if (current.present)
        damage.push_back(current.bounds);
    next.bounds = Renderer::itemBounds(*item, item->kind == Tool::text);
    damage.push_back(next.bounds);
    current = std::move(next);
}

void DamageTracker::updateHud(const DrawingStore& store, std::vector<QRect>& damage) {
    Hud next;
    next.shown = store.isDrawing() && shown.hudVisible;
    next.tool = store.tool();
    next.colorIndex = store.colorIndex();
    next.overlaySize = overlay.size();
    if (next.shown == hud.shown && next.tool == hud.tool && next.colorIndex == hud.colorIndex &&
        next.overlaySize == hud.overlaySize)
        return;
    if (next.shown)
        next.rect = onePixelWider(Renderer::hudRect(QRectF(QPointF(), QSizeF(overlay.size())),
                                                    next.tool, next.colorIndex));
    damage.push_back(hud.rect);
    damage.push_back(next.rect);
    hud = next;
}
