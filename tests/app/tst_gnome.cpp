#include "PortalService.h"
#include "RunningQuillery.h"
#include "StatusNotifierHost.h"

#include <QDBusInterface>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QtTest>

using namespace RunningQuillery;

// The real program on GNOME's compositor (headless mutter), which offers no
// layer shell, so the overlay is an X11 window through XWayland. A native
// Wayland window fills the screen under it and counts the presses and keys
// it gets. Mutter takes input here only through its remote-desktop interface.
class GnomeTest : public QObject {
    Q_OBJECT

    QProcess quillery;
    QProcess window; // wl-input
    std::unique_ptr<QDBusInterface> input;
    PortalService portal;
    StatusNotifierHost tray;

    bool send(const char* method, const QVariantList& arguments) {
        return input->callWithArgumentList(QDBus::Block, method, arguments).type() ==
               QDBusMessage::ReplyMessage;
    }
    bool key(uint keysym) {
        return send("NotifyKeyboardKeysym", {keysym, true}) &&
               send("NotifyKeyboardKeysym", {keysym, false});
    }
    bool button(bool pressed) {
        return send("NotifyPointerButton", {0x110 /* BTN_LEFT */, pressed});
    }
    bool move(double dx, double dy) { return send("NotifyPointerMotionRelative", {dx, dy}); }
    bool stroke() {
        return button(true) && move(40, 10) && move(40, 10) && move(40, 10) && button(false);
    }
    bool click() { return button(true) && button(false); }
    // What the native window received so far ("clicks" or "keys").
    int windowCount(const QByteArray& what) {
        window.write(what + '\n');
        while (!window.canReadLine())
            if (!window.waitForReadyRead(5000))
                return -1;
        const QByteArray answer = window.readLine().trimmed();
        return answer.startsWith("ok ") ? answer.mid(3).toInt() : -1;
    }

private Q_SLOTS:
    void initTestCase() {
        QDBusInterface desktop("org.gnome.Mutter.RemoteDesktop", "/org/gnome/Mutter/RemoteDesktop",
                               "org.gnome.Mutter.RemoteDesktop");
        const QDBusReply<QDBusObjectPath> session = desktop.call("CreateSession");
        QVERIFY2(session.isValid(), qPrintable(session.error().message()));
        input = std::make_unique<QDBusInterface>("org.gnome.Mutter.RemoteDesktop",
                                                 session.value().path(),
                                                 "org.gnome.Mutter.RemoteDesktop.Session");
        QVERIFY(send("Start", {}));
        // The seat has a pointer and a keyboard once each has been used.
        QVERIFY(move(-4000, -4000) && move(300, 300) && key(0xffe1 /* Shift_L */));

        window.start(qEnvironmentVariable("QUILLERY_WL_INPUT"), {});
        QVERIFY(window.waitForReadyRead(10000));
        QCOMPARE(window.readLine().trimmed(), "ready");
        window.write("window\n");
        QVERIFY(window.waitForReadyRead(10000));
        QCOMPARE(window.readLine().trimmed(), "ok");
        // Focused once mutter has shown it.
        QTRY_VERIFY(key('a') && windowCount("keys") > 0);

        PortalService::registerTypes();
        QDBusConnection bus = QDBusConnection::sessionBus();
        QVERIFY(bus.registerVirtualObject(PortalService::path, &portal, QDBusConnection::SubPath));
        QVERIFY(bus.registerService("org.freedesktop.portal.Desktop"));
        QVERIFY(tray.watch(bus));

        setSetting("fadeSeconds", 0); // the ink stays under the clicks that pass through
        setSetting("didShowWelcome", true);
        quillery.setProcessChannelMode(QProcess::ForwardedChannels);
        quillery.start(binary(), {});
        QTRY_COMPARE_WITH_TIMEOUT(status("host"), QStringLiteral("x11"), 10000);
        QTRY_COMPARE(status("shortcut"), QStringLiteral("Super+D (bound by the desktop)"));
    }

    void theOverlayIsAboveTheWindowWithTheKeyboard() {
        const int keysBefore = windowCount("keys");
        QVERIFY(command("--toggle"));
        QTRY_COMPARE(status("drawing"), QStringLiteral("on"));
        QVERIFY(stroke());
        QTRY_COMPARE(status("items"), QStringLiteral("1"));
        QTRY_VERIFY(key('2') && status("color") == "Yellow");
        QCOMPARE(windowCount("clicks"), 0);
        QCOMPARE(windowCount("keys"), keysBefore);
    }

    // Never stuck: each way out gives the keyboard and the pointer back to
    // the window below, while the ink stays on screen.
    void everyWayOutGivesInputBack_data() {
        QTest::addColumn<QString>("way");
        QTest::addColumn<uint>("colourKey");
        QTest::addColumn<QString>("colour");
        QTest::newRow("Esc") << "Esc" << uint('3') << "Green";
        QTest::newRow("shortcut") << "shortcut" << uint('4') << "Blue";
        QTest::newRow("tray") << "tray" << uint('5') << "White";
        QTest::newRow("--stop") << "--stop" << uint('6') << "Black";
    }
    void everyWayOutGivesInputBack() {
        QFETCH(QString, way);
        QFETCH(uint, colourKey);
        QFETCH(QString, colour);
        if (status("drawing") == "off")
            QVERIFY(command("--start"));
        // Taken by the overlay once it has the keyboard.
        QTRY_VERIFY(key(colourKey) && status("color") == colour);
        const int clicks = windowCount("clicks");
        const int keys = windowCount("keys");

        if (way == "Esc")
            QVERIFY(key(0xff1b));
        else if (way == "shortcut")
            portal.press(QDBusConnection::sessionBus(), "toggle-drawing", portal.session);
        else if (way == "tray")
            QVERIFY(tray.click(QStringLiteral("Stop Drawing   (Super+D)")));
        else
            QVERIFY(command(way));
        QTRY_COMPARE(status("drawing"), QStringLiteral("off"));
        QVERIFY(click());
        QTRY_VERIFY(key('a') && windowCount("keys") > keys);
        QTRY_COMPARE(windowCount("clicks"), clicks + 1);
        QCOMPARE(status("items"), QStringLiteral("1"));
    }

    void theShortcutStartsDrawing() {
        portal.press(QDBusConnection::sessionBus(), "toggle-drawing", portal.session);
        QTRY_COMPARE(status("drawing"), QStringLiteral("on"));
        QVERIFY(key(0xff1b));
        QTRY_COMPARE(status("drawing"), QStringLiteral("off"));
    }

    void cleanupTestCase() {
        command("--quit");
        quillery.waitForFinished(5000);
        window.closeWriteChannel();
        window.waitForFinished(5000);
    }
};

QTEST_GUILESS_MAIN(GnomeTest)
#include "tst_gnome.moc"
