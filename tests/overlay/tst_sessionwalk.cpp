#include "Clock.h"
#include "DrawingStore.h"
#include "InkMask.h"
#include "OverlayScene.h"
#include "PaletteColor.h"
#include "Renderer.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QFile>
#include <QPainter>
#include <QtTest>
#include <functional>
#include <malloc.h>
#include <random>
#include <unistd.h>

// Runs the store's fade tick at the pinned time instead of waiting for its timer.
class FadeTicker {
public:
    static void tick(DrawingStore& store) { store.tick(); }
};

namespace {

// After handing freed heap back: what is in use, not what malloc keeps.
double residentMiB() {
    malloc_trim(0);
    QFile statm(QStringLiteral("/proc/self/statm"));
    return statm.open(QIODevice::ReadOnly)
               ? statm.readAll().split(' ').value(1).toDouble() * sysconf(_SC_PAGESIZE) / (1 << 20)
               : -1;
}

// An item in progress may still lack its second point or its text.
bool wellFormed(const Item& item, bool committed) {
    const size_t points = item.points.size();
    if (committed != item.finishedAt.has_value())
        return false;
    if (item.kind == Tool::text)
        return points == 1 && !(committed && item.text.isEmpty());
    return item.text.isEmpty() && points > 0 &&
           !(isShapeTool(item.kind) && (points > 2 || (committed && points != 2)));
}

// What must hold of the drawing after anything a user does; empty when it does.
QString modelProblem(const DrawingStore& store) {
    const std::vector<Item>& items = store.items();
    for (size_t i = 0; i < items.size(); ++i)
        if (!wellFormed(items[i], true) || (i && *items[i].finishedAt < *items[i - 1].finishedAt))
            return QStringLiteral("committed item %1 (%2)").arg(i).arg(rawValue(items[i].kind));
    if (store.current() && !wellFormed(*store.current(), false))
        return QStringLiteral("the %1 in progress").arg(rawValue(store.current()->kind));
    if (!items.empty() && DrawingStore::fadeSeconds() > 0 && !store.isTimerRunning())
        return QStringLiteral("%1 items and no fade timer").arg(items.size());
    return {};
}

// The committed ink composited as one layer rounds once, item by item at each
// item: translucent overlaps, shadows over fading ink and the veil differ by up
// to 2. Anything a repaint missed differs by far more.
std::optional<QPoint> firstMismatch(const QImage& a, const QImage& b) {
    for (int y = 0; y < a.height(); ++y) {
        const auto* left = reinterpret_cast<const QRgb*>(a.constScanLine(y));
        const auto* right = reinterpret_cast<const QRgb*>(b.constScanLine(y));
        for (int x = 0; x < a.width(); ++x)
            for (const int shift : {0, 8, 16, 24})
                if (left[x] != right[x] &&
                    std::abs(int(left[x] >> shift & 255) - int(right[x] >> shift & 255)) > 2)
                    return QPoint(x, y);
    }
    return std::nullopt;
}

} // namespace

// A seeded random walk through a presentation (strokes, shapes, clicks, lost
// releases, text, keys, undo, clear, the hint bar and fade delay changed,
// sessions ended, time passing): after every step the model holds together and
// the picture built from the scene's partial repaints is a whole repaint; now
// and then the ink region (a window without a compositor) matches that picture.
// QUILLERY_WALK_SEED picks another walk; QUILLERY_WALK_STROKES=N a long one of
// N strokes, checked less often, that reports resident memory.
class SessionWalkTest : public QObject {
    Q_OBJECT

    // The overlay's screen does not start at the desktop's origin.
    const QRect screen{100, 60, 560, 360};
    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<DrawingStore> store;
    std::unique_ptr<OverlayScene> scene;
    std::unique_ptr<InkMask> mask;
    std::mt19937_64 random;
    qreal dpr = 1;
    double now = 0;
    qint64 checkpoints = 0;
    bool longWalk = false;
    QImage shown;         // only ever repainted where the scene said it changed
    size_t announced = 0; // the committed items, as the store's notices count them
    QStringList trace;
    QString problem;

