#include "DrawingStore.h"
#include "PaletteColor.h"
#include "Renderer.h"
#include "SampleStrokes.h"

#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <benchmark/benchmark.h>
#include <random>
#include <vector>

namespace {

using SampleStrokes::penStroke;
using SampleStrokes::screenSize;
using SampleStrokes::strokes;

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
    QImage image = frameImage(dpr);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    const QRectF bounds{QPointF(), QSizeF(screenSize)};
    for (auto _ : state)
        Renderer::drawHUD(painter, bounds, Tool::pen, 0);
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
