#include "PortalService.h"
#include "RunningQuillery.h"
#include "StatusNotifierHost.h"

#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace RunningQuillery;

// The real program on a layer-shell Wayland desktop (headless sway with two
// outputs side by side), driven through a virtual pointer and keyboard as a
// user would drive it, and seen through screenshots.
class WaylandTest : public QObject {
    Q_OBJECT

    QProcess quillery;
    QProcess pointer;  // wl-input: one for the whole test
    QProcess keyboard; // holds a keyboard on the seat, so that it has one all along
    // The desktop's global shortcut: a portal on a private session bus.
    QTemporaryDir scratch;
    QProcess bus;
    PortalService portal;
    StatusNotifierHost tray;

    static bool type(const QStringList& arguments) {
        return run(QStringLiteral("wtype"), arguments);
    }
    static QImage screenshot() {
        return QImage::fromData(
            output(QStringLiteral("grim"),
                   {QStringLiteral("-s"), QStringLiteral("1"), QStringLiteral("-")}));
    }

    QByteArray pointerAnswers(const QString& command) {
        pointer.write(command.toUtf8() + '\n');
        while (!pointer.canReadLine())
            if (!pointer.waitForReadyRead(5000))
                return {};
        return pointer.readLine().trimmed();
    }
    bool pointerDoes(const QString& command) { return pointerAnswers(command) == "ok"; }
    // Presses that reached the ordinary window under the overlay.
    QByteArray clicksOnWindow() { return pointerAnswers(QStringLiteral("clicks")); }
    bool drag(QPoint from, QPoint to, int steps = 30) {
        bool ok = pointerDoes(QStringLiteral("move %1 %2").arg(from.x()).arg(from.y())) &&
                  pointerDoes(QStringLiteral("down"));
        for (int i = 1; ok && i <= steps; ++i) {
            const QPoint at = from + (to - from) * i / steps;
            ok = pointerDoes(QStringLiteral("move %1 %2").arg(at.x()).arg(at.y()));
        }
        return ok && pointerDoes(QStringLiteral("up"));
    }

    static int pixels(const QImage& image, QRect area, bool (*colour)(QColor)) {
        int count = 0;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x)
                count += colour(image.pixelColor(x, y)) ? 1 : 0;
        return count;
    }
    static bool red(QColor c) { return c.red() > 200 && c.green() < 110 && c.blue() < 110; }
    // Red seen through, as the highlighter leaves it.
    static bool reddish(QColor c) {
        return c.red() > c.green() + 40 && c.red() > c.blue() + 40 && c.red() < 200;
    }
    static bool blue(QColor c) { return c.blue() > 200 && c.red() < 80 && c.green() < 170; }
    static bool showsOn(QRect area, bool (*colour)(QColor)) {
        return pixels(screenshot(), area, colour) > 0;
    }

