#include "Clock.h"
#include "DrawingStore.h"
#include "InkMask.h"
#include "Renderer.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QtTest>

// The region a window without a compositing manager is cut to: exactly the
// pixels that what is drawn covers at least half, on the right screen, at the
// screen's pixel density, following every change of the drawing.
class InkMaskTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 4000.0;
    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<DrawingStore> store;

    void stroke(Tool tool, QPointF from, QPointF to, qreal width = 6) {
        store->setTool(tool);
        store->setWidth(width);
        store->begin(from);
        store->update((from + to) / 2);
        store->finishStroke(to);
    }
    // The rows at column x that the region covers.
    static int heightAt(const QRegion& region, int x, int top, int bottom) {
        int rows = 0;
        for (int y = top; y <= bottom; ++y)
            rows += region.contains(QPoint(x, y));
        return rows;
    }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();

        Clock::setFixedNow(t0);
        store = std::make_unique<DrawingStore>();
    }
    void cleanup() {
        store.reset();
        Clock::setFixedNow(std::nullopt);
    }

    void strokesCoverTheirWidthAndNothingElse() {
        InkMask mask(QRect(0, 0, 800, 600), 1);
        QVERIFY(mask.region(*store, t0).isEmpty());
        // Off the pixel grid: its edges cover 0.7 of a row above and 0.3 below.
        stroke(Tool::pen, {50, 100.3}, {350, 100.3}, 6);
        const QRegion pen = mask.region(*store, t0);
        QCOMPARE(heightAt(pen, 200, 80, 120), 6);
        QVERIFY(pen.contains(QPoint(200, 97)));
        QVERIFY(!pen.contains(QPoint(200, 103)));
        QVERIFY(pen.contains(QPoint(200, 100)));
        QVERIFY(!pen.contains(QPoint(200, 95)));
        QVERIFY(!pen.contains(QPoint(200, 105)));
        // Round caps: a little beyond the ends, not more.
        QVERIFY(pen.contains(QPoint(51, 100)));
        QVERIFY(!pen.contains(QPoint(44, 100)));
        QVERIFY(pen.boundingRect().width() <= 300 + 8);

        // The highlighter is four times as broad and translucent: all of its
        // band, but every other row only, so that what it marks shows between.
        stroke(Tool::highlighter, {50, 300}, {350, 300}, 6);
        const QRegion both = mask.region(*store, t0);
        QVERIFY(qAbs(heightAt(both, 200, 260, 340) - 12) <= 1);
        QVERIFY(both.contains(QPoint(200, 290)) != both.contains(QPoint(200, 291)));
        QVERIFY(both.contains(QPoint(200, 310)) && !both.contains(QPoint(200, 311)));
        QCOMPARE(both & QRect(0, 0, 800, 200), pen);

        // A rectangle: its outline, not its inside.
        stroke(Tool::rect, {500, 100}, {700, 300}, 4);
        const QRegion withRect = mask.region(*store, t0);
        QVERIFY(withRect.contains(QPoint(600, 100)));
        QVERIFY(withRect.contains(QPoint(500, 200)));
        QVERIFY(!withRect.contains(QPoint(600, 200)));
    }

    void textAndTheHintBarWhileDrawing() {
        InkMask mask(QRect(0, 0, 1200, 700), 1);
        store->setTool(Tool::text);
        store->beginText({100, 400});
        store->appendText(QStringLiteral("Hello"));
        const QRegion text = mask.region(*store, t0);
        QVERIFY(!text.isEmpty());
        QVERIFY(Renderer::itemBounds(*store->current(), true).contains(text.boundingRect()));
        // The letters, not the box they sit in: far fewer pixels than that.
        qint64 area = 0;
        for (const QRect& r : text)
            area += qint64(r.width()) * r.height();
        QVERIFY(area < qint64(text.boundingRect().width()) * text.boundingRect().height() / 2);

        store->setDrawing(true);
        const QRectF bar =
            Renderer::hudRect(QRectF(0, 0, 1200, 700), store->tool(), store->colorIndex());
        const QRegion withBar = mask.region(*store, t0);
        QVERIFY(withBar.contains(bar.center().toPoint()));
        QVERIFY(bar.adjusted(-2, -2, 2, 2).contains((withBar - text).boundingRect()));
        Settings::shared().setHudVisible(false);
        QCOMPARE(mask.region(*store, t0), text);
        store->setDrawing(false);
        Settings::shared().setHudVisible(true);
        QCOMPARE(mask.region(*store, t0), text);
    }

    void followsEveryChangeOfTheDrawing() {
        InkMask mask(QRect(0, 0, 800, 600), 1);
        stroke(Tool::pen, {100, 100}, {300, 100});
        const QRegion first = mask.region(*store, t0);
        stroke(Tool::pen, {100, 200}, {300, 200});
        QVERIFY(mask.region(*store, t0).contains(QPoint(200, 200)));
        // Taken back and drawn again elsewhere at the same moment, the same
        // kind of stroke with the same number of points: the region moves too.
        store->undo();
        stroke(Tool::pen, {100, 300}, {300, 300});
        const QRegion moved = mask.region(*store, t0);
        QVERIFY(moved.contains(QPoint(200, 300)));
        QVERIFY(!moved.contains(QPoint(200, 200)));
        store->undo();
        QCOMPARE(mask.region(*store, t0), first);

        // The item in progress shows as it grows.
        store->begin({500, 400});
        store->update({600, 400});
        QVERIFY(mask.region(*store, t0).contains(QPoint(550, 400)));
        store->update({700, 400});
        QVERIFY(mask.region(*store, t0).contains(QPoint(650, 400)));
        QVERIFY(mask.region(*store, t0).contains(QPoint(550, 400)));
        // A new stroke where the last one began is a stroke of its own.
        store->begin({500, 400});
        store->update({500, 500});
        QVERIFY(!mask.region(*store, t0).contains(QPoint(650, 400)));
        QVERIFY(mask.region(*store, t0).contains(QPoint(500, 450)));
        store->clear();
        QVERIFY(mask.region(*store, t0).isEmpty());
    }

    void fadingInkThinsAndGoesAtHalfStrength() {
        InkMask mask(QRect(0, 0, 800, 600), 1);
        stroke(Tool::pen, {100, 100}, {300, 100}, 8);
        const int full = heightAt(mask.region(*store, t0), 200, 80, 120);
        QVERIFY(full >= 7);
        QCOMPARE(heightAt(mask.region(*store, t0 + 4.0), 200, 80, 120), full);
        QVERIFY(heightAt(mask.region(*store, t0 + 4.3), 200, 80, 120) > 0);
        QVERIFY(mask.region(*store, t0 + 4.5).isEmpty());
        // Fading off: it stays whole however old it is.
        Settings::shared().setFadeSeconds(0.0);
        QCOMPARE(heightAt(mask.region(*store, t0 + 100), 200, 80, 120), full);
    }

    void onItsOwnScreenAndAtItsPixelDensity() {
        // A screen right of the primary one: global x 900 is its column 100.
        InkMask right(QRect(800, 0, 640, 480), 1);
        InkMask left(QRect(0, 0, 800, 600), 1);
        stroke(Tool::pen, {700, 200}, {1000, 200});
        const QRegion onRight = right.region(*store, t0);
        const QRegion onLeft = left.region(*store, t0);
        QVERIFY(onRight.contains(QPoint(100, 200)));
        QVERIFY(onLeft.contains(QPoint(750, 200)));
        QVERIFY(QRect(0, 0, 640, 480).contains(onRight.boundingRect()));
        QVERIFY(QRect(0, 0, 800, 600).contains(onLeft.boundingRect()));
        QCOMPARE(onRight.boundingRect().left(), 0);

        // Twice the pixels each way on a dense screen.
        InkMask dense(QRect(0, 0, 800, 600), 2);
        const QRegion doubled = dense.region(*store, t0);
        QVERIFY(doubled.contains(QPoint(1500, 400)));
        QVERIFY(qAbs(heightAt(doubled, 1500, 370, 430) - 2 * heightAt(onLeft, 750, 185, 215)) <= 2);
    }
};

QTEST_MAIN(InkMaskTest)
#include "tst_inkmask.moc"
