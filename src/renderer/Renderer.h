#pragma once

#include "Item.h"

#include <QPainterPath>
#include <QRectF>
#include <QString>
#include <optional>

class QPainter;

// Stateless drawing of annotations and the hint bar with a QPainter, in
// whatever coordinates the painter has been set up for (the overlay translates
// by minus its screen's origin, so items keep their virtual-desktop points).
//
// Every routine antialiases and sets the painter's pen and brush itself; it
// leaves them changed rather than paying for save()/restore() on every item.
// The composition mode and opacity are the caller's.
namespace Renderer {

// One item at the given fade alpha (clamped to [0, 1]). The colour's own alpha
// is replaced by it, never multiplied. `editing` only matters for text.
void draw(QPainter& painter, const Item& item, qreal alpha, bool editing);
// Draws what draw() would draw, as far as it shows within `area` (in the
// painter's item coordinates); outside it, anything or nothing. A freehand item
// strokes only the segments that can reach the area, as one outline, so that
// the pixels inside are the same as those of the whole stroke while the cost
// follows the ink near the area, not the length of the stroke. The caller
// clips to the area.
void drawWithin(QPainter& painter, const Item& item, qreal alpha, bool editing, const QRectF& area);
// A stroke or shape is one outline filled with one colour. strokeColor() is
// that colour at a fade alpha, drawOutline() fills the same outline in opaque
// white, so that the alpha of what it paints is the outline's coverage of each
// pixel. Both are meant for every kind but text, which has two layers.
QColor strokeColor(const Item& item, qreal alpha);
void drawOutline(QPainter& painter, const Item& item);
// A text item: bold system font of pixel size item.width, a soft dark shadow,
// and a caret after the last character while editing. Alpha is clamped here too.
void drawText(QPainter& painter, const Item& item, qreal alpha, bool editing);

// The hint bar near the top of `rect`, for the selected tool and colour.
void drawHUD(QPainter& painter, const QRectF& rect, Tool tool, int colorIndex);

// The raw polyline of a freehand item; a single point becomes a tiny segment,
// so that the round cap shows it as a dot.
QPainterPath strokePath(const Item& item);
// The outline of a pen, arrow, ellipse or rectangle item; nothing for the other
// kinds, for too few points, or for an arrow of length 2 or less.
std::optional<QPainterPath> shapePath(const Item& item);

// The device-independent rect that drawing the item can touch, with line
// width, caps, arrow head, antialiasing, text shadow and caret. Empty when it
// paints nothing.
QRectF itemBounds(const Item& item, bool editing);
// What the segments of a freehand item from points[from - 1] to its last point
// can touch: the part of the picture that changed since the item had `from`
// points. For `from` 0, or another kind of item, everything it can touch.
QRectF tailBounds(const Item& item, size_t from);
// The hint bar's capsule within `rect`; everything drawHUD paints lies inside it.
QRectF hudRect(const QRectF& rect, Tool tool, int colorIndex);

// The hint bar's line: tool title, " · ", colour name, then the key hints.
QString hudLine(Tool tool, int colorIndex);
// The key hints that end the hint bar's line, as they are shown.
QString hudHints();

} // namespace Renderer
