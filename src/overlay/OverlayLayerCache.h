#pragma once

#include "DrawnItem.h"

#include <QImage>
#include <QPoint>
#include <QRegion>
#include <QSize>
#include <span>
#include <vector>

class QPainter;

// The committed items that show at full strength, painted once into an image
// of one overlay's size, so that a repaint copies them instead of stroking
// them again. The layer follows the items it is given: a new item is painted
// on top, an item that went (undone, or fading and so painted live) is taken
// out by repainting only the area it covered. The pixels each of the newest
// items was painted over are kept, so that undoing them puts those back
// instead of painting what lies underneath again.
class OverlayLayerCache {
public:
    // Makes the layer show exactly `items` (oldest below newest; `drawn`
    // describes them, index for index) as the overlay whose top-left corner is
    // at `origin` on the virtual desktop shows them, at `size` device-independent
    // pixels and `dpr` device pixels to each. No items: the image is let go.
    // `ready` holds one new item's pixels already painted elsewhere, at the
    // same origin, size and ratio: they are composited instead of stroking it.
    struct Prepainted {
        quint64 id = 0;
        const QImage* pixels = nullptr;

        bool isFor(const Item& item) const { return pixels && id == item.id; }
    };
    void update(std::span<const Item> items, std::span<const DrawnItem> drawn, QPoint origin,
                QSize size, qreal dpr, const Prepainted& ready);
    // Composites the layer over what the painter holds, within `area` of the
    // overlay (the painter in overlay coordinates, clipped as needed).
    void paint(QPainter& painter, const QRect& area) const;

    bool isEmpty() const { return held.empty(); }
    // Lets the image go; the next update paints it afresh.
    void clear();
    // How often the whole layer was painted again: after a change of size or
    // scale, or when too much went at once to repaint it piecewise.
    int fullRepaints() const { return wholeRepaints; }

private:
    void repaintAll(std::span<const Item> items);
    void repaintWhere(const QRegion& region, std::span<const Item> items,
                      std::span<const DrawnItem> drawn);
    void paintOnTop(std::span<const Item> items);
    // Paints newly committed items, keeping the pixels each covers.
    void paintNewOnTop(std::span<const Item> items, std::span<const DrawnItem> drawn,
                       const Prepainted& ready);
    // Puts back what the newest held items covered; false when it can't.
    bool takeOffNewest(size_t count);
    void forgetUnderneath();
    QRect deviceArea(const QRectF& bounds) const;
    QRect toLayer(const QRectF& bounds) const;

    QImage image;
    QPoint origin;
    QSize size;
    qreal dpr = 1;
    std::vector<DrawnItem> held;
    // What lay under each of the newest items, newest last.
    struct Underneath {
        quint64 id;
        QRect area; // device pixels
        QImage pixels;
    };
    std::vector<Underneath> underneath;
    size_t underneathBytes = 0;
    int wholeRepaints = 0;
};
