#include "InkMask.h"

#include "DrawingStore.h"
#include "PaletteColor.h"
#include "Renderer.h"
#include "Settings.h"

#include <QImage>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <functional>

namespace {

// The alpha of a pixel that what is drawn covers fully.
constexpr int opaque = 255;
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
// and returns, for each threshold, the device pixels whose alpha reaches it.
std::vector<QRegion> paintedRegions(const QRectF& area, qreal ratio,
                                    const std::vector<int>& thresholds,
                                    const std::function<void(QPainter&)>& paint) {
    const QRect device = QRectF(area.topLeft() * ratio, area.size() * ratio).toAlignedRect();
    if (device.isEmpty())
        return std::vector<QRegion>(thresholds.size());
    QImage image(device.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    image.setDevicePixelRatio(ratio);
    {
        QPainter painter(&image);
        painter.translate(-QPointF(device.topLeft()) / ratio);
        paint(painter);
    }
    std::vector<QRegion> regions;
    for (const int threshold : thresholds)
        regions.push_back(regionOfAlpha(image, threshold, device.topLeft()));
    return regions;
}

// The alpha a highlighter reaches where it covers a pixel fully: it is drawn
// translucent, and its strength is measured against that.
int highlighterFullAlpha() {
    static const int alpha = [] {
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
        return std::max(1, qAlpha(image.pixel(32, 32)));
    }();
    return alpha;
}

// The alpha at which a pixel of an item drawn at full strength still shows at
// half strength or more once the whole item is drawn at `strength`.
int thresholdFor(Tool kind, double strength) {
    const int full = kind == Tool::highlighter ? highlighterFullAlpha() : opaque;
    return std::min(full, int(std::ceil(full * 0.5 / strength)));
}

// Without a compositor a shaped window shows its pixels opaque: a highlighter
// band cut whole would hide what it marks. Cut to every other row of device
// pixels, it lets the rows between show what lies under it.
QRegion everyOtherRow(const QRect& area) {
    QRegion rows;
    for (int y = area.top() + (area.top() & 1); y <= area.bottom(); y += 2)
        rows += QRect(area.left(), y, area.width(), 1);
    return rows;
}

} // namespace

InkMask::InkMask(const QRect& screen, qreal devicePixelRatio)
    : screen(screen), ratio(devicePixelRatio) {}

QRegion InkMask::region(const DrawingStore& store, double now) {
    followItems(store.items());
    const double delay = DrawingStore::fadeSeconds();
    std::vector<std::pair<quint64, int>> strengths;
    strengths.reserve(shapes.size());
    for (const Shape& shape : shapes) {
        const double alpha = DrawingStore::alpha(shape.item, now, delay);
        const int strength = std::min(int(std::floor(alpha * fullStrength)), fullStrength);
        if (strength >= weakestShown)
            strengths.emplace_back(shape.serial, strength);
    }
    if (strengths != shownStrengths) {
        committedRegion = QRegion();
        auto shown = strengths.begin();
        for (Shape& shape : shapes)
            if (shown != strengths.end() && shape.serial == shown->first) {
                committedRegion |= shapeRegion(shape, shown->second);
                ++shown;
            }
        shownStrengths = std::move(strengths);
    }
    QRegion result = committedRegion | hintBarRegion(store);
    if (const std::optional<Item>& current = store.current())
        result |= currentRegion(*current);
    return result;
}

void InkMask::followItems(const std::vector<Item>& items) {
    // Items keep their order: they are only added, taken away or faded out.
    // Keep the shapes of those still there, and make new ones for the rest.
    std::vector<Shape> followed;
    followed.reserve(items.size());
    size_t old = 0;
    for (const Item& item : items) {
        size_t probe = old;
        while (probe < shapes.size() && !(shapes[probe].item == item))
            ++probe;
        if (probe < shapes.size()) {
            followed.push_back(std::move(shapes[probe]));
            old = probe + 1;
        } else {
            Shape shape;
            shape.item = item;
            shape.serial = nextSerial++;
            followed.push_back(std::move(shape));
        }
    }
    shapes = std::move(followed);
}

const QRegion& InkMask::shapeRegion(Shape& shape, int strength) {
    if (!shape.regions.front()) {
        // One drawing at full strength gives the region at every strength.
        std::vector<int> thresholds;
        for (int s = weakestShown; s <= fullStrength; ++s)
            thresholds.push_back(thresholdFor(shape.item.kind, double(s) / fullStrength));
        std::vector<QRegion> regions = itemRegions(shape.item, false, thresholds);
        for (size_t i = 0; i < regions.size(); ++i)
            shape.regions[i] = std::move(regions[i]);
    }
    return *shape.regions[size_t(strength - weakestShown)];
}

QRegion InkMask::currentRegion(const Item& current) {
    const bool grewAtItsEnd =
        isFreehandTool(current.kind) && !drawnPart.points.empty() &&
        drawnPart.kind == current.kind && drawnPart.color == current.color &&
        drawnPart.width == current.width && current.points.size() >= drawnPart.points.size() &&
        std::equal(drawnPart.points.begin(), drawnPart.points.end(), current.points.begin());
    const std::vector<int> halfStrength{thresholdFor(current.kind, 1.0)};
    if (!grewAtItsEnd) {
        drawnPart = current;
        drawnPartRegion = itemRegions(current, current.kind == Tool::text, halfStrength).front();
        if (!isFreehandTool(current.kind))
            drawnPart.points.clear();
        return drawnPartRegion;
    }
    if (current.points.size() > drawnPart.points.size()) {
        // The new part, from the last point already drawn: its round cap
        // there is the round join the whole stroke has.
        Item tail = current;
        tail.points.assign(current.points.begin() + qsizetype(drawnPart.points.size()) - 1,
                           current.points.end());
        drawnPartRegion |= itemRegions(tail, false, halfStrength).front();
        drawnPart.points = current.points;
    }
    return drawnPartRegion;
}

std::vector<QRegion> InkMask::itemRegions(const Item& item, bool editing,
                                          const std::vector<int>& thresholds) const {
    const QRectF area = Renderer::itemBounds(item, editing).translated(-screen.topLeft()) &
                        QRectF(QPointF(0, 0), screen.size());
    std::vector<QRegion> regions = paintedRegions(area, ratio, thresholds, [&](QPainter& painter) {
        painter.translate(-QPointF(screen.topLeft()));
        Renderer::draw(painter, item, 1.0, editing);
    });
    if (item.kind == Tool::highlighter)
        for (QRegion& region : regions)
            region &= everyOtherRow(region.boundingRect());
    return regions;
}

QRegion InkMask::hintBarRegion(const DrawingStore& store) const {
    if (!store.isDrawing() || !Settings::shared().hudVisible())
        return {};
    const QRectF bounds(QPointF(0, 0), screen.size());
    const QRectF bar = Renderer::hudRect(bounds, store.tool(), store.colorIndex())
                           .adjusted(-hintBarMargin, -hintBarMargin, hintBarMargin, hintBarMargin) &
                       bounds;
    return paintedRegions(bar, ratio, {(opaque + 1) / 2},
                          [&](QPainter& painter) {
                              Renderer::drawHUD(painter, bounds, store.tool(), store.colorIndex());
                          })
        .front();
}
