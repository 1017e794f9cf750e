#include "DrawingStore.h"
#include "OverlayController.h"
#include "OverlayView.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QtTest>

// At rest the overlay costs nothing: once what shows stops changing, no timer
// wakes the program and nothing paints, with or without ink, drawing or not.
class OverlayRestTest : public QObject {
    Q_OBJECT

    OverlayController& controller = OverlayController::shared();
    DrawingStore& store = controller.store();
    std::unique_ptr<TestSettings> settings;

    // Counts, for the whole program, timer wake-ups and paints of the overlays.
    struct Counter : QObject {
        int wakeups = 0;
        bool eventFilter(QObject* receiver, QEvent* event) override {
            wakeups += event->type() == QEvent::Timer ||
                       (event->type() == QEvent::Paint && qobject_cast<OverlayView*>(receiver));
            return false;
        }
    };
    // Whether within ten seconds a whole second passes with nothing woken or painted.
    static bool quietsDown() {
        for (QDeadlineTimer deadline(10000); !deadline.hasExpired();) {
            Counter counter;
            qApp->installEventFilter(&counter);
            QTest::qWait(1000);
            qApp->removeEventFilter(&counter);
            if (counter.wakeups == 0)
                return true;
        }
        return false;
    }

private Q_SLOTS:
    void init() { settings = std::make_unique<TestSettings>(); }
    void cleanup() {
        controller.stop();
        store.clear();
        QTRY_VERIFY(!store.isTimerRunning());
    }

    void nothingRunsAtRest_data() {
        QTest::addColumn<double>("fadeSeconds");
        QTest::addColumn<int>("strokes");
        QTest::addColumn<bool>("drawing");
        QTest::newRow("nothing drawn") << 0.0 << 0 << false;
        QTest::newRow("drawing, ink that doesn't fade") << 0.0 << 2 << true;
        QTest::newRow("ink that doesn't fade left on screen") << 0.0 << 2 << false;
        QTest::newRow("the last item faded away") << 0.2 << 1 << false;
    }
    void nothingRunsAtRest() {
        QFETCH(double, fadeSeconds);
        QFETCH(int, strokes);
        QFETCH(bool, drawing);
        Settings::shared().setFadeSeconds(fadeSeconds);
        controller.start();
        for (int i = 0; i < strokes; ++i) {
            store.begin({100, 100.0 + 100 * i});
            store.update({200, 150.0 + 100 * i});
            store.finishStroke({300, 120.0 + 100 * i});
        }
        if (!drawing)
            controller.stop();
        QTRY_COMPARE_WITH_TIMEOUT(store.items().size(), size_t(fadeSeconds > 0 ? 0 : strokes),
                                  5000);
        QCOMPARE(controller.isShown(), store.items().size() > 0); // clicks pass through the ink
        QVERIFY(quietsDown());
    }
};

QTEST_MAIN(OverlayRestTest)
#include "tst_overlayrest.moc"
