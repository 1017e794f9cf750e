#pragma once

#include "Item.h"
#include "StrokeMark.h"

#include <QImage>
#include <QPoint>
#include <QRegion>
#include <QSize>

class QPainter;

// The freehand stroke in progress as one overlay shows it, painted into an
// image area by area as the overlay repaints, so that when the stroke is
// finished the layer of committed ink takes these pixels instead of stroking
// the whole of it once more: a long stroke then costs its pixels once.
// Within every area it paints, the image holds exactly what stroking the
// whole item there would give.
class StrokeInk {
public:
    // Brings `area` (overlay coordinates) of the image up to `item`, the
    // stroke in progress, for the overlay at `origin` of `size` and `dpr`;
    // false when there is no memory for the image.
    bool refresh(const Item& item, const QRect& area, QPoint origin, QSize size, qreal dpr);
    // Composites the image over what the painter holds, within `area` (the
    // painter in overlay coordinates).
    void paint(QPainter& painter, const QRect& area) const;
    // Whether the image holds the stroke that `finished` completes; if so it
    // is brought up to all of `finished` first, ready to be composited.
    bool completes(const Item& finished);
    const QImage& image() const { return pixels; }
    // The stroke went to the committed layer: the next one starts afresh.
    void startOver();
    // Lets the image go.
    void clear();

private:
    void paintAt(const Item& item, const QRect& devicePixels);
    QRect toDevice(const QRectF& onOverlay) const;

    QImage pixels;
    QPoint origin;
    QSize size;
    qreal dpr = 1;
    // The stroke painted so far, as far as telling it apart needs.
    StrokeMark mark;
    // Device pixels that show the stroke as it stands, and all that were painted.
    QRegion fresh;
    QRect used;
};
