#include "FadeSprites.h"

#include "Renderer.h"

#include <QPainter>
#include <QRgba64>
#include <algorithm>

namespace {

// Coverage is kept for a few large fades at most; past this the items are
// stroked as they are.
constexpr size_t mostBytes = size_t(48) << 20;

// x * a / 255, rounded the way the painter's own blending rounds.
inline uint byteMul(uint x, uint a) {
    quint64 t = ((quint64(x) | (quint64(x) << 24)) & 0x00ff00ff00ff00ffULL) * a;
    t = (t + ((t >> 8) & 0x00ff00ff00ff00ffULL) + 0x0080008000800080ULL) >> 8;
    t &= 0x00ff00ff00ff00ffULL;
    return uint(t) | uint(t >> 24);
}

// The premultiplied colour the painter fills with for a pen of this colour.
QRgb premultiplied(const QColor& color) {
    return color.rgba64().premultiplied().toArgb32();
}

} // namespace

FadeSprites::Sprite* FadeSprites::find(const DrawnItem::Key& key, QPoint origin, qreal dpr) {
    for (Sprite& sprite : sprites) {
        if (sprite.key == key && sprite.origin == origin && sprite.dpr == dpr)
            return &sprite;
    }
    return nullptr;
}

bool FadeSprites::draw(QPainter& painter, const Item& item, const DrawnItem& drawn, QPoint origin,
                       qreal dpr, QSize size) {
    if (item.kind == Tool::text)
        return false;
    Sprite* sprite = find(drawn.key, origin, dpr);
    if (!sprite) {
        if (!make(item, drawn, origin, dpr, size))
            return false;
        sprite = &sprites.back();
    }
    paint(painter, *sprite, premultiplied(Renderer::strokeColor(item, drawn.alpha)));
    return true;
}

bool FadeSprites::make(const Item& item, const DrawnItem& drawn, QPoint origin, qreal dpr,
                       QSize size) {
    const QRectF onOverlay = drawn.bounds.translated(-QPointF(origin));
    const QRect pixels = QRectF(onOverlay.topLeft() * dpr, onOverlay.size() * dpr).toAlignedRect() &
                         QRect(QPoint(), size * dpr);
    if (pixels.isEmpty())
        return false;
    const size_t area = size_t(pixels.width()) * size_t(pixels.height());
    if (totalBytes + area > mostBytes)
        return false;

    QImage outline(pixels.size(), QImage::Format_ARGB32_Premultiplied);
    if (outline.isNull())
        return false;
    outline.fill(Qt::transparent);
    {
        QPainter painter(&outline);
        // The overlay's own mapping to device pixels, moved by whole pixels.
        QTransform toSprite;
        toSprite.translate(-pixels.x(), -pixels.y());
        toSprite.scale(dpr, dpr);
        toSprite.translate(-origin.x(), -origin.y());
        painter.setTransform(toSprite);
        Renderer::drawOutline(painter, item);
    }

    Sprite sprite;
    sprite.key = drawn.key;
    sprite.origin = origin;
    sprite.dpr = dpr;
    sprite.pixels = pixels;
    for (int y = 0; y < outline.height(); ++y) {
        const QRgb* line = reinterpret_cast<const QRgb*>(outline.constScanLine(y));
        int x = 0;
        while (x < outline.width()) {
            while (x < outline.width() && qAlpha(line[x]) == 0)
                ++x;
            const int start = x;
            while (x < outline.width() && qAlpha(line[x]) != 0)
                ++x;
            if (x > start) {
                sprite.runs.push_back(Run{y, start, x - start, sprite.coverage.size()});
                for (int i = start; i < x; ++i)
                    sprite.coverage.push_back(quint8(qAlpha(line[i])));
            }
        }
    }
    totalBytes += sprite.coverage.size() + sprite.runs.size() * sizeof(Run);
    sprites.push_back(std::move(sprite));
    return true;
}

void FadeSprites::paint(QPainter& painter, const Sprite& sprite, QRgb color) {
    if (scratch.width() < sprite.pixels.width() || scratch.height() < sprite.pixels.height()) {
        scratch = QImage(std::max(scratch.width(), sprite.pixels.width()),
                         std::max(scratch.height(), sprite.pixels.height()),
                         QImage::Format_ARGB32_Premultiplied);
        scratch.fill(Qt::transparent);
    }
    // What the painter blends for each pixel of a stroke: the colour scaled by
    // the coverage, or the colour itself where the stroke covers it fully.
    for (const Run& run : sprite.runs) {
        QRgb* line = reinterpret_cast<QRgb*>(scratch.scanLine(run.y)) + run.x;
        const quint8* coverage = sprite.coverage.data() + run.offset;
        for (int i = 0; i < run.length; ++i)
            line[i] = coverage[i] == 255 ? color : byteMul(color, coverage[i]);
    }
    // In the overlay's device pixels, so that the painter copies them one to one.
    const QTransform desktop = painter.worldTransform();
    painter.setWorldTransform(QTransform::fromScale(1 / sprite.dpr, 1 / sprite.dpr) *
                              QTransform::fromTranslate(sprite.origin.x(), sprite.origin.y()) *
                              desktop);
    painter.drawImage(QPointF(sprite.pixels.topLeft()), scratch,
                      QRectF(QPointF(), QSizeF(sprite.pixels.size())));
    painter.setWorldTransform(desktop);
    for (const Run& run : sprite.runs) {
        QRgb* line = reinterpret_cast<QRgb*>(scratch.scanLine(run.y)) + run.x;
        std::fill(line, line + run.length, QRgb(0));
    }
}

void FadeSprites::keepOnly(std::span<const DrawnItem> live) {
    std::erase_if(sprites, [&](const Sprite& sprite) {
        const bool keep = std::any_of(live.begin(), live.end(), [&](const DrawnItem& drawn) {
            return drawn.key == sprite.key;
        });
        if (!keep)
            totalBytes -= sprite.coverage.size() + sprite.runs.size() * sizeof(Run);
        return !keep;
    });
    if (sprites.empty())
        scratch = QImage();
}

void FadeSprites::clear() {
    sprites.clear();
    totalBytes = 0;
    scratch = QImage();
}