    int below(int n) { return int(random() % quint64(n)); }
    void fail(const QString& what) {
        if (problem.isEmpty())
            problem = what;
    }

    // Veil, committed items as they fade, the item in progress, hint bar: all of it.
    QImage wholeRepaint() const {
        QImage image(screen.size() * dpr, QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(dpr);
        image.fill(QColor::fromRgbF(0, 0, 0, store->isDrawing() ? 0.01f : 0.0f));
        QPainter painter(&image);
        painter.translate(-QPointF(screen.topLeft()));
        for (const Item& item : store->items())
            Renderer::draw(painter, item, DrawingStore::alpha(item, now), false);
        if (const auto& current = store->current())
            Renderer::draw(painter, *current, 1.0, current->kind == Tool::text);
        painter.resetTransform();
        if (store->isDrawing() && Settings::shared().hudVisible())
            Renderer::drawHUD(painter, QRectF(QPointF(), QSizeF(screen.size())), store->tool(),
                              store->colorIndex());
        return image;
    }

    // Kept up to date, the region is the one made afresh but for the stroke in
    // progress (grown piece by piece). What shows opaque is in; nothing faint.
    void checkInk(const QRegion& kept, const QImage& expected) {
        QRect growing;
        if (const auto& current = store->current()) {
            const QRectF at = Renderer::itemBounds(*current, true).translated(-screen.topLeft());
            growing =
                QRectF(at.topLeft() * dpr, at.size() * dpr).toAlignedRect() + QMargins(1, 1, 1, 1);
        }
        if (!((kept ^ InkMask(screen, dpr).region(*store, now)) - growing).isEmpty())
            return fail(QStringLiteral("the kept ink region differs from a fresh one"));
        QImage inRegion(expected.size(), QImage::Format_Alpha8);
        inRegion.fill(0);
        QPainter painter(&inRegion);
        for (const QRect& rect : kept)
            painter.fillRect(rect, Qt::black);
        for (int y = 0; y < expected.height(); ++y) {
            const uchar* in = inRegion.constScanLine(y);
            const auto* pixels = reinterpret_cast<const QRgb*>(expected.constScanLine(y));
            for (int x = 0; x < expected.width(); ++x)
                if (in[x] ? qAlpha(pixels[x]) < 40
                          : qAlpha(pixels[x]) == 255 && !growing.contains(x, y))
                    return fail(
                        QString::asprintf("device pixel %d,%d of alpha %d is %s the ink region", x,
                                          y, qAlpha(pixels[x]), in[x] ? "in" : "outside"));
        }
    }

    void step(const QString& name, const std::function<void()>& change) {
        if (!problem.isEmpty())
            return;
        trace = trace.mid(trace.size() > 30) << name;
        change();
        if (const QString model = modelProblem(*store); !model.isEmpty())
            return fail(model);
        {
            QPainter painter(&shown);
            scene->paint(painter, scene->staleRegion());
        }
        const QRegion kept = mask->region(*store, now);
        if (longWalk && ++checkpoints % 16) // a long walk is about memory
            return;
        const QImage expected = wholeRepaint();
        if (const auto at = firstMismatch(shown, expected))
            return fail(QString::asprintf("device pixel %d,%d is %08x, a whole repaint gives %08x",
                                          at->x(), at->y(), shown.pixel(*at), expected.pixel(*at)));
        if (++checkpoints % 8 == 0)
            checkInk(kept, expected);
    }
    void key(int key, const QString& text, Qt::KeyboardModifiers modifiers = {}) {
        step(QStringLiteral("key %1 \"%2\" modifiers %3").arg(key).arg(text).arg(modifiers), [&] {
            scene->keyPressed({key, text, modifiers});
        });
    }
    void pointer(const char* what, QPointF at, const std::function<void()>& send) {
        step(QString::asprintf("%s %g,%g", what, at.x(), at.y()), send);
    }
    void startDrawing() {
        step(QStringLiteral("drawing starts"), [&] {
            store->setDrawing(true);
            store->announceModeSwitch();
        });
    }
    // On the screen or a little off its edges, in quarter pixels.
    QPointF anywhere() {
        return QPointF(screen.left() - 40 + below(4 * (screen.width() + 80)) / 4.0,
                       screen.top() - 40 + below(4 * (screen.height() + 80)) / 4.0);
    }

    void drawStroke() {
        if (below(3) == 0) {
            const char tool = "parhe"[below(5)];
            key(QChar(tool).toUpper().unicode(), QString(QLatin1Char(tool)));
        }
        QPointF at = anywhere();
        const Qt::MouseButton button = below(12) ? Qt::LeftButton : Qt::RightButton;
        const int reads = Settings::shared().fileReads(); // the pen never waits for the disk
        pointer("press", at, [&] { scene->pointerPressed(at, button); });
        std::normal_distribution<double> move(0, 25);
        // A fast pen: the last moves and the release all before the next frame.
        const int unpainted = below(3) ? 0 : 1 + below(4);
        std::vector<QPointF> tail;
        for (int i = below(16); i > 0; --i) {
            at += QPointF(std::round(move(random) * 4) / 4, std::round(move(random) * 4) / 4);
            if (i <= unpainted)
                tail.push_back(at);
            else
                pointer("move", at, [&] { scene->pointerMoved(at, Qt::LeftButton); });
        }
        if (below(10)) // else the release went elsewhere
            pointer("moves and release", at, [&] {
                for (const QPointF& point : tail)
                    scene->pointerMoved(point, Qt::LeftButton);
                scene->pointerReleased(at, Qt::LeftButton);
            });
        if (Settings::shared().fileReads() != reads)
            fail(QStringLiteral("a stroke read the settings file"));
    }

    void typeText() {
        // As people type, and as they rarely do: a combining accent, joined
        // emoji, right to left, a lone surrogate, control characters.
        static const QStringList texts =
            QString("Hello Wg|e\u0301 |\U0001F468\u200D\U0001F469\u200D\U0001F467|"
                    "\u0645\u0631\u062D\u0628\u0627|wwwwwwwwwwwwwwwwwwwwwwww")
                .split('|')
            << QChar(0xD800) + QString("\t\n");
        key(Qt::Key_T, QStringLiteral("t"));
        const QPointF at = anywhere();
        pointer("click for text", at, [&] { scene->pointerPressed(at, Qt::LeftButton); });
        for (int i = below(6); i >= 0; --i)
            if (below(4))
                key(0, texts[below(int(texts.size()))]);
            else
                key(Qt::Key_Backspace, QStringLiteral("\b"));
        if (below(2))
            key(Qt::Key_Return, QStringLiteral("\r"));
    }

    void passTime() {
        const double wait = std::array{1.0 / 30, 1.0 / 30, 1.0 / 30, 0.3, 1.5, 5.0}[below(6)];
        step(QStringLiteral("%1 s later").arg(wait), [&] {
            Clock::setFixedNow(now += wait);
            if (!store->isTimerRunning())
                return;
            FadeTicker::tick(*store);
            if (store->items().empty() && store->isTimerRunning())
                fail(QStringLiteral("the fade timer runs on with nothing left to fade"));
        });
    }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();
        Clock::setFixedNow(now = 5000);
        store = std::make_unique<DrawingStore>();
        scene = std::make_unique<OverlayScene>(*store);
        scene->setGeometry(screen);
        // Each finer notice comes before the change's drawingStoreChanged.
        connect(store.get(), &DrawingStore::itemCommitted, this, [this] { ++announced; });
        connect(store.get(), &DrawingStore::itemRemoved, this, [this] { --announced; });
        connect(store.get(), &DrawingStore::itemFaded, this, [this] { --announced; });
        connect(store.get(), &DrawingStore::drawingStoreChanged, this, [this] {
            if (store->items().size() != announced)
                fail(QStringLiteral("the store changed before telling which items came or went"));
        });
        // What the controller does on Esc.
        connect(scene.get(), &OverlayScene::stopRequested, this, [this] {
            store->endSession();
            store->setDrawing(false);
            store->announceModeSwitch();
        });
    }
    void cleanup() {
        scene.reset();
        store.reset();
        Clock::setFixedNow(std::nullopt);
        announced = 0;
        trace.clear();
        problem.clear();
    }

