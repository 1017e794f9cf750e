#include "Clock.h"
#include "DrawingStore.h"
#include "OverlayScene.h"
#include "Renderer.h"
#include "SampleStrokes.h"
#include "Settings.h"

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <QSettings>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <ctime>
#include <memory>
#include <random>
#include <vector>

// Whole program: one overlay's scene on the store, as the drawing changes.
// Every figure goes through the scene's own painting into an image of the
// screen's size, the way its paint events paint into the window.

// Runs the store's fade tick without waiting for its timer.
class FadeTicker {
public:
    static void tick(DrawingStore& store) { store.tick(); }
};

namespace {

using SampleStrokes::screenSize;

constexpr double t0 = 1'000'000.0;

QImage screenImage(qreal dpr) {
    QImage image(screenSize * dpr, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(dpr);
    image.fill(Qt::transparent);
    return image;
}

const char* sizeLabel(qreal dpr) {
    return dpr == 1 ? "1920x1080" : "3840x2160";
}

// Draws the item into the store as the mouse would, committed at `at`.
void commit(DrawingStore& store, const Item& item, double at) {
    Clock::setFixedNow(at);
    store.setTool(item.kind);
    store.setWidth(item.width);
    store.begin(item.points.front());
    for (size_t i = 1; i + 1 < item.points.size(); ++i)
        store.update(item.points[i]);
    store.finishStroke(item.points.back());
}

// A drawing session on one screen: the store, the overlay's scene and the
// picture on the screen.
struct Session {
    DrawingStore store;
    std::unique_ptr<OverlayScene> scene;
    QImage screen;

    explicit Session(qreal dpr) : screen(screenImage(dpr)) { store.setDrawing(true); }

    void commitStrokes(int count, double at, unsigned seed = 20240601) {
        for (const Item& item : SampleStrokes::strokes(count, seed))
            commit(store, item, at);
    }
    void openView() {
        scene = std::make_unique<OverlayScene>(store);
        scene->setGeometry(QRect(QPoint(), screenSize));
        paintAll();
    }
    void paintAll() {
        QPainter painter(&screen);
        scene->paint(painter, QRegion(QRect(QPoint(), screenSize)));
    }
    // What a paint event after the last change paints.
    void paintStale() {
        QPainter painter(&screen);
        scene->paint(painter, scene->staleRegion());
    }
};

// The processor time this thread has used, in seconds: other work on the
// machine does not count.
double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// What the view did before it kept a layer: every item, every time.
void BM_RepaintEverything(benchmark::State& state) {
    const int count = int(state.range(0));
    const qreal dpr = qreal(state.range(1));
    Session session(dpr);
    session.commitStrokes(count, t0);
    std::mt19937 random(3);
    const Item inProgress = SampleStrokes::penStroke(random, 1);
    const double now = Clock::now();
    for (auto _ : state) {
        QPainter painter(&session.screen);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(QRectF(QPointF(), QSizeF(screenSize)), QColor::fromRgbF(0, 0, 0, 0.01f));
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        const double delay = DrawingStore::fadeSeconds();
        for (const Item& item : session.store.items())
            Renderer::draw(painter, item, DrawingStore::alpha(item, now, delay), false);
        Renderer::draw(painter, inProgress, 1.0, false);
        Renderer::drawHUD(painter, QRectF(QPointF(), QSizeF(screenSize)), session.store.tool(),
                          session.store.colorIndex());
    }
    state.SetLabel(sizeLabel(dpr));
}

// The view's whole repaint once its layer holds the committed strokes.
void BM_WholeRepaint(benchmark::State& state) {
    const int count = int(state.range(0));
    const qreal dpr = qreal(state.range(1));
    Session session(dpr);
    session.commitStrokes(count, t0);
    std::mt19937 random(3);
    const Item inProgress = SampleStrokes::penStroke(random, 1);
    commit(session.store, inProgress, t0); // the last point comes below
    session.store.undo();
    session.store.begin(inProgress.points.front());
    for (size_t i = 1; i < inProgress.points.size(); ++i)
        session.store.update(inProgress.points[i]);
    session.openView();
    for (auto _ : state)
        session.paintAll();
    state.SetLabel(sizeLabel(dpr));
}

// The first repaint of a new overlay: its layer is painted from scratch.
void BM_FirstRepaint(benchmark::State& state) {
    const int count = int(state.range(0));
    const qreal dpr = qreal(state.range(1));
    Session session(dpr);
    session.commitStrokes(count, t0);
    for (auto _ : state) {
        state.PauseTiming();
        session.scene = std::make_unique<OverlayScene>(session.store);
        session.scene->setGeometry(QRect(QPoint(), screenSize));
        state.ResumeTiming();
        session.paintAll();
    }
    state.SetLabel(sizeLabel(dpr));
}

// One move of the pen: the store takes the point, the view finds what changed
// and repaints it. An iteration is a whole stroke of 200 moves, taken away
// again afterwards (untimed), so the count of items stays the same; the time
// shown is processor time per move.
void pointerEvents(benchmark::State& state, int committed, qreal dpr, int pointsBefore) {
    Session session(dpr);
    session.commitStrokes(committed, t0);
    session.openView();
    std::mt19937 random(11);
    for (auto _ : state) {
        const Item stroke =
            SampleStrokes::penStroke(random, 2, pointsBefore + SampleStrokes::pointsPerStroke);
        session.store.begin(stroke.points.front());
        for (int i = 1; i < pointsBefore; ++i)
            session.store.update(stroke.points[size_t(i)]);
        session.paintStale();
        double spent = 0;
        int events = 0;
        for (size_t i = size_t(std::max(pointsBefore, 1)); i < stroke.points.size(); ++i) {
            const double start = threadSeconds();
            session.store.update(stroke.points[i]);
            session.paintStale();
            spent += threadSeconds() - start;
            ++events;
        }
        session.store.finishStroke(stroke.points.back());
        session.store.undo();
        session.paintStale();
        state.SetIterationTime(spent / events);
    }
    state.SetLabel(sizeLabel(dpr));
}

void BM_PointerEvent(benchmark::State& state) {
    pointerEvents(state, int(state.range(0)), qreal(state.range(1)), 0);
}

// The same with a dense scribble of 2,000 points already in progress.
void BM_PointerEventLongStroke(benchmark::State& state) {
    pointerEvents(state, 0, qreal(state.range(0)), 2000);
}

// One frame of a fade: 2,000 strokes, of which the 50 oldest are fading. The
// tick finds them fading and the view repaints what they cover.
void BM_FadeFrame(benchmark::State& state) {
    const qreal dpr = qreal(state.range(0));
    Session session(dpr);
    Settings::shared().setFadeSeconds(4.0);
    session.commitStrokes(50, t0, 1);
    session.commitStrokes(1950, t0 + 2, 2);
    Clock::setFixedNow(t0 + 4.05);
    session.openView();
    int frame = 0;
    for (auto _ : state) {
        Clock::setFixedNow(t0 + 4.05 + (frame++ % 20) * 0.035);
        FadeTicker::tick(session.store);
        session.paintStale();
    }
    state.SetLabel(sizeLabel(dpr));
}

// Frames of a steady stream of fades: strokes committed at 62.5 a second, so
// that 50 are fading at any moment and each frame two start fading and two go.
// 300 frames take the count from 2,000 down to about 1,375.
void BM_RollingFade(benchmark::State& state) {
    const qreal dpr = qreal(state.range(0));
    Session session(dpr);
    Settings::shared().setFadeSeconds(4.0);
    const std::vector<Item> items = SampleStrokes::strokes(2000, 5);
    for (size_t i = 0; i < items.size(); ++i)
        commit(session.store, items[i], t0 + double(i) / 62.5);
    double now = t0 + 4.8;
    Clock::setFixedNow(now);
    FadeTicker::tick(session.store);
    session.openView();
    for (auto _ : state) {
        now += 1.0 / 30;
        Clock::setFixedNow(now);
        FadeTicker::tick(session.store);
        session.paintStale();
    }
    state.counters["items_left"] = double(session.store.items().size());
    state.SetLabel(sizeLabel(dpr));
}

// Undoing the newest of 2,000 strokes: the layer repaints the area it covered.
void BM_Undo(benchmark::State& state) {
    const qreal dpr = qreal(state.range(0));
    Session session(dpr);
    session.commitStrokes(2000, t0);
    session.openView();
    const Item newest = session.store.items().back();
    for (auto _ : state) {
        const double start = threadSeconds();
        session.store.undo();
        session.paintStale();
        const double spent = threadSeconds() - start;
        commit(session.store, newest, t0);
        session.paintStale();
        state.SetIterationTime(spent);
    }
    state.SetLabel(sizeLabel(dpr));
}

// The fade timer's tick with 10,000 items on the screen: fading off (it only
// checks), and fading on with nothing old enough to fade yet.
void BM_Tick(benchmark::State& state) {
    const double delay = double(state.range(0));
    DrawingStore store;
    Settings::shared().setFadeSeconds(delay);
    std::mt19937 random(9);
    for (int i = 0; i < 10000; ++i)
        commit(store, SampleStrokes::penStroke(random, i, 10), t0);
    Clock::setFixedNow(t0 + 1);
    for (auto _ : state)
        FadeTicker::tick(store);
    state.SetLabel(delay > 0 ? "10000 items, fading on, none fading" : "10000 items, fading off");
}

} // namespace

BENCHMARK(BM_RepaintEverything)
    ->ArgsProduct({{10, 200, 2000}, {1, 2}})
    ->ArgNames({"strokes", "dpr"})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WholeRepaint)
    ->ArgsProduct({{10, 200, 2000}, {1, 2}})
    ->ArgNames({"strokes", "dpr"})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FirstRepaint)
    ->ArgsProduct({{10, 200, 2000}, {1, 2}})
    ->ArgNames({"strokes", "dpr"})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PointerEvent)
    ->ArgsProduct({{0, 200, 2000}, {1, 2}})
    ->ArgNames({"items", "dpr"})
    ->UseManualTime()
    ->Iterations(40)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PointerEventLongStroke)
    ->Arg(1)
    ->Arg(2)
    ->ArgName("dpr")
    ->UseManualTime()
    ->Iterations(10)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FadeFrame)->Arg(1)->Arg(2)->ArgName("dpr")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RollingFade)
    ->Arg(1)
    ->Arg(2)
    ->ArgName("dpr")
    ->Iterations(300)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Undo)->Arg(1)->Arg(2)->ArgName("dpr")->UseManualTime()->Iterations(50)->Unit(
    benchmark::kMillisecond);
BENCHMARK(BM_Tick)->Arg(0)->Arg(4)->ArgName("fadeSeconds")->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Never the user's own settings.
    QTemporaryDir settingsDir;
    qputenv("XDG_CONFIG_HOME", settingsDir.path().toLocal8Bit());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settingsDir.path());
    QApplication app(argc, argv);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
