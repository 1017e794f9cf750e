#include "DrawingStore.h"
#include "PaletteColor.h"
#include "Renderer.h"

#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <benchmark/benchmark.h>
#include <cmath>
#include <random>
#include <vector>

namespace {

constexpr QSize screenSize{1920, 1080};
constexpr int pointsPerStroke = 200;

// Hand-drawn-looking strokes: a wandering walk of short steps, like a pen
// moved at a steady pace, spread over the whole screen.
Item penStroke(std::mt19937& random, int colorIndex, int points = pointsPerStroke) {
    std::uniform_real_distribution<qreal> x(100, screenSize.width() - 100);
    std::uniform_real_distribution<qreal> y(100, screenSize.height() - 100);
    std::uniform_real_distribution<qreal> turn(-0.35, 0.35);
    Item item;
    item.kind = Tool::pen;
    item.color = paletteColor(colorIndex % 6).color;
    item.width = 4;
    QPointF point(x(random), y(random));
    qreal heading = turn(random) * 18;
    for (int i = 0; i < points; ++i) {
        item.points.push_back(point);
        heading += turn(random);
        point += QPointF(std::cos(heading), std::sin(heading)) * 3.0;
        point.setX(std::clamp(point.x(), 0.0, qreal(screenSize.width())));
        point.setY(std::clamp(point.y(), 0.0, qreal(screenSize.height())));
    }
    return item;
}

std::vector<Item> strokes(int count) {
    std::mt19937 random(20240601);
    std::vector<Item> items;
    for (int i = 0; i < count; ++i)
        items.push_back(penStroke(random, i));
    return items;
}

QImage frameImage(qreal dpr) {
    QImage image(screenSize * dpr, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(dpr);
    return image;
}

// One whole repaint: clear, every committed stroke, the stroke in progress.
void BM_PenStrokeFrame(benchmark::State& state) {
    const int count = int(state.range(0));
    const qreal dpr = qreal(state.range(1));
    const std::vector<Item> items = strokes(count + 1);
    const Item& inProgress = items.back();
    QImage image = frameImage(dpr);
    for (auto _ : state) {
        image.fill(Qt::transparent);
        QPainter painter(&image);
        for (int i = 0; i < count; ++i)
            Renderer::draw(painter, items[size_t(i)], 1.0, false);
        Renderer::draw(painter, inProgress, 1.0, false);
        painter.end();
        benchmark::DoNotOptimize(image.constBits());
    }
    state.counters["strokes"] = count;
    state.SetItemsProcessed(state.iterations() * (count + 1));
    state.SetLabel(dpr == 1 ? "1920x1080" : "3840x2160 (1920x1080 at 2x)");
}
BENCHMARK(BM_PenStrokeFrame)
    ->ArgsProduct({{10, 200, 2000}, {1, 2}})
    ->ArgNames({"strokes", "dpr"})
    ->Unit(benchmark::kMillisecond);

// The stroke in progress alone, drawn over what is there: the cost of each
// repaint while the pen moves if everything committed is cached. A long
// scribble overlaps itself a lot, which is what makes it costly.
void BM_StrokeInProgress(benchmark::State& state) {
    const int points = int(state.range(0));
    const qreal dpr = qreal(state.range(1));
    std::mt19937 random(7);
    const Item stroke = penStroke(random, 0, points);
    QImage image = frameImage(dpr);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    for (auto _ : state)
        Renderer::draw(painter, stroke, 1.0, false);
    state.SetItemsProcessed(state.iterations() * points);
}
BENCHMARK(BM_StrokeInProgress)
    ->ArgsProduct({{200, 2000}, {1, 2}})
    ->ArgNames({"points", "dpr"})
    ->Unit(benchmark::kMicrosecond);

// A text item with its blurred shadow, and the hint bar: the other per-frame costs.
void BM_TextItem(benchmark::State& state) {
    const qreal dpr = qreal(state.range(0));
    Item text;
    text.kind = Tool::text;
    text.points = {{400, 300}};
    text.color = paletteColor(1).color;
    text.width = 30;
    text.text = QStringLiteral("Quarterly numbers are up 12%");
    QImage image = frameImage(dpr);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    for (auto _ : state)
        Renderer::draw(painter, text, 1.0, true);
}
BENCHMARK(BM_TextItem)->Arg(1)->Arg(2)->ArgName("dpr")->Unit(benchmark::kMicrosecond);

void BM_HintBar(benchmark::State& state) {
    const qreal dpr = qreal(state.range(0));
    DrawingStore store;
    QImage image = frameImage(dpr);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    const QRectF bounds{QPointF(), QSizeF(screenSize)};
    for (auto _ : state)
        Renderer::drawHUD(painter, bounds, store);
}
BENCHMARK(BM_HintBar)->Arg(1)->Arg(2)->ArgName("dpr")->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv); // fonts need it
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
