#include "OverlaySession.h"
#include "Settings.h"

#include <QScreen>

// Two monitors on one X screen (RandR monitors, as a laptop with a projector
// has), without a compositing manager: one overlay per monitor, cut to its
// ink, and monitors unplugged and plugged in mid-stroke, taking neither the
// stroke nor the desktop with them.
class OverlayMonitorsTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 7000.0;
    const QRect left{0, 0, 800, 600};
    const QRect right{800, 0, 640, 480};

    OverlaySession session;
    OverlayController& controller = session.controller;
    DrawingStore& store = session.store;

    static bool setMonitor(const QString& name, QRect r, const QString& output) {
        // Physical size in millimetres, for a plausible 96 dpi.
        const QString geometry = QStringLiteral("%1/%2x%3/%4+%5+%6")
                                     .arg(r.width())
                                     .arg(r.width() * 254 / 960)
                                     .arg(r.height())
                                     .arg(r.height() * 254 / 960)
                                     .arg(r.x())
                                     .arg(r.y());
        return RunningQuillery::run("xrandr", {"--setmonitor", name, geometry, output});
    }
    static bool unplugRight() {
        return RunningQuillery::run("xrandr", {"--delmonitor", "RIGHT"}) &&
               QTest::qWaitFor([] { return QGuiApplication::screens().size() == 1; }, 5000);
    }
    // Qt misses a monitor taken away and put back at once: one step at a time.
    static bool plugRight(QRect r) {
        return (QGuiApplication::screens().size() == 1 || unplugRight()) &&
               setMonitor("RIGHT", r, "none");
    }
    // One change of monitors reaches Qt as several events (added, primary,
    // geometry); a session started before the last would be rebuilt under the test.
    static void waitForScreensToSettle() {
        QElapsedTimer quiet;
        quiet.start();
        QObject context;
        const auto restart = [&quiet] { quiet.restart(); };
        connect(qApp, &QGuiApplication::screenAdded, &context, restart);
        connect(qApp, &QGuiApplication::screenRemoved, &context, restart);
        for (QScreen* screen : QGuiApplication::screens())
            connect(screen, &QScreen::geometryChanged, &context, restart);
        // A server that never goes quiet fails the next step, not this one.
        [[maybe_unused]] const bool settled =
            QTest::qWaitFor([&] { return quiet.elapsed() >= 100; }, 2000);
    }
    static QList<QRect> screenRects() {
        QList<QRect> rects;
        for (QScreen* screen : QGuiApplication::screens())
            rects << screen->geometry();
        return rects;
    }
    // The desktop is blue and the ink red: black is a see-through window
    // shown without a compositor.
    static int blackPixels() {
        return XDesktop::countPixels([](QColor c) {
            return std::max({c.red(), c.green(), c.blue()}) < 40;
        });
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(setMonitor("LEFT", left, "screen"));
        QVERIFY(RunningQuillery::run("xsetroot", {"-solid", "#3060a0"}));
        // The hint bar is dark by design.
        Settings::shared().setHudVisible(false);
    }
    void init() {
        QVERIFY(screenRects() == (QList<QRect>{left, right}) || plugRight(right));
        QTRY_COMPARE(screenRects(), (QList<QRect>{left, right}));
        waitForScreensToSettle();
        session.reset(t0);
    }
    void cleanup() { session.end(); }

    void monitorChangesMidStroke_data() {
        // A monitor plugged in mid-stroke also sees the stroke to its end.
        QTest::addColumn<bool>("plug");
        QTest::addColumn<QPoint>("from");
        QTest::addColumn<QPoint>("to");
        QTest::newRow("unplugged under the pen") << false << QPoint(1000, 300) << QPoint(300, 300);
        QTest::newRow("plugged in across the border")
            << true << QPoint(600, 300) << QPoint(1000, 300);
    }
    void monitorChangesMidStroke() {
        QFETCH(bool, plug);
        QFETCH(QPoint, from);
        QFETCH(QPoint, to);
        const QList<QRect> after = plug ? QList<QRect>{left, right} : QList<QRect>{left};
        if (plug) {
            QVERIFY(unplugRight());
            waitForScreensToSettle();
        }
        QVERIFY(XDesktop::moveTo(from));
        controller.start();
        QTRY_COMPARE(session.windowRects(), screenRects());
        // The keys go to the monitor with the pointer.
        QTRY_VERIFY(session.hasKeyboard(overlayWindows()[from.x() < 800 ? 0 : 1]));
        QVERIFY(XDesktop::moveTo(from, "mousedown 1 mousemove_relative 20 10"));
        QTRY_VERIFY(store.current().has_value());

        QVERIFY(plug ? plugRight(right) : unplugRight());
        QTRY_COMPARE(session.windowRects(), after);
        QVERIFY(XDesktop::moveTo(to, "mouseup 1"));
        if (plug) {
            QTRY_VERIFY(store.items().size() == 1 && store.items()[0].points.back() == to);
            QTRY_VERIFY(XDesktop::countPixels(XDesktop::isRed,
                                              QRect(to - QPoint(9, 9), QSize(19, 19))) > 0);
        }

        // The new windows have the keyboard, take the pen everywhere and show no black.
        QTRY_COMPARE(session.windowsAlive(), size_t(after.size()));
        QTRY_VERIFY(session.hasKeyboard(overlayWindows()[0]));
        QVERIFY(XDesktop::xdotool("key r"));
        QTRY_COMPARE(store.tool(), Tool::rect);
        for (const QRect& monitor : after)
            QVERIFY(XDesktop::drag({monitor.center(), monitor.center() + QPoint(80, 60)}));
        QTRY_COMPARE(store.items().size(), size_t(1 + after.size()));
        QCOMPARE(store.items()[0].kind, Tool::pen);
        QCOMPARE(store.items()[0].points.front(), QPointF(from));
        QTRY_COMPARE(blackPixels(), 0);
    }
};

QTEST_MAIN(OverlayMonitorsTest)
#include "tst_overlaymonitors.moc"
