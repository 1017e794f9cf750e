#pragma once

#include "DrawnItem.h"

#include <QImage>
#include <QRect>
#include <QRegion>
#include <span>
#include <vector>

class QPainter;

// Fading strokes and shapes, repainted at a new alpha on every frame of their
// fade without stroking them again. Each keeps the coverage of its outline,
// taken from one opaque rendering; a frame blends the stroke's colour at its
// alpha through that coverage, computing every pixel exactly as the painter
// blends a stroke of that colour, so the picture is the same as drawing it.
// Text has two layers (glyphs over a shadow) and is left to the caller.
class FadeSprites {
public:
    // Draws the item as Renderer::draw would at the alpha in `drawn`, within
    // `region` of the overlay whose top-left corner is at `origin` (the painter
    // in virtual-desktop coordinates, shifted to the overlay). False when it
    // cannot, and the caller must draw the item itself.
    bool draw(QPainter& painter, const Item& item, const DrawnItem& drawn, QPoint origin, qreal dpr,
              QSize size);
    // Forgets every sprite but those of `live`.
    void keepOnly(std::span<const DrawnItem> live);
    void clear();

    size_t count() const { return sprites.size(); }
    size_t bytes() const { return totalBytes; }

private:
    // A row's run of pixels the outline touches.
    struct Run {
        int y;
        int x;
        int length;
        size_t offset;
    };
    struct Sprite {
        DrawnItem::Key key;
        QPoint origin;
        qreal dpr = 1;
        QRect pixels; // device pixels of the overlay
        std::vector<Run> runs;
        std::vector<quint8> coverage;
    };

    Sprite* find(const DrawnItem::Key& key, QPoint origin, qreal dpr);
    bool make(const Item& item, const DrawnItem& drawn, QPoint origin, qreal dpr, QSize size);
    void paint(QPainter& painter, const Sprite& sprite, QRgb color);

    std::vector<Sprite> sprites;
    size_t totalBytes = 0;
    // Where a frame's pixels of one sprite are put together; transparent
    // outside the runs being drawn.
    QImage scratch;
};
