#include "Clock.h"
#include "DrawingCommands.h"
#include "DrawingStore.h"
#include "OverlayScene.h"
#include "Renderer.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QPainter>
#include <QtTest>
#include <functional>
#include <optional>

// The overlay repaints only what a change touches and keeps the committed ink
// in a layer. Whatever it does, the screen must look exactly as if every item
// had been painted again: a drawing session is replayed step by step, and
// after each step the picture the scene built up from its partial repaints is
// compared with a whole repaint done the plain way, pixel by pixel.
class OverlayPaintingTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 5000.0;
    // The overlay covers a screen that does not start at the desktop's origin,
    // and some ink runs off its edges.
    const QRect screen{100, 60, 560, 360};

    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<DrawingStore> store;
    std::unique_ptr<OverlayScene> scene;
    qreal dpr = 1;
    // What the screen shows: only ever repainted where the view says it changed.
    QImage shown;
    QString step;
    int steps = 0;

    // The plain way: the veil, every committed item with its fade, the item in
    // progress, the hint bar; everything, every time.
    QImage wholeRepaint() const {
        QImage image(screen.size() * dpr, QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(dpr);
        QPainter painter(&image);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(QRectF(QPointF(), QSizeF(screen.size())),
                         QColor::fromRgbF(0, 0, 0, store->isDrawing() ? 0.01f : 0.0f));
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        painter.translate(-QPointF(screen.topLeft()));
        const double now = Clock::now();
        for (const Item& item : store->items())
            Renderer::draw(painter, item, DrawingStore::alpha(item, now), false);
        if (const auto& current = store->current())
            Renderer::draw(painter, *current, 1.0, current->kind == Tool::text);
        painter.resetTransform();
        if (store->isDrawing())
            if (Settings::shared().hudVisible())
                Renderer::drawHUD(painter, QRectF(QPointF(), QSizeF(screen.size())), store->tool(),
                                  store->colorIndex());
        return image;
    }

    void repaintStale() {
        QPainter painter(&shown);
        scene->paint(painter, scene->staleRegion());
    }

    // The first pixel that differs by more than the layer's rounding allows.
    // Compositing the committed ink as one premultiplied layer rounds once
    // where blending item after item rounds at each item: where translucent
    // ink overlaps, a channel may differ by 1, and the alpha over the veil by
    // 2. Anything a repaint missed differs by far more.
    static std::optional<QPoint> firstMismatch(const QImage& a, const QImage& b) {
        for (int y = 0; y < a.height(); ++y) {
            const QRgb* left = reinterpret_cast<const QRgb*>(a.constScanLine(y));
            const QRgb* right = reinterpret_cast<const QRgb*>(b.constScanLine(y));
            if (std::equal(left, left + a.width(), right))
                continue;
            for (int x = 0; x < a.width(); ++x) {
                const int colour = std::max({std::abs(qRed(left[x]) - qRed(right[x])),
                                             std::abs(qGreen(left[x]) - qGreen(right[x])),
                                             std::abs(qBlue(left[x]) - qBlue(right[x]))});
                if (colour > 1 || std::abs(qAlpha(left[x]) - qAlpha(right[x])) > 2)
                    return QPoint(x, y);
            }
        }
        return std::nullopt;
    }

    // Runs one step of the session, repaints what went stale and compares.
    void check(const QString& name, const std::function<void()>& change) {
        if (QTest::currentTestFailed()) // one failure tells it; the rest would repeat it
            return;
        step = name;
        ++steps;
        change();
        repaintStale();
        const QImage expected = wholeRepaint();
        if (const auto at = firstMismatch(shown, expected)) {
            const QString message =
                QStringLiteral("after \"%1\" at dpr %2: device pixel %3,%4 is %5, should be %6")
                    .arg(name)
                    .arg(dpr)
                    .arg(at->x())
                    .arg(at->y())
                    .arg(shown.pixel(*at), 8, 16, QLatin1Char('0'))
                    .arg(expected.pixel(*at), 8, 16, QLatin1Char('0'));
            QFAIL(qPrintable(message));
        }
    }

    // A stroke or shape drawn point by point, checked after every point.
    void drag(const QString& name, Tool tool, const std::vector<QPointF>& points) {
        check(name + QStringLiteral(": press"), [&] {
            DrawingCommands::selectTool(*store, tool);
            store->begin(points.front());
        });
        for (size_t i = 1; i + 1 < points.size(); ++i) {
            check(name + QStringLiteral(": move %1").arg(i), [&] { store->update(points[i]); });
        }
        check(name + QStringLiteral(": release"), [&] { store->finishStroke(points.back()); });
    }

    // A scribble that crosses itself many times, around a centre.
    static std::vector<QPointF> scribble(QPointF centre, qreal radius, int count) {
        std::vector<QPointF> points;
        for (int i = 0; i < count; ++i) {
            const qreal angle = i * 0.9;
            const qreal reach = radius * (0.4 + 0.6 * std::sin(i * 0.37));
            points.push_back(centre + QPointF(std::cos(angle), std::sin(angle)) * reach);
        }
        return points;
    }

    // Lets the store's own fade timer tick at least once at the pinned time.
    void fadeTo(const QString& name, double seconds) {
        check(name, [&] {
            Clock::setFixedNow(t0 + seconds);
            QTest::qWait(2 * DrawingStore::timerIntervalMs + 10);
        });
    }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();

        Clock::setFixedNow(t0);
        store = std::make_unique<DrawingStore>();
        scene = std::make_unique<OverlayScene>(*store);
        scene->setGeometry(screen);
    }
    void cleanup() {
        scene.reset();
        store.reset();
        Clock::setFixedNow(std::nullopt);
    }

    void aSessionLooksLikeWholeRepaints_data() {
        QTest::addColumn<qreal>("ratio");
        QTest::newRow("1x") << qreal(1);
        QTest::newRow("1.25x") << qreal(1.25);
        QTest::newRow("1.5x") << qreal(1.5);
        QTest::newRow("2x") << qreal(2);
    }
    void aSessionLooksLikeWholeRepaints() {
        QFETCH(qreal, ratio);
        dpr = ratio;
        shown = QImage(screen.size() * dpr, QImage::Format_ARGB32_Premultiplied);
        shown.setDevicePixelRatio(dpr);
        shown.fill(Qt::transparent);
        {
            QPainter painter(&shown);
            scene->paint(painter, QRegion(QRect(QPoint(), screen.size())));
        }
        const QPointF o = screen.topLeft();

        check(QStringLiteral("drawing starts"), [&] {
            store->setDrawing(true);
            store->announceModeSwitch();
        });
        std::vector<QPointF> wave;
        for (int i = 0; i <= 40; ++i)
            wave.push_back(o + QPointF(-20 + i * 14, 120 + 50 * std::sin(i * 0.3)));
        drag(QStringLiteral("pen stroke off the left edge"), Tool::pen, wave);
        check(QStringLiteral("colour 4"), [&] { DrawingCommands::selectColor(*store, 4); });
        check(QStringLiteral("wider"), [&] {
            for (int i = 0; i < 6; ++i)
                DrawingCommands::wider(*store);
        });
        drag(QStringLiteral("highlighter over itself"), Tool::highlighter,
             scribble(o + QPointF(200, 140), 70, 60));
        check(QStringLiteral("colour 2, narrower"), [&] {
            DrawingCommands::selectColor(*store, 2);
            DrawingCommands::narrower(*store);
        });
        // Shapes shrink as well as grow: the old outline must go.
        drag(QStringLiteral("ellipse"), Tool::ellipse,
             {o + QPointF(300, 200), o + QPointF(500, 330), o + QPointF(420, 260),
              o + QPointF(350, 215), o + QPointF(580, 390), o + QPointF(460, 300)});
        drag(QStringLiteral("rectangle"), Tool::rect,
             {o + QPointF(60, 220), o + QPointF(250, 340), o + QPointF(90, 240),
              o + QPointF(20, 380)});
        drag(QStringLiteral("arrow"), Tool::arrow,
             {o + QPointF(500, 40), o + QPointF(300, 100), o + QPointF(420, 70),
              o + QPointF(200, 160)});
        drag(QStringLiteral("a click with the rectangle"), Tool::rect,
             {o + QPointF(30, 30), o + QPointF(31, 31)});
        check(QStringLiteral("colour 5"), [&] { DrawingCommands::selectColor(*store, 5); });
        check(QStringLiteral("text begins"), [&] {
            DrawingCommands::selectTool(*store, Tool::text);
            store->beginText(o + QPointF(120, 60));
        });
        const QString typed = QStringLiteral("Quillery Wg");
        for (const QChar character : typed)
            check(QStringLiteral("typing %1").arg(character),
                  [&] { store->appendText(QString(character)); });
        check(QStringLiteral("backspace"), [&] { store->deleteLastCharacter(); });
        check(QStringLiteral("text committed"), [&] { store->commitText(); });
        check(QStringLiteral("hint bar hidden"), [&] { DrawingCommands::toggleHintBar(*store); });
        drag(QStringLiteral("pen under where the hint bar was"), Tool::pen,
             {o + QPointF(150, 75), o + QPointF(260, 85), o + QPointF(400, 78)});
        check(QStringLiteral("hint bar shown"), [&] { DrawingCommands::toggleHintBar(*store); });
        check(QStringLiteral("undo the pen"), [&] { DrawingCommands::undo(*store); });
        check(QStringLiteral("undo the text"), [&] { DrawingCommands::undo(*store); });

        // The first strokes fade while newer ones are drawn above them.
        Clock::setFixedNow(t0 + 3);
        drag(QStringLiteral("late pen stroke"), Tool::pen,
             scribble(o + QPointF(260, 160), 120, 30));
        Clock::setFixedNow(t0 + 3.5);
        drag(QStringLiteral("late highlighter"), Tool::highlighter,
             {o + QPointF(0, 150), o + QPointF(560, 170)});
        fadeTo(QStringLiteral("first strokes a quarter faded"), 4.2);
        fadeTo(QStringLiteral("first strokes half faded"), 4.4);
        drag(QStringLiteral("stroke drawn while others fade"), Tool::pen,
             {o + QPointF(40, 100), o + QPointF(300, 260), o + QPointF(500, 120)});
        fadeTo(QStringLiteral("first strokes gone"), 4.85);
        fadeTo(QStringLiteral("late pen stroke fading"), 7.4);
        fadeTo(QStringLiteral("late highlighter fading too"), 7.9);
        check(QStringLiteral("fading switched off"), [&] {
            Settings::shared().setFadeSeconds(0.0);
            store->announceDisplayChange();
        });
        check(QStringLiteral("fading back on"), [&] {
            Settings::shared().setFadeSeconds(4.0);
            store->announceDisplayChange();
        });
        drag(QStringLiteral("scribble across the right edge"), Tool::highlighter,
             scribble(o + QPointF(540, 200), 60, 40));
        check(QStringLiteral("drawing stops"), [&] {
            store->setDrawing(false);
            store->announceModeSwitch();
        });
        check(QStringLiteral("drawing again"), [&] {
            store->setDrawing(true);
            store->announceModeSwitch();
        });
        check(QStringLiteral("clear"), [&] { DrawingCommands::clear(*store); });
        fadeTo(QStringLiteral("the timer finds nothing left"), 20);
        if (!QTest::currentTestFailed())
            QVERIFY2(steps > 150, qPrintable(QString::number(steps)));
    }
};

QTEST_MAIN(OverlayPaintingTest)
#include "tst_overlaypainting.moc"
