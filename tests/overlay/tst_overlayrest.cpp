#include "DrawingStore.h"
#include "OverlayController.h"
#include "OverlayView.h"
#include "OverlayWindow.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QtTest>

// At rest the overlay costs nothing: with nothing on the screen no timer wakes
// the program and nothing is painted; with ink on the screen and fading off,
// the fade timer's ticks paint nothing.
class OverlayRestTest : public QObject {
    Q_OBJECT

    OverlayController& controller = OverlayController::shared();
    DrawingStore& store = controller.store();
    std::unique_ptr<TestSettings> settings;

    struct Wakeups {
        int timers = 0;
        int paints = 0;
    };
    // Counts, for the whole program, timer wake-ups and paints of the overlays.
    struct Counter : QObject {
        Wakeups seen;
        bool eventFilter(QObject* receiver, QEvent* event) override {
            if (event->type() == QEvent::Timer)
                ++seen.timers;
            if (event->type() == QEvent::Paint && qobject_cast<OverlayView*>(receiver))
                ++seen.paints;
            return false;
        }
    };

    // What happens in the given time with nobody touching anything.
    static Wakeups idleFor(int milliseconds) {
        Counter counter;
        qApp->installEventFilter(&counter);
        QTest::qWait(milliseconds);
        qApp->removeEventFilter(&counter);
        return counter.seen;
    }

    void drawStroke(QPointF from, QPointF to) {
        store.begin(from);
        store.update((from + to) / 2);
        store.finishStroke(to);
    }

    // Lets every paint and deferred deletion that the last change asked for happen.
    static void settle() {
        QTest::qWait(200);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();
        Settings::shared().setFadeSeconds(0.0);
        store.setTool(Tool::pen);
        store.setWidth(6);
    }
    void cleanup() {
        controller.stop();
        store.clear();
        QTRY_VERIFY(!store.isTimerRunning());
        settle();
    }

    void nothingOnTheScreenNothingRuns() {
        controller.start();
        QVERIFY(controller.isShown());
        controller.stop();
        QVERIFY(!controller.isShown());
        settle();
        const Wakeups idle = idleFor(1500);
        QCOMPARE(idle.timers, 0);
        QCOMPARE(idle.paints, 0);
    }

    // Without fading nothing changes with time: no timer wakes for the ink.
    void inkOnTheScreenWithoutFadingWakesNothing() {
        controller.start();
        drawStroke({100, 100}, {300, 200});
        drawStroke({120, 300}, {500, 260});
        settle();
        QCOMPARE(idleFor(1000).paints, 0);

        controller.stop();
        QVERIFY(controller.isShown()); // the ink stays, click-through
        settle();
        const Wakeups shown = idleFor(1000);
        QCOMPARE(shown.paints, 0);
        QCOMPARE(shown.timers, 0);
    }

    void afterTheLastItemFadesNothingRuns() {
        Settings::shared().setFadeSeconds(0.2);
        controller.start();
        drawStroke({100, 100}, {300, 200});
        controller.stop();
        QTRY_VERIFY_WITH_TIMEOUT(store.items().empty() && !store.isTimerRunning(), 3000);
        QVERIFY(!controller.isShown());
        settle();
        const Wakeups idle = idleFor(1500);
        QCOMPARE(idle.timers, 0);
        QCOMPARE(idle.paints, 0);
    }
};

QTEST_MAIN(OverlayRestTest)
#include "tst_overlayrest.moc"
