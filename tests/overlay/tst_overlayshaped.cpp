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

#include <QProcess>
#include <QRegularExpression>
#include <QScreen>
#include <QtTest>

// What someone looking at a desktop without a compositing manager sees: a
// see-through window would turn the screen black there, so the overlay shows
// only its ink, yet still takes the pen everywhere while drawing. A
// compositing manager that starts or stops switches the overlay over live.
class OverlayShapedTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 5000.0;
    const QColor desktopColor{0x20, 0xa0, 0x40};
    const QRect desktopRect{40, 60, 1200, 800};
    // The window manager greys the desktop window's title bar when it loses the keyboard.
    const QRect titleBar{0, 0, 1920, 60};

    OverlayController& controller = OverlayController::shared();
    DrawingStore& store = controller.store();
    std::unique_ptr<TestSettings> settings;

    static bool isRed(QColor c) { return c.red() > 200 && c.green() < 60 && c.blue() < 60; }
    static int difference(QColor a, QColor b) {
        return std::max({std::abs(a.red() - b.red()), std::abs(a.green() - b.green()),
                         std::abs(a.blue() - b.blue())});
    }
    // The largest change between two screenshots over a grid of points outside `ink`.
    static int largestChangeOutside(const QImage& before, const QImage& after,
                                    const QList<QRect>& ink, const QRect& within = {}) {
        int largest = 0;
        for (int y = 3; y < before.height(); y += 17) {
            for (int x = 3; x < before.width(); x += 17) {
                if (within.isValid() && !within.contains(x, y))
                    continue;
                const bool inked = std::any_of(ink.begin(), ink.end(),
                                               [&](const QRect& r) { return r.contains(x, y); });
                if (!inked)
                    largest = std::max(largest,
                                       difference(before.pixelColor(x, y), after.pixelColor(x, y)));
            }
        }
        return largest;
    }
    // Pixels in `area` that show neither the desktop nor ink at half strength
    // or more: a dark rim or a black patch.
    int darkPixels(const QImage& shot, const QRect& area) const {
        int dark = 0;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x) {
                const QColor c = shot.pixelColor(x, y);
                dark += c != desktopColor && std::max({c.red(), c.green(), c.blue()}) < 110;
            }
        return dark;
    }
    static QImage settledScreenshot() {
        QImage last = XServer::screenshot();
        for (int attempt = 0; attempt < 20; ++attempt) {
            QTest::qWait(50);
            QImage next = XServer::screenshot();
            if (next == last)
                return next;
            last = std::move(next);
        }
        return last;
    }
    static bool isBoundingShaped(WId window) {
        auto* c = XServer::connection();
        auto extents = XServer::reply(
            xcb_shape_query_extents_reply(c, xcb_shape_query_extents(c, window), nullptr));
        return extents && extents->bounding_shaped;
    }
    QRect hintBar() const {
        return Renderer::hudRect(QRectF(QGuiApplication::primaryScreen()->geometry()), store.tool(),
                                 store.colorIndex())
            .toAlignedRect()
            .adjusted(-12, -12, 12, 12);
    }
    bool windowsShaped(bool shaped) const {
        return std::all_of(
            overlayWindows().begin(), overlayWindows().end(), [shaped](OverlayWindow* window) {
                return isBoundingShaped(window->winId()) == shaped && window->isShaped() == shaped;
            });
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(XServer::connection());
        settings = std::make_unique<TestSettings>();

        // A shape the server refuses would show up only here.
        QTest::failOnWarning(QRegularExpression(QStringLiteral("XCB error")));
    }
    void init() {
        Clock::setFixedNow(t0);
        store.setTool(Tool::pen);
        store.setColorIndex(0);
        store.setWidth(6);
    }
    void cleanup() {
        controller.stop();
        store.clear();
        Clock::setFixedNow(std::nullopt);
        QTRY_VERIFY(!controller.isShown());
        XServer::waitForWindowManager();
    }

    void inkOverTheDesktopWithoutACompositor() {
        PeerApp desktop(desktopRect, desktopColor);
        QVERIFY(desktop.waitUntilActive());
        const QImage before = settledScreenshot();
        QCOMPARE(before.pixelColor(600, 500), desktopColor);

        controller.start();
        QVERIFY(dynamic_cast<WidgetOverlayHost&>(controller.host()).isShaped());
        QVERIFY(windowsShaped(true));
        // Nothing drawn yet, but the pen is taken wherever it goes down.
        QVERIFY(XInput::drag({{300, 500}, {450, 500}, {600, 500}, {750, 500}, {900, 500}}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        const QRect stroke(290, 490, 621, 21);
        QImage shot = settledScreenshot();
        for (int x = 310; x <= 890; x += 20)
            QVERIFY2(isRed(shot.pixelColor(x, 500)),
                     qPrintable(QStringLiteral("no ink at %1,500").arg(x)));
        QCOMPARE(darkPixels(shot, stroke), 0);
        // The hint bar shows; everything else is the desktop, untouched.
        QVERIFY(difference(before.pixelColor(hintBar().center()),
                           shot.pixelColor(hintBar().center())) > 20);
        QCOMPARE(largestChangeOutside(before, shot, {stroke, hintBar(), titleBar}), 0);

        // Far from any ink, on the desktop's own background, the pen still draws.
        QVERIFY(XInput::drag({{1500, 900}, {1600, 950}, {1700, 1000}}));
        QTRY_COMPARE(store.items().size(), size_t(2));
        QVERIFY(desktop.takeLines().filter(QStringLiteral("press")).isEmpty());
        const QRect secondStroke(1490, 890, 221, 121);
        QVERIFY(isRed(settledScreenshot().pixelColor(1600, 950)));

        // Taken back, the stroke leaves the desktop as it was, with no black trace.
        QVERIFY(XInput::key(QStringLiteral("u")));
        QTRY_COMPARE(store.items().size(), size_t(1));
        shot = settledScreenshot();
        QCOMPARE(largestChangeOutside(before, shot, {stroke, hintBar(), titleBar}), 0);
        QCOMPARE(shot.pixelColor(1600, 950), before.pixelColor(1600, 950));

        // Fading: the ink stays, without the hint bar, and clicks reach the
        // desktop everywhere, on the ink too.
        controller.stop();
        shot = settledScreenshot();
        QVERIFY(isRed(shot.pixelColor(600, 500)));
        QCOMPARE(largestChangeOutside(before, shot, {stroke, titleBar}), 0);
        QVERIFY(XInput::click({600, 500}));
        QVERIFY(desktop.waitForLine(QStringLiteral("press 600 500")));
        QVERIFY(XInput::click({1000, 200}));
        QVERIFY(desktop.waitForLine(QStringLiteral("press 1000 200")));

        // While it fades, the ink shows at half its strength or more, or not at
        // all: never as a dark shadow of itself.
        Clock::setFixedNow(t0 + 4.2);
        QTRY_VERIFY(XServer::screenshot().pixelColor(600, 500).red() < 200);
        shot = settledScreenshot();
        QVERIFY(shot.pixelColor(600, 500).red() > 150);
        QCOMPARE(darkPixels(shot, stroke), 0);
        Clock::setFixedNow(t0 + 4.6);
        QTRY_COMPARE(XServer::screenshot().pixelColor(600, 500), desktopColor);
        QCOMPARE(largestChangeOutside(before, settledScreenshot(), {titleBar}), 0);

        Clock::setFixedNow(t0 + 10);
        QTRY_VERIFY(!controller.isShown());
        QCOMPARE(largestChangeOutside(before, settledScreenshot(), {titleBar}), 0);
    }

    void everyKindOfInkShows() {
        PeerApp desktop(desktopRect, desktopColor);
        QVERIFY(desktop.waitUntilActive());
        const QImage before = settledScreenshot();
        controller.start();
        const auto draw = [this](Tool tool, QPointF from, QPointF to) {
            store.setTool(tool);
            store.begin(from);
            store.update((from + to) / 2);
            store.finishStroke(to);
        };
        draw(Tool::arrow, {200, 300}, {400, 300});
        draw(Tool::ellipse, {500, 250}, {700, 350});
        draw(Tool::rect, {800, 250}, {1000, 350});
        draw(Tool::highlighter, {200, 600}, {600, 600});
        store.setTool(Tool::text);
        store.beginText({700, 600});
        store.appendText(QStringLiteral("Hello"));
        QTRY_VERIFY(isRed(XServer::screenshot().pixelColor(300, 300)));
        const QImage shot = settledScreenshot();
        const auto changed = [&](QPoint p) {
            return difference(before.pixelColor(p), shot.pixelColor(p)) > 40;
        };
        QVERIFY(changed({300, 300})); // the arrow's shaft
        QVERIFY(changed({500, 300})); // the ellipse's left end
        QVERIFY(changed({900, 250})); // the rectangle's top edge
        QVERIFY(changed({400, 600})); // the highlighter
        QVERIFY(isRed(shot.pixelColor(300, 300)));
        // The text: some of its pixels are ink.
        int textInk = 0;
        for (int y = 580; y < 620; ++y)
            for (int x = 700; x < 800; ++x)
                textInk += isRed(shot.pixelColor(x, y));
        QVERIFY(textInk > 50);
        // Inside the shapes, the desktop as it was.
        QCOMPARE(shot.pixelColor(600, 300), before.pixelColor(600, 300));
        QCOMPARE(shot.pixelColor(900, 300), before.pixelColor(900, 300));
        QCOMPARE(darkPixels(shot, QRect(190, 290, 220, 20)), 0);
    }

    void aCompositorStartingAndStoppingSwitchesModes() {
        PeerApp desktop(desktopRect, desktopColor);
        QVERIFY(desktop.waitUntilActive());
        const QImage before = settledScreenshot();
        controller.start();
        QVERIFY(XInput::drag({{300, 500}, {600, 500}, {900, 500}}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        QVERIFY(dynamic_cast<WidgetOverlayHost&>(controller.host()).isShaped());
        QVERIFY(overlayWindows().front()->holdsPointer());
        const QRect stroke(290, 490, 621, 21);

        QProcess compositor;
        compositor.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        compositor.start(QStringLiteral("picom"),
                         {QStringLiteral("--backend"), QStringLiteral("xrender"),
                          QStringLiteral("--no-fading-openclose")});
        QVERIFY(compositor.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(!dynamic_cast<WidgetOverlayHost&>(controller.host()).isShaped(),
                                 10000);
        QVERIFY(windowsShaped(false));
        QVERIFY(!overlayWindows().front()->holdsPointer());
        // Translucent again: the veil, too faint to see, over the desktop (the
        // compositing manager paints the bare root its own way).
        QTRY_VERIFY(isRed(XServer::screenshot().pixelColor(600, 500)));
        QImage shot = settledScreenshot();
        QVERIFY(largestChangeOutside(before, shot, {stroke, hintBar(), titleBar}, desktopRect) <=
                3);
        // The window itself takes the pen.
        QVERIFY(XInput::drag({{1500, 900}, {1600, 950}}));
        QTRY_COMPARE(store.items().size(), size_t(2));

        compositor.terminate();
        QVERIFY(compositor.waitForFinished(5000));
        QTRY_VERIFY_WITH_TIMEOUT(dynamic_cast<WidgetOverlayHost&>(controller.host()).isShaped(),
                                 5000);
        QVERIFY(windowsShaped(true));
        QTRY_VERIFY(overlayWindows().front()->holdsPointer());
        shot = settledScreenshot();
        QVERIFY(isRed(shot.pixelColor(600, 500)));
        QCOMPARE(largestChangeOutside(before, shot,
                                      {stroke, QRect(1490, 890, 121, 71), hintBar(), titleBar}),
                 0);
        QVERIFY(XInput::drag({{300, 800}, {600, 800}}));
        QTRY_COMPARE(store.items().size(), size_t(3));
        QVERIFY(desktop.takeLines().filter(QStringLiteral("press")).isEmpty());
    }
};

QTEST_MAIN(OverlayShapedTest)
#include "tst_overlayshaped.moc"
