#include "HintBar.h"

#include "PaletteColor.h"

#include <QCoreApplication>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPainter>

namespace {

constexpr qreal topGap = 70;
constexpr qreal textLeftPadding = 34; // room for the swatch
constexpr qreal textRightPadding = 18;
constexpr qreal textVerticalPadding = 7;
constexpr qreal swatchLeft = 14;
constexpr qreal swatchDiameter = 10;
constexpr int fontPixelSize = 12;

const char* const translationContext = "Renderer";

// The palette keeps its names as data; they are listed here so that the
// translation tools find them in this context.
[[maybe_unused]] const char* const colorNamesForTranslation[] = {
    QT_TRANSLATE_NOOP("Renderer", "Red"),   QT_TRANSLATE_NOOP("Renderer", "Yellow"),
    QT_TRANSLATE_NOOP("Renderer", "Green"), QT_TRANSLATE_NOOP("Renderer", "Blue"),
    QT_TRANSLATE_NOOP("Renderer", "White"), QT_TRANSLATE_NOOP("Renderer", "Black"),
};

QColor barColor() {
    return QColor::fromRgbF(0.1f, 0.1f, 0.1f, 0.82f);
}

} // namespace

QString HintBar::hints() {
    // Kept as one literal, untranslated: the key names are the same on every keyboard.
    return QStringLiteral("     P pen  A arrow  E ellipse  R rectangle  H highlighter  T text     "
                          "1\u20136 color  [ ] size     Ctrl+Z undo  C clear all  Tab hide hint  "
                          "Esc done");
}

QString HintBar::toolTitle(Tool tool) {
    switch (tool) {
    case Tool::pen:
        return QCoreApplication::translate(translationContext, "Pen");
    case Tool::arrow:
        return QCoreApplication::translate(translationContext, "Arrow");
    case Tool::ellipse:
        return QCoreApplication::translate(translationContext, "Ellipse");
    case Tool::rect:
        return QCoreApplication::translate(translationContext, "Rectangle");
    case Tool::highlighter:
        return QCoreApplication::translate(translationContext, "Highlighter");
    case Tool::text:
        return QCoreApplication::translate(translationContext, "Text");
    }
    return {};
}

QString HintBar::colorName(int colorIndex) {
    return QCoreApplication::translate(translationContext,
                                       paletteColor(colorIndex).name.toUtf8().constData());
}

QString HintBar::line(Tool tool, int colorIndex) {
    return toolTitle(tool) + QStringLiteral(" \u00B7 ") + colorName(colorIndex) + hints();
}

QFont HintBar::font() {
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setPixelSize(fontPixelSize);
    font.setWeight(QFont::Medium);
    return font;
}

HintBar::HintBar(const QRectF& rect, Tool tool, int colorIndex)
    : text(line(tool, colorIndex)), textFont(font()), swatchColor(paletteColor(colorIndex).color) {
    const QFontMetricsF metrics(textFont);
    ascent = metrics.ascent();
    const qreal width = metrics.horizontalAdvance(text) + textLeftPadding + textRightPadding;
    const qreal height = metrics.height() + 2 * textVerticalPadding;
    barRect = QRectF(rect.center().x() - width * 0.5, rect.top() + topGap, width, height);
}

QRectF HintBar::swatch() const {
    return QRectF(barRect.left() + swatchLeft, barRect.center().y() - swatchDiameter * 0.5,
                  swatchDiameter, swatchDiameter);
}

void HintBar::draw(QPainter& painter) const {
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(barColor());
    const qreal radius = barRect.height() * 0.5;
    painter.drawRoundedRect(barRect, radius, radius);

    painter.setBrush(swatchColor);
    painter.drawEllipse(swatch());

    painter.setFont(textFont);
    painter.setPen(Qt::white);
    painter.drawText(
        QPointF(barRect.left() + textLeftPadding, barRect.top() + textVerticalPadding + ascent),
        text);
}
