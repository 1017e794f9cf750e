#include "InkMask.h"

#include "Defaults.h"
#include "DrawingStore.h"
#include "PaletteColor.h"
#include "Renderer.h"

#include <QImage>
#include <QPainter>
#include <cmath>
#include <functional>

namespace {

// How much of a pixel must be covered for it to show: half.
constexpr int halfCovered = 128;
// Room around the hint bar's capsule for its antialiased edge.
constexpr qreal hintBarMargin = 2;

// The runs of one image row whose alpha reaches the threshold, as [begin, end) pairs.
void runsOfRow(const QImage& image, int y, int threshold, std::vector<std::pair<int, int>>& runs) {
    runs.clear();
    const auto* pixels = reinterpret_cast<const QRgb*>(image.constScanLine(y));
    const int width = image.width();
    int x = 0;
    while (x < width) {
        while (x < width && qAlpha(pixels[x]) < threshold)
            ++x;
        const int begin = x;
        while (x < width && qAlpha(pixels[x]) >= threshold)
            ++x;
        if (x > begin)
            runs.emplace_back(begin, x);
    }
}

// The pixels of image whose alpha reaches threshold, moved by offset. Rows
// with the same runs become one band, as QRegion keeps them.
QRegion regionOfAlpha(const QImage& image, int threshold, QPoint offset) {
    std::vector<QRect> rects;
    std::vector<std::pair<int, int>> bandRuns;
    std::vector<std::pair<int, int>> rowRuns;
    int bandTop = 0;
    const auto closeBand = [&](int bottom) {
        for (const auto& [begin, end] : bandRuns)
            rects.emplace_back(begin + offset.x(), bandTop + offset.y(), end - begin,
                               bottom - bandTop);
    };
    for (int y = 0; y < image.height(); ++y) {
        runsOfRow(image, y, threshold, rowRuns);
        if (rowRuns == bandRuns)
            continue;
        closeBand(y);
        std::swap(bandRuns, rowRuns);
        bandTop = y;
    }
    closeBand(image.height());
    QRegion region;
    if (!rects.empty())
        region.setRects(rects.data(), int(rects.size()));
    return region;
}

// Paints into a clear image over area (window coordinates, device-independent)
// and returns the device pixels whose alpha reaches threshold.
QRegion paintedRegion(const QRectF& area, qreal ratio, int threshold,
                      const std::function<void(QPainter&)>& paint) {
    const QRect device = QRectF(area.topLeft() * ratio, area.size() * ratio).toAlignedRect();
    if (device.isEmpty())
        return {};
    QImage image(device.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    image.setDevicePixelRatio(ratio);
    {
        QPainter painter(&image);
        painter.translate(-QPointF(device.topLeft()) / ratio);
        paint(painter);
    }
    return regionOfAlpha(image, threshold, device.topLeft());
}

// The alpha a highlighter reaches where it covers a pixel fully: it is drawn
// translucent, so half of that is its "half covered".
int highlighterHalfCovered() {
    static const int threshold = [] {
        QImage image(64, 64, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        Item sample;
        sample.kind = Tool::highlighter;
        sample.color = paletteColor(0).color;
        sample.width = 8;
        sample.points = {{0, 32}, {64, 32}};
        {
            QPainter painter(&image);
            Renderer::draw(painter, sample, 1.0, false);
        }
        return std::max(1, (qAlpha(image.pixel(32, 32)) + 1) / 2);
    }();
    return threshold;
}

int thresholdFor(Tool kind) {
    return kind == Tool::highlighter ? highlighterHalfCovered() : halfCovered;
}

} // namespace

InkMask::InkMask(const QRect& screen, qreal devicePixelRatio)
    : screen(screen), ratio(devicePixelRatio) {}

QRegion InkMask::region(const DrawingStore& store, double now) {
    return committedRegion(store, now) | currentRegion(store) | hintBarRegion(store);
}

QRegion InkMask::committedRegion(const DrawingStore& store, double now) {
    const double delay = DrawingStore::fadeSeconds();
    std::vector<double> alphas;
    alphas.reserve(store.items().size());
    for (const Item& item : store.items())
        alphas.push_back(DrawingStore::alpha(item, now, delay));
    if (cacheValid && alphas == cachedAlphas && store.items() == cachedItems)
        return cachedRegion;

    // The highlighter is translucent by nature and so needs its own threshold:
    // one layer for it, one for everything else.
    QRegion region;
    for (const bool highlighters : {false, true}) {
        QRectF area;
        for (size_t i = 0; i < store.items().size(); ++i) {
            const Item& item = store.items()[i];
            if ((item.kind == Tool::highlighter) == highlighters && alphas[i] > 0)
                area |= Renderer::itemBounds(item, false);
        }
        area = area.translated(-screen.topLeft()) & QRectF(QPointF(0, 0), screen.size());
        region |= paintedRegion(area, ratio, highlighters ? highlighterHalfCovered() : halfCovered,
                                [&](QPainter& painter) {
                                    painter.translate(-QPointF(screen.topLeft()));
                                    for (size_t i = 0; i < store.items().size(); ++i) {
                                        const Item& item = store.items()[i];
                                        if ((item.kind == Tool::highlighter) == highlighters)
                                            Renderer::draw(painter, item, alphas[i], false);
                                    }
                                });
    }
    cachedItems = store.items();
    cachedAlphas = std::move(alphas);
    cachedRegion = region;
    cacheValid = true;
    return region;
}

QRegion InkMask::currentRegion(const DrawingStore& store) const {
    const std::optional<Item>& current = store.current();
    if (!current)
        return {};
    const bool editing = current->kind == Tool::text;
    const QRectF area = Renderer::itemBounds(*current, editing).translated(-screen.topLeft()) &
                        QRectF(QPointF(0, 0), screen.size());
    return paintedRegion(area, ratio, thresholdFor(current->kind), [&](QPainter& painter) {
        painter.translate(-QPointF(screen.topLeft()));
        Renderer::draw(painter, *current, 1.0, editing);
    });
}

QRegion InkMask::hintBarRegion(const DrawingStore& store) const {
    if (!store.isDrawing || !Defaults::boolValue(QStringLiteral("hudVisible")))
        return {};
    const QRectF bounds(QPointF(0, 0), screen.size());
    const QRectF bar = Renderer::hudRect(bounds, store)
                           .adjusted(-hintBarMargin, -hintBarMargin, hintBarMargin, hintBarMargin) &
                       bounds;
    return paintedRegion(bar, ratio, halfCovered,
                         [&](QPainter& painter) { Renderer::drawHUD(painter, bounds, store); });
}
