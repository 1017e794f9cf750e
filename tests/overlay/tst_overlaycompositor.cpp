#include "Clock.h"
#include "DrawingStore.h"
#include "OverlayController.h"
#include "OverlayWindow.h"
#include "Renderer.h"
#include "Settings.h"
#include "TestSettings.h"
#include "XTestTools.h"

#include <QScreen>
#include <QtTest>

// What someone looking at the screen sees, with a compositing manager
// running: the ink over the desktop, and the desktop itself everywhere else.
class OverlayCompositorTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 3000.0;
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
                                    const QList<QRect>& ink) {
        int largest = 0;
        for (int y = 5; y < before.height(); y += 23) {
            for (int x = 5; x < before.width(); x += 23) {
                const bool inked = std::any_of(ink.begin(), ink.end(),
                                               [&](const QRect& r) { return r.contains(x, y); });
                if (!inked)
                    largest = std::max(largest,
                                       difference(before.pixelColor(x, y), after.pixelColor(x, y)));
            }
        }
        return largest;
    }
    // Waits until what is on screen stops changing, and returns it.
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

private Q_SLOTS:
    void initTestCase() {
        settings = std::make_unique<TestSettings>();

        Clock::setFixedNow(t0);
    }

    void inkOverTheDesktop() {
        PeerApp desktop({40, 60, 1200, 800}, QColor(0x20, 0xa0, 0x40));
        QVERIFY(desktop.waitUntilActive());
        const QImage before = settledScreenshot();
        QVERIFY(!before.isNull());
        QCOMPARE(before.pixelColor(600, 500), QColor(0x20, 0xa0, 0x40));

        controller.start();
        store.setColorIndex(0);
        store.setWidth(6);
        QVERIFY(XInput::drag({{300, 500}, {450, 500}, {600, 500}, {750, 500}, {900, 500}}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        const QImage drawing = settledScreenshot();
        for (int x = 310; x <= 890; x += 20)
            QVERIFY2(isRed(drawing.pixelColor(x, 500)),
                     qPrintable(QStringLiteral("no ink at %1,500").arg(x)));
        const QRect stroke(290, 490, 621, 21);
        const QRect hintBar =
            Renderer::hudRect(QRectF(QGuiApplication::primaryScreen()->geometry()), store.tool(),
                              store.colorIndex())
                .toAlignedRect()
                .adjusted(-12, -12, 12, 12);
        // The window manager greys the desktop window's title bar: it lost the keyboard.
        const QRect titleBar(0, 0, before.width(), 60);
        // The hint bar is on screen too; away from it and the ink, the veil
        // leaves the desktop as it was to the eye.
        QVERIFY(difference(before.pixelColor(hintBar.center()),
                           drawing.pixelColor(hintBar.center())) > 20);
        QVERIFY(largestChangeOutside(before, drawing, {stroke, hintBar, titleBar}) <= 3);

        // Stopped, the ink stays while it waits to fade, without the veil or the bar.
        controller.stop();
        const QImage fading = settledScreenshot();
        QVERIFY(isRed(fading.pixelColor(600, 500)));
        QCOMPARE(largestChangeOutside(before, fading, {stroke, titleBar}), 0);

        // Faded: the desktop is exactly as before.
        Clock::setFixedNow(t0 + 10);
        QTRY_VERIFY(!controller.isShown());
        const QImage after = settledScreenshot();
        QCOMPARE(largestChangeOutside(before, after, {titleBar}), 0);
    }
};

QTEST_MAIN(OverlayCompositorTest)
#include "tst_overlaycompositor.moc"
