#include "OverlaySession.h"
#include "Settings.h"

#include <QRegularExpression>

// What someone looking at the desktop sees, with and without a compositing
// manager: the ink over another application's window, and that window as it
// was everywhere else. Without a compositing manager a see-through window
// would turn the screen black, so the overlay is cut to its ink, yet takes
// the pen everywhere while drawing; one that starts or stops switches it live.
class OverlayDesktopTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 5000.0;
    const QColor desktopColor{Qt::white}; // xev's window
    const QRect desktopRect{40, 60, 1200, 800};
    // The window manager greys the desktop window's title bar, above the
    // rectangle asked for, when it loses the keyboard.
    const QRect titleBar{0, 0, 1920, 90};
    const QRect stroke{290, 490, 621, 21};

    OverlaySession session;
    OverlayController& controller = session.controller;
    DrawingStore& store = session.store;
    std::unique_ptr<QProcess> compositor;

    // The largest change of colour between two screenshots, over a grid of
    // points outside `ink`. A compositing manager paints the bare root its own
    // way: with one, only the desktop window counts.
    int largestChangeOutside(const QImage& before, const QImage& after,
                             const QList<QRect>& ink) const {
        int largest = 0;
        for (int y = 3; y < before.height(); y += 17)
            for (int x = 3; x < before.width(); x += 17) {
                const QColor a = before.pixelColor(x, y), b = after.pixelColor(x, y);
                if ((compositor && !desktopRect.contains(x, y)) ||
                    std::any_of(ink.begin(), ink.end(), [&](QRect r) { return r.contains(x, y); }))
                    continue;
                largest =
                    std::max({largest, std::abs(a.red() - b.red()), std::abs(a.green() - b.green()),
                              std::abs(a.blue() - b.blue())});
            }
        return largest;
    }
    // Over the white window, red ink blended at any strength stays light: dark
    // pixels in the stroke's area are a dark rim or a black patch.
    int darkPixels() const {
        return XDesktop::countPixels(
            [](QColor c) {
                return std::max({c.red(), c.green(), c.blue()}) < 110;
            },
            stroke);
    }
    // What the screen shows once the application has nothing left to paint.
    static QImage settledScreenshot() {
        QImage last, next;
        [[maybe_unused]] const bool settled = QTest::qWaitFor(
            [&] { return (last = std::exchange(next, XDesktop::screenshot())) == next; }, 10000);
        return next;
    }
    // Cut to the ink or not, and then holding the pointer while drawing.
    bool waitUntilShaped(bool shaped) {
        return QTest::qWaitFor(
            [&] {
                return session.host().isShaped() == shaped &&
                       std::all_of(overlayWindows().begin(), overlayWindows().end(),
                                   [&](OverlayWindow* w) {
                                       return XServer::isBoundingShaped(w->winId()) == shaped &&
                                              w->isShaped() == shaped &&
                                              (!w->hasKeyboard() || w->holdsPointer() == shaped);
                                   });
            },
            10000);
    }
    void switchCompositor(bool on) {
        if (on) {
            compositor = std::make_unique<QProcess>();
            compositor->start("picom", {"--backend", "xrender", "--no-fading-openclose"});
            QVERIFY(compositor->waitForStarted());
        } else {
            compositor->terminate();
            QVERIFY(compositor->waitForFinished(5000));
            compositor.reset();
        }
        QVERIFY(waitUntilShaped(!on));
    }

private Q_SLOTS:
    void initTestCase() {
        Settings::shared().setHudVisible(false);
        // A shape the server refuses would show up only here.
        QTest::failOnWarning(QRegularExpression(QStringLiteral("XCB error")));
    }
    void init() { session.reset(t0); }
    void cleanup() {
        session.end();
        if (compositor)
            switchCompositor(false);
    }

    void inkOverTheDesktop_data() {
        QTest::addColumn<bool>("composited");
        QTest::addColumn<int>("veil"); // how much drawing mode may tint the desktop
        QTest::newRow("without a compositor") << false << 0;
        QTest::newRow("with a compositor") << true << 3;
    }
    void inkOverTheDesktop() {
        QFETCH(bool, composited);
        QFETCH(int, veil);
        PeerApp desktop(desktopRect);
        QVERIFY(desktop.waitUntilActive());
        const QImage before = settledScreenshot();
        QCOMPARE(before.pixelColor(600, 500), desktopColor);

        controller.start();
        QVERIFY(waitUntilShaped(true));
        // A compositing manager that starts while drawing switches the windows live.
        if (composited)
            switchCompositor(true);
        // Nothing drawn yet, but the pen is taken wherever it goes down.
        QVERIFY(XDesktop::drag({{300, 500}, {450, 500}, {600, 500}, {750, 500}, {900, 500}}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        QImage shot = settledScreenshot();
        for (int x = 310; x <= 890; x += 20)
            QVERIFY2(XDesktop::isRed(shot.pixelColor(x, 500)), qPrintable(QString::number(x)));
        QVERIFY(largestChangeOutside(before, shot, {stroke, titleBar}) <= veil);
        QCOMPARE(darkPixels(), 0);

        // Far from any ink the pen still draws; taken back, that stroke leaves
        // the desktop as it was.
        QVERIFY(XDesktop::drag({{900, 700}, {1000, 750}, {1100, 800}}));
        QTRY_COMPARE(store.items().size(), size_t(2));
        QVERIFY(!desktop.tookLine("press"));
        QVERIFY(XDesktop::isRed(settledScreenshot().pixelColor(1000, 750)));
        QVERIFY(XDesktop::xdotool("key u"));
        QTRY_COMPARE(store.items().size(), size_t(1));
        shot = settledScreenshot();
        QVERIFY(largestChangeOutside(before, shot, {stroke, titleBar}) <= veil);
        QVERIFY(std::abs(shot.pixelColor(1000, 750).green() - desktopColor.green()) <= veil);

        // Fading: the ink stays, and clicks reach the desktop everywhere, on the ink too.
        controller.stop();
        shot = settledScreenshot();
        QVERIFY(XDesktop::isRed(shot.pixelColor(600, 500)));
        QCOMPARE(largestChangeOutside(before, shot, {stroke, titleBar}), 0);
        QVERIFY(XDesktop::xdotool("mousemove 600 500 click 1 mousemove 1000 200 click 1"));
        QVERIFY(desktop.waitForLine("press 600 500") && desktop.waitForLine("press 1000 200"));
        // And back, while the ink fades.
        if (composited)
            switchCompositor(false);
        Clock::setFixedNow(t0 + 10);
        QTRY_VERIFY(!controller.isShown());
        QCOMPARE(largestChangeOutside(before, settledScreenshot(), {titleBar}), 0);
    }
};

QTEST_MAIN(OverlayDesktopTest)
#include "tst_overlaydesktop.moc"
