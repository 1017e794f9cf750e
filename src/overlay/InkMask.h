#pragma once

#include "Item.h"

#include <QRect>
#include <QRegion>
#include <vector>

class DrawingStore;

// What one overlay shows of the drawing, as a region of its window's device
// pixels: the items, the item in progress and the hint bar, but not the veil.
// A pixel belongs to it when what is drawn there covers at least half of it
// (for the highlighter, half of its own strength), so that a window cut to
// this region shows the ink without a dark rim where it only faintly blends
// with the desktop.
class InkMask {
public:
    // screen: the window's screen in virtual-desktop coordinates.
    InkMask(const QRect& screen, qreal devicePixelRatio);

    QRegion region(const DrawingStore& store, double now);

private:
    QRegion committedRegion(const DrawingStore& store, double now);
    QRegion currentRegion(const DrawingStore& store) const;
    QRegion hintBarRegion(const DrawingStore& store) const;

    QRect screen;
    qreal ratio;
    // The committed items change far less often than the item in progress:
    // their region is kept until they or their fade change.
    std::vector<Item> cachedItems;
    std::vector<double> cachedAlphas;
    QRegion cachedRegion;
    bool cacheValid = false;
};
