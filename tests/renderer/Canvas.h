#pragma once

#include <QImage>
#include <QPainter>
#include <QPointF>
#include <QRectF>
#include <cmath>
#include <functional>

// For failure messages: "left,top to right,bottom".
inline QByteArray describe(const QRectF& rect) {
    return QStringLiteral("%1,%2 to %3,%4")
        .arg(rect.left())
        .arg(rect.top())
        .arg(rect.right())
        .arg(rect.bottom())
        .toUtf8();
}

// A transparent surface for checking real pixels. It shows the part of the
// virtual desktop that starts at `origin`, the way an overlay on that screen
// would, at a device pixel ratio; lookups take virtual-desktop points.
class Canvas {
public:
    Canvas(QSizeF size, qreal dpr, QPointF origin = {})
        : image(int(std::ceil(size.width() * dpr)), int(std::ceil(size.height() * dpr)),
                QImage::Format_ARGB32_Premultiplied),
          dpr(dpr), origin(origin) {
        image.setDevicePixelRatio(dpr);
        image.fill(Qt::transparent);
    }

    void paint(const std::function<void(QPainter&)>& paintOn) {
        QPainter painter(&image);
        painter.translate(-origin);
        paintOn(painter);
    }

    // The device pixel that holds the point.
    QRgb at(QPointF point) const {
        const QPointF device = (point - origin) * dpr;
        return image.pixel(int(std::floor(device.x())), int(std::floor(device.y())));
    }
    int alphaAt(QPointF point) const { return qAlpha(at(point)); }

    bool isBlank() const { return inkBox().isEmpty(); }

    // The smallest virtual-desktop rect that holds every pixel passing `counts`
    // (by default: every pixel that is not fully transparent), looking only
    // within `area` if it is given.
    QRectF inkBox(
        const std::function<bool(QRgb)>& counts = [](QRgb p) { return qAlpha(p) > 0; },
        const QRectF& area = {}) const {
        QRect pixels = image.rect();
        if (!area.isNull())
            pixels &= QRectF((area.topLeft() - origin) * dpr, area.size() * dpr).toAlignedRect();
        int left = image.width(), top = image.height(), right = -1, bottom = -1;
        for (int y = pixels.top(); y <= pixels.bottom(); ++y) {
            const QRgb* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
            for (int x = pixels.left(); x <= pixels.right(); ++x) {
                if (!counts(line[x]))
                    continue;
                left = std::min(left, x);
                right = std::max(right, x);
                top = std::min(top, y);
                bottom = std::max(bottom, y);
            }
        }
        if (right < 0)
            return {};
        return QRectF(QPointF(left, top) / dpr + origin,
                      QPointF(right + 1, bottom + 1) / dpr + origin);
    }

    // Alpha-weighted centre of the pixels passing `weight`, which returns 0 to 255.
    QPointF centroid(const std::function<int(QRgb)>& weight) const {
        double sum = 0, sx = 0, sy = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const int w = weight(image.pixel(x, y));
                sum += w;
                sx += w * (x + 0.5);
                sy += w * (y + 0.5);
            }
        }
        if (sum == 0)
            return {qQNaN(), qQNaN()};
        return QPointF(sx / sum, sy / sum) / dpr + origin;
    }

    QImage image;
    qreal dpr;
    QPointF origin;
};
