#include "Clock.h"
#include "DrawingStore.h"
#include "OverlayController.h"
#include "OverlayView.h"
#include "OverlayWindow.h"
#include "OverlayWindows.h"
#include "Renderer.h"
#include "Settings.h"
#include "TestSettings.h"
#include "XTestTools.h"

#include <QScreen>
#include <QtTest>

// Two monitors side by side on one X screen (RandR monitors, as a laptop with
// a projector has): one overlay per monitor, strokes in global coordinates on
// either and across the border, and monitors unplugged and plugged in while
// drawing, mid-stroke and while ink fades.
class OverlayMonitorsTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 7000.0;
    const QRect left{0, 0, 800, 600};
    const QRect right{800, 0, 640, 480};

    OverlayController& controller = OverlayController::shared();
    DrawingStore& store = controller.store();
    std::unique_ptr<TestSettings> settings;

    static bool setMonitor(const QString& name, QRect r, const QString& output) {
        // Physical size in millimetres, for a plausible 96 dpi.
        const QString geometry = QStringLiteral("%1/%2x%3/%4+%5+%6")
                                     .arg(r.width())
                                     .arg(r.width() * 254 / 960)
                                     .arg(r.height())
                                     .arg(r.height() * 254 / 960)
                                     .arg(r.x())
                                     .arg(r.y());
        return XServer::run(QStringLiteral("xrandr"),
                            {QStringLiteral("--setmonitor"), name, geometry, output});
    }
    // One change of monitors reaches Qt as several events (added, primary,
    // geometry); a session started before the last would be rebuilt under the test.
    static void waitForScreensToSettle() {
        QElapsedTimer quiet;
        quiet.start();
        QList<QMetaObject::Connection> connections;
        const auto restart = [&quiet] { quiet.restart(); };
        connections << QObject::connect(qApp, &QGuiApplication::screenAdded, restart)
                    << QObject::connect(qApp, &QGuiApplication::screenRemoved, restart)
                    << QObject::connect(qApp, &QGuiApplication::primaryScreenChanged, restart);
        for (QScreen* screen : QGuiApplication::screens())
            connections << QObject::connect(screen, &QScreen::geometryChanged, restart);
        // A server that never goes quiet fails the next step, not this one.
        [[maybe_unused]] const bool settled =
            QTest::qWaitFor([&] { return quiet.elapsed() >= 100; }, 2000);
        for (const auto& connection : connections)
            QObject::disconnect(connection);
    }
    // Plugs the right-hand monitor in at r, wherever it was before.
    bool plugRight(QRect r) {
        if (screenRects().size() > 1)
            unplug(QStringLiteral("RIGHT"));
        return setMonitor(QStringLiteral("RIGHT"), r, QStringLiteral("none"));
    }
    // Qt misses a monitor taken away and put back at once: one step at a time.
    bool moveRight(QRect r) {
        if (!unplug(QStringLiteral("RIGHT")) ||
            !QTest::qWaitFor([] { return QGuiApplication::screens().size() == 1; }, 5000))
            return false;
        return setMonitor(QStringLiteral("RIGHT"), r, QStringLiteral("none"));
    }
    static bool unplug(const QString& name) {
        return XServer::run(QStringLiteral("xrandr"), {QStringLiteral("--delmonitor"), name});
    }
    static QList<QRect> screenRects() {
        QList<QRect> rects;
        for (QScreen* screen : QGuiApplication::screens())
            rects << screen->geometry();
        return rects;
    }
    QList<QRect> windowRects() const {
        QList<QRect> rects;
        for (OverlayWindow* window : overlayWindows())
            rects << XServer::geometry(window->winId());
        return rects;
    }
    static size_t overlayWindowsAlive() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        size_t count = 0;
        for (QWidget* widget : QApplication::topLevelWidgets())
            count += qobject_cast<OverlayWindow*>(widget) != nullptr;
        return count;
    }
    static bool holdsKeyboard(const OverlayWindow* window) {
        return XServer::inputFocus() == window->winId() && window->view()->hasFocus();
    }
    // Pixels of a root screenshot that are black or nearly so, outside the
    // hint bars (dark by design). The desktop behind is blue and the ink red:
    // anything black is a see-through window shown without a compositor.
    int blackPixels() const {
        const QImage shot = XServer::screenshot();
        QList<QRect> hintBars;
        if (store.isDrawing())
            for (QScreen* screen : QGuiApplication::screens())
                hintBars << Renderer::hudRect(QRectF(QPointF(0, 0), screen->geometry().size()),
                                              store.tool(), store.colorIndex())
                                .translated(screen->geometry().topLeft())
                                .toAlignedRect()
                                .adjusted(-3, -3, 3, 3);
        int black = 0;
        for (int y = 0; y < shot.height(); y += 4)
            for (int x = 0; x < shot.width(); x += 4) {
                const QColor c = shot.pixelColor(x, y);
                const bool inBar = std::any_of(hintBars.begin(), hintBars.end(),
                                               [&](const QRect& r) { return r.contains(x, y); });
                black += !inBar && std::max({c.red(), c.green(), c.blue()}) < 40;
            }
        return black;
    }
    // The largest alpha in a small square around p of the view's own picture.
    static int inkAt(OverlayView* view, QPoint p) {
        const QImage image = view->grab(QRect(p - QPoint(3, 3), QSize(7, 7))).toImage();
        int most = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x) {
                const QColor c = image.pixelColor(x, y);
                if (c.red() > 150 && c.green() < 80 && c.blue() < 80)
                    most = std::max(most, c.alpha());
            }
        return most;
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(setMonitor(QStringLiteral("LEFT"), left, QStringLiteral("screen")));
        // A desktop that isn't black, so that a black screen shows.
        QVERIFY(XServer::run(QStringLiteral("xsetroot"),
                             {QStringLiteral("-solid"), QStringLiteral("#3060a0")}));
        settings = std::make_unique<TestSettings>();
        Settings::shared().setHudVisible(false);
    }
    void init() {
        if (screenRects() != QList<QRect>{left, right})
            QVERIFY(plugRight(right));
        QTRY_COMPARE(screenRects(), (QList<QRect>{left, right}));
        waitForScreensToSettle();
        Clock::setFixedNow(t0);
        store.setTool(Tool::pen);
        store.setColorIndex(0);
        store.setWidth(6);
    }
    void cleanup() {
        controller.stop();
        store.clear();
        Clock::setFixedNow(std::nullopt);
        QTRY_COMPARE(overlayWindowsAlive(), overlayWindows().size());
        XServer::waitForWindowManager();
    }

    void oneWindowPerMonitorAndTheKeysWhereThePointerIs() {
        QVERIFY(XInput::moveTo({1000, 300}));
        controller.start();
        QCOMPARE(overlayWindows().size(), size_t(2));
        QTRY_COMPARE(windowRects(), (QList<QRect>{left, right}));
        QTRY_VERIFY(holdsKeyboard(overlayWindows()[1]));
        QVERIFY(XInput::key(QStringLiteral("h")));
        QTRY_COMPARE(store.tool(), Tool::highlighter);
    }

    void strokesInGlobalCoordinates() {
        controller.start();
        QTRY_COMPARE(windowRects(), (QList<QRect>{left, right}));
        QVERIFY(XInput::drag({{900, 100}, {950, 150}, {1000, 200}}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        QCOMPARE(store.items().back().points.front(), QPointF(900, 100));
        QCOMPARE(store.items().back().points.back(), QPointF(1000, 200));

        // Across the border: one stroke, shown in part by each window.
        QVERIFY(XInput::drag({{700, 300}, {760, 315}, {800, 325}, {840, 335}, {900, 350}}));
        QTRY_COMPARE(store.items().size(), size_t(2));
        const Item& crossing = store.items().back();
        QCOMPARE(crossing.points.front(), QPointF(700, 300));
        QCOMPARE(crossing.points.back(), QPointF(900, 350));
        OverlayView* leftView = overlayWindows()[0]->view();
        OverlayView* rightView = overlayWindows()[1]->view();
        QVERIFY(inkAt(leftView, {750, 312}) > 200);
        QVERIFY(inkAt(rightView, {50, 337}) > 200);
        // The first stroke lies entirely on the right.
        QVERIFY(inkAt(rightView, {150, 150}) > 200);
        QCOMPARE(inkAt(leftView, {150, 150}), 0);
        QCOMPARE(inkAt(leftView, {500, 500}), 0);
    }

    void unplugMidStroke() {
        controller.start();
        QVERIFY(XInput::drag({{100, 100}, {200, 200}}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        QVERIFY(XInput::press({1000, 300}));
        QVERIFY(XInput::moveTo({1050, 320}));
        QTRY_VERIFY(store.current().has_value());

        QVERIFY(unplug(QStringLiteral("RIGHT")));
        QTRY_COMPARE(overlayWindows().size(), size_t(1));
        QVERIFY(XInput::release());
        QTRY_COMPARE(windowRects(), QList<QRect>{left});
        QTRY_COMPARE(overlayWindowsAlive(), size_t(1));
        QVERIFY(store.isDrawing());
        QVERIFY(controller.isShown());
        QCOMPARE(store.items().size(), size_t(1));
        // The remaining monitor's window has the keyboard and the mouse.
        QTRY_VERIFY(holdsKeyboard(overlayWindows()[0]));
        QVERIFY(XInput::key(QStringLiteral("r")));
        QTRY_COMPARE(store.tool(), Tool::rect);
        QVERIFY(XInput::drag({{300, 300}, {400, 380}}));
        QTRY_COMPARE(store.items().back().kind, Tool::rect);
        // The stroke cut short by the unplugging is kept.
        QCOMPARE(store.items().size(), size_t(3));
        QCOMPARE(store.items()[1].kind, Tool::pen);
        QCOMPARE(store.items()[1].points.front(), QPointF(1000, 300));

        // Plugged in again, it gets its window back.
        QVERIFY(plugRight(right));
        QTRY_COMPARE(overlayWindows().size(), size_t(2));
        QTRY_COMPARE(windowRects(), (QList<QRect>{left, right}));
        QVERIFY(XInput::drag({{1100, 100}, {1200, 150}}));
        QTRY_COMPARE(store.items().back().points.back(), QPointF(1200, 150));
    }

    void unplugWhileFading() {
        controller.start();
        QVERIFY(XInput::drag({{1000, 100}, {1100, 200}}));
        QVERIFY(XInput::drag({{100, 100}, {200, 200}}));
        QTRY_COMPARE(store.items().size(), size_t(2));
        controller.stop();
        QVERIFY(controller.isShown());

        QVERIFY(unplug(QStringLiteral("RIGHT")));
        QTRY_COMPARE(overlayWindows().size(), size_t(1));
        OverlayWindow* window = overlayWindows()[0];
        QTRY_VERIFY(XServer::isViewable(window->winId()));
        QCOMPARE(XServer::inputShapeRectangles(window->winId()), 0);
        QVERIFY(XServer::inputFocus() != window->winId());
        QVERIFY(!store.isDrawing());
        QCOMPARE(store.items().size(), size_t(2));

        // The monitor moves while the ink fades: new windows again, click-through.
        const QRect below{800, 120, 640, 480};
        QVERIFY(plugRight(below));
        QTRY_COMPARE(windowRects(), (QList<QRect>{left, below}));
        for (OverlayWindow* w : overlayWindows())
            QCOMPARE(XServer::inputShapeRectangles(w->winId()), 0);

        Clock::setFixedNow(t0 + 10);
        QTRY_VERIFY(!controller.isShown());
        QTRY_VERIFY(!XServer::isViewable(overlayWindows()[0]->winId()));

        // With nothing on screen, a monitor change builds nothing.
        const auto idleWindows = overlayWindows();
        QVERIFY(unplug(QStringLiteral("RIGHT")));
        QTRY_COMPARE(QGuiApplication::screens().size(), 1);
        QTest::qWait(50);
        QCOMPARE(overlayWindows(), idleWindows);
        QVERIFY(!controller.isShown());
    }

    // Without a compositing manager the windows are cut to the ink and the
    // one with the keyboard holds the pointer: monitors that move, go and
    // come mid-stroke take neither the stroke nor the desktop with them.
    void monitorsChangeMidStrokeWithoutACompositor() {
        controller.start();
        QVERIFY(dynamic_cast<WidgetOverlayHost&>(controller.host()).isShaped());
        QTRY_COMPARE(windowRects(), (QList<QRect>{left, right}));
        QTRY_COMPARE(blackPixels(), 0);

        // Moved while the pen is down on the other monitor.
        QVERIFY(XInput::press({100, 100}));
        QVERIFY(XInput::moveTo({200, 150}));
        QTRY_VERIFY(store.current().has_value());
        const QRect lower{800, 100, 640, 480};
        QVERIFY(moveRight(lower));
        QTRY_COMPARE(windowRects(), (QList<QRect>{left, lower}));
        QVERIFY(XInput::moveTo({300, 200}));
        QVERIFY(XInput::release());
        QTRY_COMPARE(store.items().size(), size_t(1));
        QCOMPARE(store.items()[0].points.front(), QPointF(100, 100));
        QCOMPARE(store.items()[0].points.back(), QPointF(300, 200));

        // Unplugged, then plugged in again, each time with the pen down.
        QVERIFY(XInput::press({400, 400}));
        QTRY_VERIFY(store.current().has_value());
        QVERIFY(unplug(QStringLiteral("RIGHT")));
        QTRY_COMPARE(windowRects(), QList<QRect>{left});
        QVERIFY(XInput::moveTo({500, 450}));
        QVERIFY(XInput::release());
        QTRY_COMPARE(store.items().size(), size_t(2));
        QVERIFY(XInput::press({600, 300}));
        QTRY_VERIFY(store.current().has_value());
        QVERIFY(setMonitor(QStringLiteral("RIGHT"), right, QStringLiteral("none")));
        QTRY_COMPARE(windowRects(), (QList<QRect>{left, right}));
        QVERIFY(XInput::moveTo({1000, 300}));
        QVERIFY(XInput::release());
        QTRY_COMPARE(store.items().size(), size_t(3));
        QCOMPARE(store.items()[2].points.back(), QPointF(1000, 300));

        // The new windows are cut to the ink and take the pen everywhere.
        QTRY_COMPARE(overlayWindowsAlive(), size_t(2));
        QTRY_VERIFY(std::any_of(overlayWindows().begin(), overlayWindows().end(),
                                [](OverlayWindow* w) { return w->holdsPointer(); }));
        QVERIFY(XInput::drag({{1200, 400}, {1300, 420}}));
        QTRY_COMPARE(store.items().size(), size_t(4));
        QTRY_COMPARE(blackPixels(), 0);
        for (OverlayWindow* window : overlayWindows()) {
            QVERIFY(window->isShaped());
            QVERIFY(window->visibleRegion().has_value());
        }

        // Fading while the monitor moves again: still nothing black.
        controller.stop();
        QVERIFY(moveRight(lower));
        QTRY_COMPARE(windowRects(), (QList<QRect>{left, lower}));
        QTRY_COMPARE(blackPixels(), 0);
        QCOMPARE(store.items().size(), size_t(4));
    }
};

QTEST_MAIN(OverlayMonitorsTest)
#include "tst_overlaymonitors.moc"