private Q_SLOTS:
    void initTestCase() {
        setSetting("fadeSeconds", 0); // ink stays until the end: slow machines look slowly
        setSetting("didShowWelcome", true);
        keyboard.start(QStringLiteral("wtype"), {QStringLiteral("-s"), QStringLiteral("3600000")});
        QTRY_VERIFY_WITH_TIMEOUT(
            output(QStringLiteral("swaymsg"), {"-t", "get_seats"}).contains("\"keyboard\""), 10000);
        pointer.start(qEnvironmentVariable("QUILLERY_WL_INPUT"), {});
        QVERIFY(pointer.waitForReadyRead(10000));
        QCOMPARE(pointer.readLine().trimmed(), "ready");
        // An application window filling the first output, under the overlay.
        QVERIFY(pointerDoes(QStringLiteral("window")));

        const QString address = "unix:path=" + scratch.filePath("bus");
        bus.start("dbus-daemon", {"--session", "--nofork", "--address=" + address});
        QVERIFY(bus.waitForStarted());
        QTRY_VERIFY(QFile::exists(scratch.filePath("bus")));
        QDBusConnection portalBus = QDBusConnection::connectToBus(address, "portal");
        PortalService::registerTypes();
        QVERIFY(portalBus.registerVirtualObject(PortalService::path, &portal,
                                                QDBusConnection::SubPath));
        QVERIFY(portalBus.registerService("org.freedesktop.portal.Desktop"));
        QVERIFY(tray.watch(portalBus));

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DBUS_SESSION_BUS_ADDRESS", address);
        quillery.setProcessEnvironment(environment);
        quillery.setProcessChannelMode(QProcess::ForwardedChannels);
        quillery.start(binary(), {});
        QTRY_COMPARE_WITH_TIMEOUT(status(QStringLiteral("host")), QStringLiteral("wayland"), 10000);
        QCOMPARE(status(QStringLiteral("translucency")), QStringLiteral("yes"));
    }

    void aCompositorBindingStartsDrawing() {
        QVERIFY(run(QStringLiteral("swaymsg"),
                    {QStringLiteral("bindsym Ctrl+Alt+d exec %1 --toggle").arg(binary())}));
        QVERIFY(type({"-M", "ctrl", "-M", "alt", "d", "-m", "alt", "-m", "ctrl"}));
        QTRY_COMPARE(status(QStringLiteral("drawing")), QStringLiteral("on"));
        // The overlay is up once its hint bar shows, with the colour's red dot.
        QTRY_VERIFY_WITH_TIMEOUT(showsOn({0, 0, 1920, 200}, red), 10000);
    }

    void aStrokeCrossesFromOneOutputToTheNext() {
        QVERIFY(drag({1700, 400}, {2300, 400}));
        QTRY_COMPARE(status(QStringLiteral("items")), QStringLiteral("1"));
        QTRY_VERIFY(showsOn({1780, 390, 40, 20}, red) && showsOn({2180, 390, 40, 20}, red));
    }

    void keysChooseToolsColoursAndTypeAccents() {
        QVERIFY(type({QStringLiteral("e")}));
        QTRY_COMPARE(status(QStringLiteral("tool")), QStringLiteral("ellipse"));
        QVERIFY(drag({2100, 250}, {2300, 550}));
        QTRY_VERIFY(showsOn({2190, 245, 20, 10}, red)); // the ellipse's top
        QVERIFY(type({QStringLiteral("h")}));
        QTRY_COMPARE(status(QStringLiteral("tool")), QStringLiteral("highlighter"));
        QVERIFY(drag({2050, 650}, {2450, 650}));
        QTRY_VERIFY(showsOn({2240, 640, 20, 20}, reddish));
        QVERIFY(type({QStringLiteral("4")}));
        QTRY_COMPARE(status(QStringLiteral("color")), QStringLiteral("Blue"));
        QVERIFY(type({QStringLiteral("t")}));
        QTRY_COMPARE(status(QStringLiteral("tool")), QStringLiteral("text"));
        QVERIFY(pointerDoes(QStringLiteral("move 300 700")) &&
                pointerDoes(QStringLiteral("click")));
        QVERIFY(type({QStringLiteral("Café ñ")}));
        QVERIFY(type({QStringLiteral("-k"), QStringLiteral("Return")}));
        QTRY_COMPARE(status(QStringLiteral("items")), QStringLiteral("4"));
        QTRY_VERIFY(showsOn({280, 640, 300, 120}, blue));
    }

    void anOutputAddedWhileDrawingIsCoveredAtOnce() {
        QVERIFY(run(QStringLiteral("swaymsg"), {QStringLiteral("create_output")}));
        QVERIFY(run(QStringLiteral("swaymsg"),
                    {QStringLiteral("output HEADLESS-3 resolution 1280x720 position 0 1080")}));
        QVERIFY(type({QStringLiteral("p")}));
        QTRY_COMPARE(status(QStringLiteral("tool")), QStringLiteral("pen"));
        // Its hint bar, with the colour's blue dot, says its overlay is up.
        QTRY_VERIFY_WITH_TIMEOUT(showsOn({0, 1080, 1280, 150}, blue), 10000);
        QVERIFY(drag({100, 1300}, {600, 1300}));
        QTRY_VERIFY(showsOn({340, 1290, 40, 20}, blue));
    }

    void aScaledOutputShowsTheInkWhereItWasDrawn() {
        QVERIFY(run(QStringLiteral("swaymsg"), {QStringLiteral("output HEADLESS-2 scale 2")}));
        // At scale 2 the output is 640x360 in the layout.
        QVERIFY(drag({2000, 200}, {2400, 200}));
        QTRY_VERIFY(showsOn({2180, 190, 40, 20}, blue));
    }

    void escStopsAndClicksReachTheWindowBelowWhileTheInkShows() {
        QCOMPARE(clicksOnWindow(), "ok 0"); // while drawing, the overlay took every press
        QVERIFY(type({QStringLiteral("-k"), QStringLiteral("Escape")}));
        QTRY_COMPARE(status(QStringLiteral("drawing")), QStringLiteral("off"));
        QVERIFY(pointerDoes(QStringLiteral("move 1000 500")) &&
                pointerDoes(QStringLiteral("click")));
        QCOMPARE(clicksOnWindow(), "ok 1");
        QCOMPARE(status(QStringLiteral("items")), QStringLiteral("6")); // the ink still shows
        // A fade delay set now (the program follows its settings file) lets the ink go.
        setSetting("fadeSeconds", 1);
        QTRY_VERIFY_WITH_TIMEOUT(
            !showsOn({2180, 190, 40, 20}, blue) && !showsOn({1780, 390, 40, 20}, red), 10000);
        QCOMPARE(status(QStringLiteral("items")), QStringLiteral("0"));
    }

    void theCommandLineAndTheBindingStop() {
        QVERIFY(run(binary(), {QStringLiteral("--start")}));
        QTRY_COMPARE(status(QStringLiteral("drawing")), QStringLiteral("on"));
        QVERIFY(run(binary(), {QStringLiteral("--stop")}));
        QTRY_COMPARE(status(QStringLiteral("drawing")), QStringLiteral("off"));
        // Also while the overlay holds the keyboard.
        QVERIFY(run(binary(), {QStringLiteral("--start")}));
        QTRY_VERIFY(showsOn({0, 0, 1920, 200}, blue));
        QVERIFY(type({"-M", "ctrl", "-M", "alt", "d", "-m", "alt", "-m", "ctrl"}));
        QTRY_COMPARE(status(QStringLiteral("drawing")), QStringLiteral("off"));
    }

    // No program may grab keys here: the desktop's portal binds the shortcut
    // (its own choice, the stored one proposed) and its presses toggle.
    void thePortalShortcutStartsAndStops() {
        QTRY_COMPARE(status(QStringLiteral("shortcut")),
                     QStringLiteral("Super+D (bound by the desktop)"));
        QVERIFY(portal.calls.contains(
            "BindShortcuts toggle-drawing CTRL+ALT+d \"Start or stop drawing\""));
        const QDBusConnection portalBus(QStringLiteral("portal"));
        portal.press(portalBus, "toggle-drawing", portal.session);
        QTRY_COMPARE(status(QStringLiteral("drawing")), QStringLiteral("on"));
        QTRY_VERIFY(showsOn({0, 0, 1920, 200}, blue)); // up, with the keyboard
        portal.press(portalBus, "toggle-drawing", portal.session);
        QTRY_COMPARE(status(QStringLiteral("drawing")), QStringLiteral("off"));
    }

    // Never stuck: the tray menu's "Stop Drawing" ends drawing too, as do Esc,
    // the shortcut and the command line above. The menu names the shortcut
    // the desktop bound.
    void theTrayStopsDrawing() {
        QVERIFY(run(binary(), {QStringLiteral("--start")}));
        QTRY_COMPARE(status(QStringLiteral("drawing")), QStringLiteral("on"));
        QVERIFY(tray.click(QStringLiteral("Stop Drawing   (Super+D)")));
        QTRY_COMPARE(status(QStringLiteral("drawing")), QStringLiteral("off"));
    }

    void cleanupTestCase() {
        run(binary(), {QStringLiteral("--quit")});
        quillery.waitForFinished(5000);
        QDBusConnection::disconnectFromBus("portal");
        bus.terminate();
        bus.waitForFinished(5000);
        pointer.closeWriteChannel();
        pointer.waitForFinished(5000);
        keyboard.kill();
        keyboard.waitForFinished(5000);
    }
};

QTEST_GUILESS_MAIN(WaylandTest)
#include "tst_wayland.moc"
