#pragma once

#include "Item.h"

#include <QPointF>
#include <QRgb>

// What tells an item in progress apart from another, and where it had got
// to: a freehand stroke only ever grows at its end, so one that starts the
// same and still goes through the last point seen is the same stroke, grown.
struct StrokeMark {
    Tool kind = Tool::pen;
    QRgb color = 0;
    qreal width = 0;
    QPointF first;
    QPointF last;
    size_t pointCount = 0;

    static StrokeMark of(const Item& item);
    // The same kind, colour, width and first point.
    bool sameStart(const Item& item) const;
    // The item is this stroke with as many points or more.
    bool grewInto(const Item& item) const;
};
