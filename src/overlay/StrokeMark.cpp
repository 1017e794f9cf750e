#include "StrokeMark.h"

StrokeMark StrokeMark::of(const Item& item) {
    const bool empty = item.points.empty();
    return {item.kind,
            item.color.rgba(),
            item.width,
            empty ? QPointF() : item.points.front(),
            empty ? QPointF() : item.points.back(),
            item.points.size()};
}

bool StrokeMark::sameStart(const Item& item) const {
    return item.kind == kind && item.color.rgba() == color && item.width == width &&
           (item.points.empty() ? first.isNull() : item.points.front() == first);
}

bool StrokeMark::grewInto(const Item& item) const {
    return pointCount > 0 && sameStart(item) && item.points.size() >= pointCount &&
           item.points[pointCount - 1] == last;
}
