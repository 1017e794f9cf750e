#pragma once

#include <QDebug>
#include <QImage>
#include <QPainter>
#include <cmath>
#include <functional>

inline bool near(qreal actual, qreal expected, qreal tolerance) {
    return std::abs(actual - expected) <= tolerance;
}

inline bool near(const QRectF& actual, const QRectF& expected, qreal tolerance) {
    return near(actual.left(), expected.left(), tolerance) &&
           near(actual.top(), expected.top(), tolerance) &&
           near(actual.right(), expected.right(), tolerance) &&
           near(actual.bottom(), expected.bottom(), tolerance);
}

// For failure messages.
inline QByteArray describe(const QRectF& rect) {
    QString text;
    QDebug(&text) << rect;
    return text.toUtf8();
}

// A transparent surface for checking real pixels: the part of the virtual
// desktop that starts at `origin`, as an overlay on that screen shows it, at a
// device pixel ratio. Lookups take virtual-desktop points.
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

    // Calls visit(pixel) for each device pixel within area, or everywhere.
    void forEachPixel(const QRectF& area, const std::function<void(QRgb, QPoint)>& visit) const {
        QRect pixels = image.rect();
        if (!area.isNull())
            pixels &= QRectF((area.topLeft() - origin) * dpr, area.size() * dpr).toAlignedRect();
        for (int y = pixels.top(); y <= pixels.bottom(); ++y)
            for (int x = pixels.left(); x <= pixels.right(); ++x)
                visit(image.pixel(x, y), QPoint(x, y));
    }

    // The smallest rect that holds every pixel passing `counts` (by default any
    // that is not fully transparent), within `area` if it is given.
    QRectF inkBox(
        const std::function<bool(QRgb)>& counts = [](QRgb p) { return qAlpha(p) > 0; },
        const QRectF& area = {}) const {
        QRect found;
        forEachPixel(area, [&](QRgb pixel, QPoint at) {
            if (counts(pixel))
                found |= QRect(at, QSize(1, 1));
        });
        if (found.isNull())
            return {};
        return QRectF(QPointF(found.topLeft()) / dpr + origin, QSizeF(found.size()) / dpr);
    }

    QImage image;
    qreal dpr;
    QPointF origin;
};
