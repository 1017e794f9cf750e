#include "Renderer.h"

#include "HintBar.h"
#include "TextLayout.h"
#include "TextShadow.h"

#include <QPainter>
#include <QPen>
#include <algorithm>
#include <array>
#include <cmath>
#include <ranges>

namespace {

constexpr qreal highlighterWidthFactor = 4.0;
constexpr qreal highlighterAlphaFactor = 0.4;
// Arrows this short are clicks, not drags, and draw nothing at all.
constexpr qreal shortestArrow = 2.0;
constexpr qreal shortestArrowHead = 16.0;
constexpr qreal arrowHeadPerWidth = 4.5;
constexpr qreal arrowHeadHalfAngle = 0.5;
// A zero-length segment has no direction, so Qt's stroker draws nothing for it;
// this nudge gives the round cap a direction and makes a single point a dot.
constexpr qreal dotNudge = 0.01;
constexpr qreal textShadowAlphaFactor = 0.55;
// Antialiasing may touch the pixel next to the geometric edge.
constexpr qreal antialiasMargin = 1.0;

qreal clampedAlpha(qreal alpha) {
    if (!(alpha > 0)) // also NaN
        return 0;
    return std::min(alpha, qreal(1));
}

QColor withAlpha(QColor color, qreal alpha) {
    color.setAlphaF(float(alpha));
    return color;
}

void useStroke(QPainter& painter, const QColor& color, qreal width) {
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(color, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::NoBrush);
}

bool allPointsCoincide(const std::vector<QPointF>& points) {
    const QPointF& first = points.front();
    return std::all_of(points.begin() + 1, points.end(),
                       [&first](const QPointF& point) { return point == first; });
}

// The freehand fast path: a polyline straight from the item's points, so that
// long strokes cost no path building. Stroked as one outline, like the path.
void drawFreehand(QPainter& painter, const std::vector<QPointF>& points) {
    if (points.empty())
        return;
    if (allPointsCoincide(points)) {
        const QPointF dot[2] = {points.front(), points.front() + QPointF(dotNudge, 0)};
        painter.drawPolyline(dot, 2);
        return;
    }
    painter.drawPolyline(points.data(), int(points.size()));
}

// The box around a segment that its stroke can reach.
bool segmentReaches(const QPointF& a, const QPointF& b, qreal reach, const QRectF& area) {
    return std::max(a.x(), b.x()) + reach >= area.left() &&
           std::min(a.x(), b.x()) - reach <= area.right() &&
           std::max(a.y(), b.y()) + reach >= area.top() &&
           std::min(a.y(), b.y()) - reach <= area.bottom();
}

// The segments that can reach `area`, as runs of consecutive points. Each run
// ends at a point whose next segment stays away from the area, so its round
// cap falls outside the area just like the round join it replaces; inside the
// area the outline of the runs covers exactly what the whole stroke covers.
// Empty when no segment reaches it; nullopt when every segment does.
std::optional<QPainterPath> segmentsReaching(const std::vector<QPointF>& points, qreal lineWidth,
                                             const QRectF& area) {
    // One more pixel than the bounds use, so that rounding never decides.
    const qreal reach = std::max(lineWidth, qreal(0)) * 0.5 + antialiasMargin + 1.0;
    QPainterPath path;
    bool inRun = false;
    bool skipped = false;
    for (size_t i = 1; i < points.size(); ++i) {
        if (!segmentReaches(points[i - 1], points[i], reach, area)) {
            inRun = false;
            skipped = true;
            continue;
        }
        if (!inRun)
            path.moveTo(points[i - 1]);
        path.lineTo(points[i]);
        inRun = true;
    }
    if (!skipped)
        return std::nullopt;
    return path;
}

// A freehand stroke as far as it shows within `area`.
void drawFreehandWithin(QPainter& painter, const std::vector<QPointF>& points, qreal lineWidth,
                        const QRectF& area) {
    if (points.size() < 3 || allPointsCoincide(points)) {
        drawFreehand(painter, points);
        return;
    }
    const auto part = segmentsReaching(points, lineWidth, area);
    if (!part)
        drawFreehand(painter, points);
    else if (!part->isEmpty())
        painter.drawPath(*part);
}

QRectF spannedRect(const QPointF& a, const QPointF& b) {
    return QRectF(std::min(a.x(), b.x()), std::min(a.y(), b.y()), std::abs(a.x() - b.x()),
                  std::abs(a.y() - b.y()));
}

struct ArrowGeometry {
    QPointF start, tip, barb1, barb2;
};

std::optional<ArrowGeometry> arrowGeometry(const Item& item) {
    if (item.points.size() < 2)
        return std::nullopt;
    const QPointF start = item.points[0];
    const QPointF tip = item.points[1];
    const qreal length = std::hypot(tip.x() - start.x(), tip.y() - start.y());
    if (!(length > shortestArrow))
        return std::nullopt;
    const qreal angle = std::atan2(tip.y() - start.y(), tip.x() - start.x());
    const qreal head =
        std::min(length, std::max(shortestArrowHead, item.width * arrowHeadPerWidth));
    const auto barb = [&](qreal side) {
        return QPointF(tip.x() - std::cos(angle + side) * head,
                       tip.y() - std::sin(angle + side) * head);
    };
    return ArrowGeometry{start, tip, barb(-arrowHeadHalfAngle), barb(arrowHeadHalfAngle)};
}

template <typename Points> QRectF boundsOf(const Points& points) {
    qreal left = points.begin()->x(), right = left;
    qreal top = points.begin()->y(), bottom = top;
    for (const QPointF& point : points) {
        left = std::min(left, point.x());
        right = std::max(right, point.x());
        top = std::min(top, point.y());
        bottom = std::max(bottom, point.y());
    }
    return QRectF(QPointF(left, top), QPointF(right, bottom));
}

QRectF grown(const QRectF& rect, qreal lineWidth) {
    const qreal margin = std::max(lineWidth, qreal(0)) * 0.5 + antialiasMargin;
    return rect.adjusted(-margin, -margin, margin, margin);
}

} // namespace

