#pragma once

#include "Item.h"

#include <QRectF>
#include <vector>

// What an overlay knows about one committed item: enough to tell it apart from
// the others without comparing its points, the area it can paint, and the fade
// alpha it was last painted with.
struct DrawnItem {
    // Committed items never change, and the store gives each its own id:
    // equal ids mean the same item.
    struct Key {
        quint64 id = 0;
        double finishedAt = 0;

        static Key of(const Item& item);
        bool operator==(const Key& other) const { return id == other.id; }
    };

    Key key;
    // In virtual-desktop coordinates, like the item's points.
    QRectF bounds;
    // Smaller areas that together hold everything the item paints: a long
    // stroke's pieces, so that a fade repaints the ink and little around it.
    // Just the bounds for other items.
    std::vector<QRectF> pieces;
    double alpha = 1.0;

    static DrawnItem of(const Item& item);
};
