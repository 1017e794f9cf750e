#pragma once

#include <QDebug>
#include <QImage>
#include <QPainter>
#include <cmath>
#include <functional>

inline bool near(qreal actual, qreal expected, qreal tolerance) {
    return std::abs(actual - expected) <= tolerance;
}

// Each edge within tolerance of the other's.
inline bool near(const QRectF& actual, const QRectF& expected, qreal tolerance) {
    const QMarginsF slack(tolerance, tolerance, tolerance, tolerance);
    return (expected + slack).contains(actual) && (actual + slack).contains(expected);
}

inline QByteArray describe(const QRectF& rect) {
    QString text;
    QDebug(&text) << rect;
    return text.toUtf8();
}

// Real pixels of the desktop from `origin` on, as an overlay on that screen
// shows them at a device pixel ratio. Lookups take virtual-desktop points.
class Canvas {
public:
    Canvas(QSizeF size, qreal dpr, QPointF origin = {})
        : image((size * dpr).toSize(), QImage::Format_ARGB32_Premultiplied), dpr(dpr),
          origin(origin) {
        image.setDevicePixelRatio(dpr);
        image.fill(Qt::transparent);
    }

    void paint(const std::function<void(QPainter&)>& paintOn) {
        QPainter painter(&image);
        painter.translate(-origin);
        paintOn(painter);
    }

    QRgb at(QPointF point) const {
        const QPointF device = (point - origin) * dpr;
        return image.pixel(int(std::floor(device.x())), int(std::floor(device.y())));
    }
    int alphaAt(QPointF point) const { return qAlpha(at(point)); }
    bool isBlank() const { return inkBox().isEmpty(); }

    // The smallest rect that holds every pixel passing `counts` (by default any
    // that is not fully transparent).
    QRectF inkBox(const std::function<bool(QRgb)>& counts = [](QRgb p) {
        return qAlpha(p) > 0;
    }) const {
        const QRect pixels = image.rect();
        QRect found;
        for (int y = pixels.top(); y <= pixels.bottom(); ++y)
            for (int x = pixels.left(); x <= pixels.right(); ++x)
                if (counts(image.pixel(x, y)))
                    found |= QRect(x, y, 1, 1);
        return found.isNull()
                   ? QRectF()
                   : QRectF(QPointF(found.topLeft()) / dpr + origin, QSizeF(found.size()) / dpr);
    }

    QImage image;
    qreal dpr;
    QPointF origin;
};