namespace Renderer {

void draw(QPainter& painter, const Item& item, qreal alpha, bool editing) {
    alpha = clampedAlpha(alpha);
    if (alpha == 0) // fully faded: nothing would show
        return;
    switch (item.kind) {
    case Tool::highlighter:
        useStroke(painter, withAlpha(item.color, alpha * highlighterAlphaFactor),
                  item.width * highlighterWidthFactor);
        drawFreehand(painter, item.points);
        return;
    case Tool::text:
        drawText(painter, item, alpha, editing);
        return;
    case Tool::pen:
        useStroke(painter, withAlpha(item.color, alpha), item.width);
        drawFreehand(painter, item.points);
        return;
    case Tool::arrow:
    case Tool::ellipse:
    case Tool::rect:
        if (const auto path = shapePath(item)) {
            useStroke(painter, withAlpha(item.color, alpha), item.width);
            painter.drawPath(*path);
        }
        return;
    }
}

void drawWithin(QPainter& painter, const Item& item, qreal alpha, bool editing,
                const QRectF& area) {
    alpha = clampedAlpha(alpha);
    if (alpha == 0)
        return;
    switch (item.kind) {
    case Tool::highlighter: {
        const qreal width = item.width * highlighterWidthFactor;
        useStroke(painter, withAlpha(item.color, alpha * highlighterAlphaFactor), width);
        drawFreehandWithin(painter, item.points, width, area);
        return;
    }
    case Tool::pen:
        useStroke(painter, withAlpha(item.color, alpha), item.width);
        drawFreehandWithin(painter, item.points, item.width, area);
        return;
    case Tool::text:
    case Tool::arrow:
    case Tool::ellipse:
    case Tool::rect:
        draw(painter, item, alpha, editing);
        return;
    }
}

QColor strokeColor(const Item& item, qreal alpha) {
    alpha = clampedAlpha(alpha);
    if (item.kind == Tool::highlighter)
        alpha *= highlighterAlphaFactor;
    return withAlpha(item.color, alpha);
}

void drawOutline(QPainter& painter, const Item& item) {
    Item white = item;
    white.color = Qt::white;
    if (item.kind == Tool::highlighter) {
        // The same polyline, as wide, at full strength.
        white.kind = Tool::pen;
        white.width = item.width * highlighterWidthFactor;
    }
    draw(painter, white, 1.0, false);
}

void drawText(QPainter& painter, const Item& item, qreal alpha, bool editing) {
    alpha = clampedAlpha(alpha);
    if (alpha == 0)
        return;
    const TextLayout layout(item, editing);
    if (layout.isEmpty())
        return;
    TextShadow::draw(painter, layout,
                     QColor::fromRgbF(0, 0, 0, float(alpha * textShadowAlphaFactor)));
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setFont(layout.font());
    painter.setPen(withAlpha(item.color, alpha));
    painter.drawText(layout.baseline(), layout.shown());
}

void drawHUD(QPainter& painter, const QRectF& rect, Tool tool, int colorIndex) {
    HintBar(rect, tool, colorIndex).draw(painter);
}

QRectF hudRect(const QRectF& rect, Tool tool, int colorIndex) {
    return HintBar(rect, tool, colorIndex).bar();
}

QString hudLine(Tool tool, int colorIndex) {
    return HintBar::line(tool, colorIndex);
}

QString hudHints() {
    return HintBar::hints();
}

QPainterPath strokePath(const Item& item) {
    QPainterPath path;
    if (item.points.empty())
        return path;
    path.moveTo(item.points.front());
    if (allPointsCoincide(item.points)) {
        path.lineTo(item.points.front() + QPointF(dotNudge, 0));
        return path;
    }
    for (size_t i = 1; i < item.points.size(); ++i)
        path.lineTo(item.points[i]);
    return path;
}

std::optional<QPainterPath> shapePath(const Item& item) {
    switch (item.kind) {
    case Tool::pen:
        return strokePath(item);
    case Tool::ellipse:
    case Tool::rect: {
        if (item.points.size() < 2)
            return std::nullopt;
        QPainterPath path;
        const QRectF box = spannedRect(item.points[0], item.points[1]);
        if (item.kind == Tool::rect)
            path.addRect(box);
        else
            path.addEllipse(box);
        return path;
    }
    case Tool::arrow: {
        const auto arrow = arrowGeometry(item);
        if (!arrow)
            return std::nullopt;
        QPainterPath path;
        path.moveTo(arrow->start);
        path.lineTo(arrow->tip);
        path.moveTo(arrow->barb1);
        path.lineTo(arrow->tip);
        path.lineTo(arrow->barb2);
        return path;
    }
    case Tool::highlighter:
    case Tool::text:
        return std::nullopt;
    }
    return std::nullopt;
}

QRectF tailBounds(const Item& item, size_t from) {
    const bool freehand = item.kind == Tool::pen || item.kind == Tool::highlighter;
    if (!freehand || from == 0 || from > item.points.size())
        return itemBounds(item, false);
    const qreal width =
        item.kind == Tool::highlighter ? item.width * highlighterWidthFactor : item.width;
    const auto tail =
        std::ranges::subrange(item.points.begin() + qsizetype(from - 1), item.points.end());
    return grown(boundsOf(tail), width);
}

QRectF itemBounds(const Item& item, bool editing) {
    if (item.points.empty())
        return {};
    switch (item.kind) {
    case Tool::pen:
        return grown(boundsOf(item.points), item.width);
    case Tool::highlighter:
        return grown(boundsOf(item.points), item.width * highlighterWidthFactor);
    case Tool::ellipse:
    case Tool::rect:
        if (item.points.size() < 2)
            return {};
        return grown(spannedRect(item.points[0], item.points[1]), item.width);
    case Tool::arrow:
        if (const auto arrow = arrowGeometry(item))
            return grown(boundsOf(std::array{arrow->start, arrow->tip, arrow->barb1, arrow->barb2}),
                         item.width);
        return {};
    case Tool::text:
        return TextLayout(item, editing).bounds();
    }
    return {};
}

} // namespace Renderer
