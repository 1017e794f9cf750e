#pragma once

#include "Tool.h"

#include <QColor>
#include <QFont>
#include <QPointF>
#include <QRectF>
#include <QString>

class QPainter;

// The dark capsule near the top of a screen that names the current tool and
// colour and lists the keys: its line, font and geometry, and its drawing.
class HintBar {
public:
    // Lays the bar out in `rect` (the view's bounds, y down) for the selected
    // tool and colour. The colour index must be valid; anything else is a
    // fatal programming error.
    HintBar(const QRectF& rect, Tool tool, int colorIndex);

    void draw(QPainter& painter) const;

    // The capsule; everything the bar paints lies within it.
    QRectF bar() const { return barRect; }
    QRectF swatch() const;

    // Tool title, " · ", colour name, then the key hints.
    static QString line(Tool tool, int colorIndex);
    // The key hints, exactly as shown, in every language.
    static QString hints();
    static QString toolTitle(Tool tool);
    static QString colorName(int colorIndex);
    static QFont font();

private:
    QString text;
    QFont textFont;
    QColor swatchColor;
    QRectF barRect;
    qreal ascent = 0;
};
