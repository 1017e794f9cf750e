#include "WaylandDesktop.h"

#include <QDBusInterface>
#include <QDBusReply>
#include <QtTest>

using namespace RunningQuillery;

// The real program on GNOME's compositor (headless mutter), which offers no
// layer shell, so the overlay is an X11 window through XWayland. A native
// Wayland window fills the screen under it and counts the presses and keys
// it gets. Mutter takes input here only through its remote-desktop interface.
class GnomeTest : public WaylandDesktop {
    Q_OBJECT

    std::unique_ptr<QDBusInterface> remote;

    bool send(const char* method, const QVariantList& arguments) {
        return remote->callWithArgumentList(QDBus::Block, method, arguments).type() ==
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

private Q_SLOTS:
    void initTestCase() {
        QDBusInterface desktop("org.gnome.Mutter.RemoteDesktop", "/org/gnome/Mutter/RemoteDesktop",
                               "org.gnome.Mutter.RemoteDesktop");
        const QDBusReply<QDBusObjectPath> session = desktop.call("CreateSession");
        QVERIFY2(session.isValid(), qPrintable(session.error().message()));
        remote = std::make_unique<QDBusInterface>("org.gnome.Mutter.RemoteDesktop",
                                                  session.value().path(),
                                                  "org.gnome.Mutter.RemoteDesktop.Session");
        QVERIFY(send("Start", {}));
        // The seat has a pointer and a keyboard once each has been used.
        QVERIFY(move(-4000, -4000) && move(300, 300) && key(0xffe1 /* Shift_L */));
        QVERIFY(start());
        // Focused once mutter has shown it.
        QTRY_VERIFY(key('a') && windowCount("keys") > 0);
        QTRY_COMPARE_WITH_TIMEOUT(status("host"), "x11", 10000);
        QTRY_COMPARE(status("shortcut"), "Super+D (bound by the desktop)");
    }

    void theOverlayIsAboveTheWindowWithTheKeyboard() {
        const int keysBefore = windowCount("keys");
        QVERIFY(command("--toggle"));
        QTRY_COMPARE(status("drawing"), "on");
        QVERIFY(button(true) && move(40, 10) && move(40, 10) && move(40, 10) && button(false));
        QTRY_COMPARE(status("items"), "1");
        QTRY_VERIFY(key('2') && status("color") == "Yellow");
        QCOMPARE(windowCount("clicks"), 0);
        QCOMPARE(windowCount("keys"), keysBefore);
    }

    // Never stuck: each way out gives the keyboard and the pointer back to
    // the window below, while the ink stays on screen.
    void everyWayOutGivesInputBack_data() {
        QTest::addColumn<QString>("start"); // the way out is the row's name
        QTest::addColumn<uint>("colourKey");
        QTest::addColumn<QString>("colour");
        QTest::newRow("Esc") << QString() << uint('3') << "Green";
        QTest::newRow("shortcut") << "--start" << uint('4') << "Blue";
        QTest::newRow("tray") << "shortcut" << uint('5') << "White";
        QTest::newRow("--stop") << "--start" << uint('6') << "Black";
    }
    void everyWayOutGivesInputBack() {
        QFETCH(QString, start);
        const QString stop = QTest::currentDataTag();
        QFETCH(uint, colourKey);
        QFETCH(QString, colour);
        if (!start.isEmpty())
            QVERIFY(toggleBy(start));
        QTRY_COMPARE(status("drawing"), "on");
        // Taken by the overlay once it has the keyboard.
        QTRY_VERIFY(key(colourKey) && status("color") == colour);
        const int clicks = windowCount("clicks");
        const int keys = windowCount("keys");
        QVERIFY(stop == "Esc" ? key(0xff1b) : toggleBy(stop));
        QTRY_COMPARE(status("drawing"), "off");
        QVERIFY(button(true) && button(false));
        QTRY_VERIFY(key('a') && windowCount("keys") > keys);
        QTRY_COMPARE(windowCount("clicks"), clicks + 1);
        QCOMPARE(status("items"), "1");
    }
};

QTEST_GUILESS_MAIN(GnomeTest)
#include "tst_gnome.moc"
