#include "PencilIconEngine.h"

#include <QImage>
#include <QPainter>
#include <QPainterPathStroker>
#include <QPixmap>
#include <cmath>

namespace {

constexpr qreal box = 24.0;
constexpr qreal ringWidth = 1.7;
constexpr qreal pencilLineWidth = 1.5;

QPainterPath disc() {
    QPainterPath path;
    path.addEllipse(QPointF(12, 12), 10.8, 10.8);
    return path;
}

QPainterPath strokeOf(const QPainterPath& path, qreal width) {
    QPainterPathStroker stroker;
    stroker.setWidth(width);
    stroker.setCapStyle(Qt::RoundCap);
    stroker.setJoinStyle(Qt::RoundJoin);
    // Strokes overlap themselves; boolean operations need a clean outline.
    return stroker.createStroke(path).simplified();
}

// The pencil seen from above its point: body, the sharpened cone, the lead.
// The body runs off the top and is cropped by the circle.
QPainterPath pencilOutline() {
    QPainterPath path;
    path.moveTo(8.4, 0);
    path.lineTo(8.4, 10.6);
    path.lineTo(12, 19.2);
    path.lineTo(15.6, 10.6);
    path.lineTo(15.6, 0);
    return path;
}

QPainterPath collar() {
    QPainterPath path;
    path.moveTo(8.4, 10.6);
    path.lineTo(15.6, 10.6);
    return path;
}

QPainterPath lead() {
    QPainterPath path;
    path.moveTo(10.45, 15.5);
    path.lineTo(13.55, 15.5);
    path.lineTo(12, 19.2);
    path.closeSubpath();
    return path;
}

// The pencil's insides, between its lines: the body above the collar (open at
// the top, where the circle crops it) and the wood of the cone above the lead.
QPainterPath pencilInsides() {
    constexpr qreal half = pencilLineWidth / 2;
    // Along the cone's edges a line of this width is wider than half measured across.
    const qreal coneInset = half * std::hypot(3.6, 8.6) / 8.6;
    auto coneLeft = [](qreal y) { return 8.4 + 3.6 * (y - 10.6) / 8.6; };

    QPainterPath insides;
    insides.addRect(QRectF(QPointF(8.4 + half, -1), QPointF(15.6 - half, 10.6 - half)));
    const qreal top = 10.6 + half;
    const qreal bottom = 15.5 - half;
    const qreal topLeft = coneLeft(top) + coneInset;
    const qreal bottomLeft = coneLeft(bottom) + coneInset;
    QPainterPath cone;
    cone.moveTo(topLeft, top);
    cone.lineTo(box - topLeft, top);
    cone.lineTo(box - bottomLeft, bottom);
    cone.lineTo(bottomLeft, bottom);
    cone.closeSubpath();
    return insides.united(cone);
}

} // namespace

PencilIconEngine::PencilIconEngine(Variant variant, QColor color, bool halo)
    : variant(variant), color(color), halo(halo) {}

QIcon PencilIconEngine::icon(Variant variant, QColor color, bool halo) {
    return QIcon(new PencilIconEngine(variant, color, halo));
}

QIcon PencilIconEngine::trayIcon(bool drawing) {
    return icon(drawing ? Variant::filled : Variant::outline, QColor(0xf4, 0xf4, 0xf4), true);
}

QPainterPath PencilIconEngine::glyph(Variant variant) {
    if (variant == Variant::outline) {
        QPainterPath innerRing;
        innerRing.addEllipse(QPointF(12, 12), 10.8 - ringWidth / 2, 10.8 - ringWidth / 2);
        const QPainterPath lines =
            strokeOf(pencilOutline(), pencilLineWidth).united(strokeOf(collar(), pencilLineWidth));
        const QPainterPath ring = strokeOf(disc(), ringWidth);
        return ring.united(lines.intersected(innerRing)).united(lead());
    }
    // Filled: a solid disc with the pencil's insides cut out; its lines and lead stay.
    return disc().subtracted(pencilInsides());
}

void PencilIconEngine::paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) {
    const qreal side = qMin(rect.width(), rect.height());
    if (side <= 0)
        return;
    const qreal scale = side / box;
    const QPainterPath path = glyph(variant);

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->translate(rect.x() + (rect.width() - side) / 2, rect.y() + (rect.height() - side) / 2);
    painter->scale(scale, scale);
    if (mode == QIcon::Disabled)
        painter->setOpacity(0.45);
    if (halo) {
        // A rim of about one device pixel whatever the size.
        const qreal rim = qMax(1.2 / scale, 0.6);
        painter->fillPath(strokeOf(path, 2 * rim), QColor(0, 0, 0, 150));
    }
    QColor fill = color;
    if (mode == QIcon::Selected)
        fill = fill.lighter(115);
    painter->fillPath(path, fill);
    painter->restore();
}

QPixmap PencilIconEngine::pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) {
    return scaledPixmap(size, mode, state, 1.0);
}

QPixmap PencilIconEngine::scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                                       qreal scale) {
    QImage image(size * scale, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    paint(&painter, image.rect(), mode, state);
    painter.end();
    QPixmap pixmap = QPixmap::fromImage(std::move(image));
    pixmap.setDevicePixelRatio(scale);
    return pixmap;
}

QIconEngine* PencilIconEngine::clone() const {
    return new PencilIconEngine(variant, color, halo);
}

QList<QSize> PencilIconEngine::availableSizes(QIcon::Mode, QIcon::State) {
    // Scalable, but trays that take a list of pixmaps need sizes to ask for.
    return {QSize(16, 16), QSize(22, 22), QSize(24, 24),  QSize(32, 32),
            QSize(48, 48), QSize(64, 64), QSize(128, 128)};
}

QString PencilIconEngine::key() const {
    return QStringLiteral("QuilleryPencil");
}
