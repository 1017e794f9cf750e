#include "XTestSupport.h"

#include <QSettings>
#include <QtTest>

using namespace XDesktop;

// The real program, started as a user would on a desktop with a window manager,
// a compositor and a panel with a tray, and used through real keys and mouse.
class EndToEndTest : public QObject {
    Q_OBJECT

    QProcess quillery;

    static QString binary() { return qEnvironmentVariable("QUILLERY_BINARY"); }
    static QString setting(const QString& key) {
        const QString file = qEnvironmentVariable("XDG_CONFIG_HOME") + "/Quillery/Quillery.conf";
        return QSettings(file, QSettings::IniFormat).value(key).toString();
    }
    // The screen above the panel.
    static int ink(bool (*colour)(QColor)) { return countPixels(colour, QRect(0, 0, 1920, 1040)); }
    static bool inkShows(bool (*colour)(QColor)) {
        return XDesktop::inkShows(colour, QRect(0, 0, 1920, 1040));
    }
    void drawStroke(int y) {
        QVERIFY(drag({{400, y}, {500, y + 40}, {650, y + 80}, {800, y + 100}}));
    }
    // Opens the tray menu with a right click on the icon, then types the keys.
    static bool inTrayMenu(const QString& keys) {
        const QPoint icon = trayIcon().center();
        return xdotool(QStringLiteral("mousemove %1 %2 click 3 sleep 0.4 key %3")
                           .arg(icon.x())
                           .arg(icon.y())
                           .arg(keys));
    }

private Q_SLOTS:
    void withoutADisplayItSaysSoAndExits() {
        QProcess headless;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            environment.remove(name);
        headless.setProcessEnvironment(environment);
        headless.start(binary(), {});
        QVERIFY(headless.waitForFinished(10000));
        QCOMPARE(headless.exitCode(), 1);
        QCOMPARE(headless.readAllStandardError(),
                 "Quillery needs a graphical desktop (X11) to run: no DISPLAY is set.\n");
    }

    void firstLaunchShowsTheWelcomeWindow() {
        QSettings(qEnvironmentVariable("XDG_CONFIG_HOME") + "/Quillery/Quillery.conf",
                  QSettings::IniFormat)
            .setValue("fadeSeconds", 1); // shorter than any menu choice, to keep the test quick
        quillery.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        quillery.start(binary(), {});
        QTRY_COMPARE_WITH_TIMEOUT(windowsNamed("^Welcome to Quillery$").size(), 1, 10000);
        QCOMPARE(setting("didShowWelcome"), QStringLiteral("true"));
        QVERIFY(xdotool("windowactivate --sync " + windowsNamed("^Welcome to Quillery$").first() +
                        " key Return"));
        QTRY_VERIFY(windowsNamed("^Welcome to Quillery$").isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(!trayIcon().isNull(), 10000);
    }

    void shortcutStartsDrawingAndKeysChooseTheColour() {
        QCOMPARE(ink(isRed), 0);
        QVERIFY(xdotool("key ctrl+alt+d"));
        QTRY_VERIFY(overlayIsUp());
        drawStroke(300);
        QVERIFY(inkShows(isRed));
        QVERIFY(xdotool("key 2"));
        drawStroke(600);
        QVERIFY(inkShows(isYellow));
    }

    void escapeStopsAndTheInkFadesAway() {
        QVERIFY(xdotool("key Escape"));
        // After fadeSeconds (1) and the fade itself (0.8 s) nothing is left.
        QTRY_COMPARE_WITH_TIMEOUT(ink(isRed) + ink(isYellow), 0, 10000);
        QTRY_VERIFY(!overlayIsUp());
        QCOMPARE(quillery.state(), QProcess::Running);
    }

    void trayMenuChoosesTheFadeDelayAndStartsDrawing() {
        // "Fade after", the third item; its second choice, "2 seconds".
        QVERIFY(inTrayMenu("Down Down Down Right sleep 0.2 key Down Return"));
        QTRY_COMPARE(setting("fadeSeconds"), QStringLiteral("2"));
        QVERIFY(!overlayIsUp());
        QVERIFY(inTrayMenu("Down Return")); // "Start Drawing"
        QTRY_VERIFY(overlayIsUp());
        drawStroke(450);
        QVERIFY(inkShows(isYellow)); // the colour chosen earlier
        QVERIFY(xdotool("key ctrl+alt+d"));
        QTRY_VERIFY_WITH_TIMEOUT(!overlayIsUp(), 6000);
        QCOMPARE(ink(isYellow), 0);
    }

    void leftClickOpensTheMenuAndQuitEndsTheProgram() {
        const QRect icon = trayIcon();
        const auto menuIsOpen = [&] {
            for (const QRect& window : programWindows())
                if (window != icon && window.height() > 100 && window.height() < 1080)
                    return true;
            return false;
        };
        QVERIFY(!menuIsOpen());
        QVERIFY(xdotool(QStringLiteral("mousemove %1 %2 click 1")
                            .arg(icon.center().x())
                            .arg(icon.center().y())));
        QTRY_VERIFY(menuIsOpen());
        QVERIFY(xdotool("key Escape"));
        QTRY_VERIFY(!menuIsOpen());

        // With ink still fading on the click-through overlay, so that quitting
        // also takes the overlay down.
        QVERIFY(xdotool("key ctrl+alt+d"));
        QTRY_VERIFY(overlayIsUp());
        drawStroke(500);
        QVERIFY(xdotool("key Escape"));
        QVERIFY(inkShows(isYellow));
        QVERIFY(overlayIsUp());
        QVERIFY(inTrayMenu("Up Return")); // "Quit Quillery", the last item
        QVERIFY(quillery.waitForFinished(10000));
        QCOMPARE(quillery.exitStatus(), QProcess::NormalExit);
        QCOMPARE(quillery.exitCode(), 0);
        QTRY_VERIFY(!overlayIsUp());
        QCOMPARE(ink(isYellow), 0);
    }

    void cleanupTestCase() {
        quillery.terminate();
        quillery.waitForFinished(5000);
    }
};

QTEST_MAIN(EndToEndTest)
#include "tst_endtoend.moc"