    void walk_data() {
        QTest::addColumn<qreal>("ratio");
        for (const qreal ratio : {1.0, 1.25, 1.5})
            QTest::addRow("%gx", ratio) << ratio;
    }
    void walk() {
        QFETCH(qreal, ratio);
        dpr = ratio;
        longWalk = qEnvironmentVariableIntValue("QUILLERY_WALK_STROKES") > 0;
        const int strokes = longWalk ? qEnvironmentVariableIntValue("QUILLERY_WALK_STROKES") : 100;
        const uint seed = qEnvironmentVariable("QUILLERY_WALK_SEED", "20240611").toUInt();
        qInfo("QUILLERY_WALK_SEED=%u", seed);
        random.seed(seed);
        mask = std::make_unique<InkMask>(screen, dpr);
        shown = QImage(screen.size() * dpr, QImage::Format_ARGB32_Premultiplied);
        shown.setDevicePixelRatio(dpr);
        shown.fill(Qt::transparent);
        checkpoints = 0;

        startDrawing();
        // Out of the box the hint bar shows while drawing.
        const QRectF bar = Renderer::hudRect(QRectF(QPointF(), QSizeF(screen.size())),
                                             store->tool(), store->colorIndex());
        QVERIFY(qAlpha(shown.pixel((bar.center() * dpr).toPoint())) > 100);
        const double start = residentMiB();
        for (qint64 drawn = 0; problem.isEmpty() && drawn < strokes;) {
            const int kind = below(100);
            if (kind < 45) {
                drawStroke();
                ++drawn;
            } else if (kind < 53) {
                typeText();
            } else if (kind < 72) { // colours, widths, undo, clear, a key that does nothing
                const QChar typed = QStringLiteral("12469[]uzcx")[below(11)];
                key(typed.toUpper().unicode(), typed,
                    typed == u'z' ? Qt::ControlModifier : Qt::NoModifier);
            } else if (kind < 76) {
                key(Qt::Key_Tab, QStringLiteral("\t"));
            } else if (kind < 95) {
                passTime();
            } else if (kind < 97) { // edited elsewhere: nobody announces it
                step(QStringLiteral("fade delay edited"), [&] {
                    Settings::shared().setFadeSeconds(std::array{0.0, 1.0, 2.5, 4.0}[below(4)]);
                });
            } else { // a session ends, its ink fades a while, and another begins
                key(Qt::Key_Escape, QStringLiteral("\x1b"));
                passTime();
                startDrawing();
            }
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // stopped timers
        }
        step(QStringLiteral("fading on, and time for everything to fade"), [&] {
            Settings::shared().setFadeSeconds(4);
            Clock::setFixedNow(now += 10);
            if (store->isTimerRunning())
                FadeTicker::tick(*store);
        });
        QVERIFY2(problem.isEmpty(),
                 qPrintable(QStringLiteral("QUILLERY_WALK_SEED=%1 at %2x: %3\nlast steps:\n%4")
                                .arg(seed)
                                .arg(dpr)
                                .arg(problem, trace.join('\n'))));
        QVERIFY(store->items().empty());
        qInfo("%d strokes drawn and faded; resident memory %.1f MiB at the start, %.1f MiB at "
              "the end",
              strokes, start, residentMiB());
    }
};

QTEST_MAIN(SessionWalkTest)
#include "tst_sessionwalk.moc"
