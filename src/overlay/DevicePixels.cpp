#include "DevicePixels.h"

#include <QImage>
#include <QPainter>

namespace DevicePixels {

QRect covering(const QRectF& logical, qreal dpr) {
    return QRectF(logical.topLeft() * dpr, logical.size() * dpr).toAlignedRect();
}

void clearAndClip(QPainter& painter, const QRect& pixels, qreal dpr) {
    painter.setWorldTransform(QTransform::fromScale(1 / dpr, 1 / dpr));
    painter.setClipRect(pixels);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(pixels, Qt::transparent);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.resetTransform();
}

void composite(QPainter& painter, const QImage& image, const QRect& source, qreal dpr) {
    if (source.isEmpty())
        return;
    const QTransform before = painter.worldTransform();
    painter.setWorldTransform(QTransform::fromScale(1 / dpr, 1 / dpr) * before);
    painter.drawImage(source, image, source);
    painter.setWorldTransform(before);
}

} // namespace DevicePixels
