#include "Clock.h"
#include "Defaults.h"
#include "DrawingStore.h"
#include "NotificationCounter.h"
#include "TestSettings.h"

#include <QtTest>

// The fade curve and the 30 Hz timer that removes faded items. The clock is
// pinned, so the real timer ticks but time only moves when a test moves it.
class FadingTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 10'000.0;

    static void commitStroke(DrawingStore& store, QPointF at = {0, 0}) {
        store.begin(at);
        store.finishStroke(at + QPointF(5, 5));
    }
    // Lets the real timer tick a few times at the pinned clock.
    static void letTimerTick() { QTest::qWait(DrawingStore::timerIntervalMs * 4); }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();
        Defaults::registerDefaults({{QStringLiteral("fadeSeconds"), 4.0}});
        Clock::setFixedNow(t0);
    }
    void cleanup() { Clock::setFixedNow(std::nullopt); }

    void alphaCurve_data() {
        QTest::addColumn<QVariant>("fadeSeconds");
        QTest::addColumn<double>("age");
        QTest::addColumn<double>("alpha");
        const QVariant four(4.0);
        QTest::newRow("fresh") << four << 0.0 << 1.0;
        QTest::newRow("at delay") << four << 4.0 << 1.0;
        QTest::newRow("halfway") << four << 4.4 << 0.5;
        QTest::newRow("gone") << four << 4.8 << 0.0;
        QTest::newRow("long gone") << four << 100.0 << 0.0;
        QTest::newRow("future stamp") << four << -30.0 << 1.0;
        QTest::newRow("never") << QVariant(0.0) << 100.0 << 1.0;
        QTest::newRow("negative") << QVariant(-3.0) << 100.0 << 1.0;
        QTest::newRow("missing") << QVariant() << 100.0 << 1.0;
    }
    void alphaCurve() {
        QFETCH(QVariant, fadeSeconds);
        QFETCH(double, age);
        QFETCH(double, alpha);
        if (fadeSeconds.isValid())
            Defaults::setValue(QStringLiteral("fadeSeconds"), fadeSeconds);
        else
            Defaults::resetRegistration();
        Item item;
        item.finishedAt = t0;
        QVERIFY(qAbs(DrawingStore::alpha(item, t0 + age) - alpha) < 1e-9);
        item.finishedAt.reset(); // the item being drawn never fades
        QCOMPARE(DrawingStore::alpha(item, t0 + age), 1.0);
    }

    void itemFadesAndIsRemovedAtFirstTickAfter() {
        DrawingStore store;
        commitStroke(store);
        QVERIFY(store.isTimerRunning());
        NotificationCounter changes(drawingStoreChanged);

        Clock::setFixedNow(t0 + 3.9);
        letTimerTick();
        QCOMPARE(changes.take(), 0); // fully visible: the ticks cost no repaint

        Clock::setFixedNow(t0 + 4.4);
        letTimerTick();
        QVERIFY(changes.take() >= 2); // fading: a repaint at every tick
        QCOMPARE(store.items().size(), size_t(1));

        Clock::setFixedNow(t0 + 4.8);
        QTRY_VERIFY(store.items().empty());
        QCOMPARE(changes.take(), 1);
        QVERIFY(!store.isTimerRunning());
        letTimerTick();
        QCOMPARE(changes.count, 0);
    }

    void fadingOffKeepsEverythingQuietly() {
        Defaults::setValue(QStringLiteral("fadeSeconds"), 0.0);
        DrawingStore store;
        commitStroke(store);
        NotificationCounter changes(drawingStoreChanged);
        Clock::setFixedNow(t0 + 3600);
        letTimerTick();
        QCOMPARE(changes.count, 0);
        QCOMPARE(store.items().size(), size_t(1));
        QVERIFY(store.isTimerRunning());
    }

    void turningFadingOnRemovesOldItemsAtOnce() {
        Defaults::setValue(QStringLiteral("fadeSeconds"), 0.0);
        DrawingStore store;
        commitStroke(store, {0, 0});
        commitStroke(store, {10, 0});
        Clock::setFixedNow(t0 + 2.0);
        commitStroke(store, {20, 0}); // only 1 s old below
        Clock::setFixedNow(t0 + 3.0);
        letTimerTick();
        NotificationCounter changes(drawingStoreChanged);
        Defaults::setValue(QStringLiteral("fadeSeconds"), 2.0);
        QTRY_COMPARE(store.items().size(), size_t(1));
        QCOMPARE(changes.take(), 1);
        QCOMPARE(store.items().front().points.front(), QPointF(20, 0));
    }

    void olderItemsFadeFirst() {
        DrawingStore store;
        commitStroke(store, {0, 0});
        Clock::setFixedNow(t0 + 1.0);
        commitStroke(store, {1, 0});
        Clock::setFixedNow(t0 + 4.81);
        QTRY_COMPARE(store.items().size(), size_t(1));
        QCOMPARE(store.items().front().points.front(), QPointF(1, 0));
        QVERIFY(store.isTimerRunning());
    }

    void clearStopsTimerAtNextTickSilently() {
        DrawingStore store;
        commitStroke(store);
        store.clear();
        NotificationCounter changes(drawingStoreChanged);
        QTRY_VERIFY(!store.isTimerRunning());
        QCOMPARE(changes.count, 0);
        commitStroke(store); // the next commit starts it again
        QVERIFY(store.isTimerRunning());
    }

private:
    std::unique_ptr<TestSettings> settings;
};

QTEST_GUILESS_MAIN(FadingTest)
#include "tst_fading.moc"
