#include "TextLayout.h"

#include "TextShadow.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <cmath>

const QChar TextLayout::caret = QChar(0x258F); // left one-eighth block

QFont TextLayout::boldSystemFont(qreal pixelSize) {
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    // QFont only takes whole pixel sizes; a size below one would be refused.
    font.setPixelSize(std::isfinite(pixelSize) ? std::max(1, qRound(pixelSize)) : 1);
    font.setWeight(QFont::Bold);
    return font;
}

TextLayout::TextLayout(const Item& item, bool editing) {
    if (item.points.empty())
        return;
    shownText = editing ? item.text + caret : item.text;
    if (shownText.isEmpty())
        return;
    empty = false;
    lineFont = boldSystemFont(item.width);
    const QFontMetricsF metrics(lineFont);
    const QPointF anchor = item.points.front();
    const qreal top = anchor.y() - metrics.height() * 0.5;
    baselinePoint = QPointF(anchor.x(), top + metrics.ascent());
    const QRectF lineBox(anchor.x(), top, metrics.horizontalAdvance(shownText), metrics.height());
    ink = lineBox.united(metrics.boundingRect(shownText).translated(baselinePoint));
}

QRectF TextLayout::bounds() const {
    if (empty)
        return {};
    // One pixel for antialiasing on every side, and the shadow's blur and offset.
    const qreal reach = TextShadow::reach + 1.0;
    return ink.adjusted(-reach, -reach, reach, reach)
        .united(ink.translated(0, TextShadow::offset).adjusted(-reach, -reach, reach, reach));
}
