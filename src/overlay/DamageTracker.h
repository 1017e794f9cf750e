#pragma once

#include "DrawnItem.h"
#include "StrokeMark.h"
#include "Tool.h"

#include <QRect>
#include <QRegion>
#include <span>
#include <vector>

class DrawingStore;

// Remembers what one overlay shows and tells, when the drawing changes, which
// part of the overlay that changes: a new piece of the stroke being drawn, a
// shape's old and new outline, the line of text being typed, items that come,
// go or fade, the hint bar. It also says which committed items are painted
// live (the fading ones, always the oldest) and which can come from a cached
// layer because they show at full strength.
class DamageTracker {
public:
    // The moment a picture shows and the settings it was made with.
    struct Frame {
        double now = 0;
        double fadeDelay = 0;
        bool hudVisible = false;
    };

    // Brings what it knows up to the store as it stands at `frame`, for the
    // overlay at `geometry` on the virtual desktop, and returns the part of the
    // overlay (in its own coordinates) that looks different now.
    QRegion update(const DrawingStore& store, const QRect& geometry, const Frame& frame);
    // Forgets what was shown: the next update changes everything.
    void forget() { known = false; }
    bool knowsAnything() const { return known; }

    const Frame& frame() const { return shown; }
    // One entry per committed item of the store, in the same order.
    std::span<const DrawnItem> items() const { return drawn; }
    // Items before this index are painted one by one with their alpha; the
    // others all show at full strength.
    size_t firstSteady() const { return steadyFrom; }
    // Where the hint bar is, in overlay coordinates; empty while it is hidden.
    QRect hudRect() const { return hud.rect; }

private:
    // The item in progress, as far as its damage needs it.
    struct Current {
        bool present = false;
        StrokeMark mark;
        QString text;
        QRectF bounds;
    };
    struct Hud {
        bool shown = false;
        Tool tool = Tool::pen;
        int colorIndex = 0;
        QSize overlaySize;
        QRect rect;
    };

    void syncItems(const DrawingStore& store, std::vector<QRectF>& damage);
    void updateFades(const DrawingStore& store, std::vector<QRectF>& damage);
    void updateCurrent(const DrawingStore& store, std::vector<QRectF>& damage);
    void updateHud(const DrawingStore& store, std::vector<QRect>& damage);
    size_t liveCount(const DrawingStore& store) const;

    bool known = false;
    QRect overlay;
    bool drawing = false;
    Frame shown;
    std::vector<DrawnItem> drawn;
    // Whether the items were committed in time order, so that the fading ones
    // are exactly the first few.
    bool inTimeOrder = true;
    size_t steadyFrom = 0;
    // Of the items painted live before this update, how many are still there.
    size_t liveSurvivors = 0;
    Current current;
    Hud hud;
};
