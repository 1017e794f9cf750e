#include "Clock.h"
#include "DrawingStore.h"
#include "NotificationCounter.h"
#include "PaletteColor.h"
#include "TestSettings.h"

#include <QtTest>

// Strokes, shapes, undo, clear and the end of a session, with the exact number
// of change notifications each one posts (the overlay repaints once per post).
class DrawingStoreTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();
        Clock::setFixedNow(1000.0);
    }
    void cleanup() { Clock::setFixedNow(std::nullopt); }

    void freshStoreHasDefaults() {
        DrawingStore store;
        QVERIFY(store.items().empty());
        QVERIFY(!store.current());
        QCOMPARE(store.tool, Tool::pen);
        QCOMPARE(store.colorIndex, 0);
        QCOMPARE(store.width, 4.0);
        QVERIFY(!store.isDrawing);
        QVERIFY(!store.isTimerRunning());
        QCOMPARE(&DrawingStore::shared(), &DrawingStore::shared());
    }

    void penClickKeepsTwoPointDot() {
        DrawingStore store;
        NotificationCounter changes(drawingStoreChanged);
        store.begin({10, 20});
        QCOMPARE(changes.take(), 1);
        store.finishStroke({10, 20});
        QCOMPARE(changes.take(), 2);
        QCOMPARE(store.items().size(), size_t(1));
        const Item& item = store.items().front();
        QCOMPARE(item.points, (std::vector<QPointF>{{10, 20}, {10, 20}}));
        QCOMPARE(item.finishedAt, std::optional<double>(1000.0));
        QCOMPARE(item.color, palette()[0].color);
        QCOMPARE(item.width, 4.0);
        QVERIFY(item.text.isEmpty());
        QVERIFY(!store.current());
        QVERIFY(store.isTimerRunning());
    }

    void freehandAppendsEveryPoint() {
        DrawingStore store;
        store.tool = Tool::highlighter;
        store.begin({0, 0});
        for (int i = 0; i < 5; ++i)
            store.update({1, 1}); // repeated points are kept, not thinned
        store.finishStroke({2, 2});
        QCOMPARE(store.items().front().points.size(), size_t(7));
        QCOMPARE(store.items().front().kind, Tool::highlighter);
    }

    void shapeKeepsStartAndLatestEnd() {
        DrawingStore store;
        store.tool = Tool::arrow;
        store.begin({5, 5});
        QCOMPARE(store.current()->points.size(), size_t(1));
        for (int i = 1; i <= 20; ++i)
            store.update({5.0 + i, 5.0 + 2 * i});
        QCOMPARE(store.current()->points.size(), size_t(2));
        store.finishStroke({50, 60});
        QCOMPARE(store.items().front().points, (std::vector<QPointF>{{5, 5}, {50, 60}}));
    }

    void shortShapesAreDropped_data() {
        QTest::addColumn<Tool>("tool");
        QTest::addColumn<double>("length");
        QTest::addColumn<bool>("kept");
        for (Tool tool : {Tool::arrow, Tool::ellipse, Tool::rect}) {
            const QByteArray name = rawValue(tool).toLatin1();
            QTest::newRow(name + " click") << tool << 0.0 << false;
            QTest::newRow(name + " 2.9") << tool << 2.9 << false;
            QTest::newRow(name + " 3.0") << tool << 3.0 << true;
        }
    }
    void shortShapesAreDropped() {
        QFETCH(Tool, tool);
        QFETCH(double, length);
        QFETCH(bool, kept);
        DrawingStore store;
        store.tool = tool;
        NotificationCounter changes(drawingStoreChanged);
        store.begin({100, 100});
        store.finishStroke({100 + length * 0.6, 100 + length * 0.8});
        QCOMPARE(changes.take(), 3); // begin, the release's update, then commit or drop
        QCOMPARE(store.items().size(), size_t(kept ? 1 : 0));
        QVERIFY(!store.current());
        QCOMPARE(store.isTimerRunning(), kept);
    }

    void operationsWithoutAnItemPostNothing() {
        DrawingStore store;
        NotificationCounter changes(drawingStoreChanged);
        store.update({1, 1});
        store.finishStroke({1, 1});
        store.undo();
        store.endSession();
        QCOMPARE(changes.count, 0);
        store.clear(); // clear always announces itself
        QCOMPARE(changes.take(), 1);
    }

    void undoRemovesNewestAndLeavesCurrent() {
        DrawingStore store;
        for (int i = 0; i < 3; ++i) {
            store.begin({double(i), 0});
            store.finishStroke({double(i), 10});
        }
        store.begin({50, 50});
        NotificationCounter changes(drawingStoreChanged);
        store.undo();
        QCOMPARE(changes.take(), 1);
        QCOMPARE(store.items().size(), size_t(2));
        QCOMPARE(store.items().back().points.front(), QPointF(1, 0));
        QVERIFY(store.current());
        QCOMPARE(store.current()->points.front(), QPointF(50, 50));
    }

    void clearDropsEverythingButKeepsTimer() {
        DrawingStore store;
        store.begin({0, 0});
        store.finishStroke({5, 5});
        store.begin({9, 9});
        store.clear();
        QVERIFY(store.items().empty());
        QVERIFY(!store.current());
        QVERIFY(store.isTimerRunning()); // the next tick stops it
    }

    void beginDiscardsStrokeInProgress() {
        DrawingStore store;
        store.begin({1, 1});
        store.update({2, 2});
        store.tool = Tool::rect;
        store.begin({7, 7});
        QCOMPARE(store.current()->kind, Tool::rect);
        QCOMPARE(store.current()->points, (std::vector<QPointF>{{7, 7}}));
        QVERIFY(store.items().empty());
    }

    void endSessionFinishesStrokes() {
        DrawingStore store;
        store.tool = Tool::arrow;
        store.begin({0, 0});
        store.update({10, 0});
        NotificationCounter changes(drawingStoreChanged);
        store.endSession();
        QCOMPARE(changes.take(), 2);
        QCOMPARE(store.items().size(), size_t(1));
        QVERIFY(store.items().front().finishedAt);

        store.tool = Tool::pen;
        store.begin({0, 0});
        store.update({3, 4});
        store.endSession();
        QCOMPARE(store.items().back().points,
                 (std::vector<QPointF>{{0, 0}, {3, 4}, {3, 4}})); // last point doubled
        QVERIFY(!store.current());
    }

    void itemsAreValues() {
        DrawingStore store;
        store.begin({0, 0});
        store.finishStroke({1, 1});
        Item copy = store.items().front();
        copy.points.push_back({9, 9});
        copy.color = Qt::green;
        QCOMPARE(store.items().front().points.size(), size_t(2));
        QCOMPARE(store.items().front().color, palette()[0].color);
    }

    void laterColourChangesLeaveItemsAlone() {
        DrawingStore store;
        store.colorIndex = 3;
        store.width = 9;
        store.begin({0, 0});
        store.colorIndex = 1;
        store.width = 2;
        store.finishStroke({1, 1});
        QCOMPARE(store.items().front().color, palette()[3].color);
        QCOMPARE(store.items().front().width, 9.0);
    }

private:
    std::unique_ptr<TestSettings> settings;
};

QTEST_GUILESS_MAIN(DrawingStoreTest)
#include "tst_drawingstore.moc"
