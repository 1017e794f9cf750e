#pragma once

#include "Item.h"

#include <QFont>
#include <QPointF>
#include <QRectF>
#include <QString>

// Where a text item's line goes: the shown string (with the caret while
// editing), its font, its baseline and the boxes it covers. Drawing and
// bounds share it so that they can never disagree.
class TextLayout {
public:
    // The caret shown after the last character while the text is being typed.
    static const QChar caret;

    TextLayout(const Item& item, bool editing);

    // Nothing would be drawn: no anchor, or neither text nor caret.
    bool isEmpty() const { return empty; }
    const QString& shown() const { return shownText; }
    const QFont& font() const { return lineFont; }
    QPointF baseline() const { return baselinePoint; }
    // The line box (left edge at the anchor, centred vertically on it) united
    // with the glyphs' own ink, which may overhang it.
    QRectF inkBox() const { return ink; }
    // Everything the text and its shadow can touch.
    QRectF bounds() const;

    // The bold system font at a pixel size.
    static QFont boldSystemFont(qreal pixelSize);

private:
    bool empty = true;
    QString shownText;
    QFont lineFont;
    QPointF baselinePoint;
    QRectF ink;
};
