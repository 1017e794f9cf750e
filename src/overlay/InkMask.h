#pragma once

#include "Item.h"

#include <QRect>
#include <QRegion>
#include <array>
#include <optional>
#include <vector>

class DrawingStore;

// What one overlay shows of the drawing, as a region of its window's device
// pixels: the items, the item in progress and the hint bar, but not the veil.
// A pixel belongs to it when what is drawn there shows at half its strength
// or more (for the highlighter, half of its own translucent strength), so
// that a window cut to this region shows the ink without a dark rim where it
// would only faintly blend with the desktop. Fading ink thins, and is gone
// once it is drawn at less than half strength. Highlighter marks keep every
// other row only, so that what they mark shows through them.
class InkMask {
public:
    // screen: the window's screen in virtual-desktop coordinates.
    InkMask(const QRect& screen, qreal devicePixelRatio);

    QRegion region(const DrawingStore& store, double now);

private:
    // Fade strength in quarters, rounded down, from half (2) to full (4).
    static constexpr int fullStrength = 4;
    static constexpr int weakestShown = fullStrength / 2;

    // A committed item and its region at each strength, made when first needed.
    struct Shape {
        Item item;
        quint64 serial = 0;
        std::array<std::optional<QRegion>, fullStrength - weakestShown + 1> regions;
    };

    void followItems(const std::vector<Item>& items);
    const QRegion& shapeRegion(Shape& shape, int strength);
    QRegion currentRegion(const Item& current);
    // The item drawn at full strength, cut at each alpha threshold.
    std::vector<QRegion> itemRegions(const Item& item, bool editing,
                                     const std::vector<int>& thresholds) const;
    QRegion hintBarRegion(const DrawingStore& store) const;

    QRect screen;
    qreal ratio;
    // The store's items in order, each drawn once per strength it is seen at.
    std::vector<Shape> shapes;
    quint64 nextSerial = 1;
    // The committed items change far less often than the item in progress:
    // their union is kept while the same items show at the same strengths.
    std::vector<std::pair<quint64, int>> shownStrengths;
    QRegion committedRegion;
    // A freehand stroke in progress only grows at its end: the region of what
    // was drawn of it so far, and how many of its points that covers.
    Item drawnPart;
    QRegion drawnPartRegion;
};
