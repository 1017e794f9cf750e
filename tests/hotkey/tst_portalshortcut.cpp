#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "PortalHotKeyBackend.h"
#include "PortalService.h"

#include <QDBusConnection>
#include <QTemporaryDir>
#include <QtTest>

// The portal's global shortcut against a small portal on a private session bus.
class PortalShortcutTest : public QObject {
    Q_OBJECT

    QTemporaryDir scratch;
    QProcess daemon;
    QString address;
    PortalService portal;
    int presses = 0;

    static HotKeyManager& manager() { return HotKeyManager::shared(); }
    // A fresh program's connection, with the portal's global shortcut installed.
    void installBackend(const QString& name) {
        manager().setBackend(
            std::make_unique<PortalHotKeyBackend>(QDBusConnection::connectToBus(address, name),
                                                  HotKeyManager::pressed, HotKeyManager::changed));
    }
    void press(const QString& id, const QString& session) {
        portal.press(QDBusConnection(QStringLiteral("portal")), id, session);
    }

private Q_SLOTS:
    void initTestCase() {
        address = "unix:path=" + scratch.filePath("bus");
        daemon.start("dbus-daemon", {"--session", "--nofork", "--address=" + address});
        QVERIFY(daemon.waitForStarted());
        QTRY_VERIFY(QFile::exists(scratch.filePath("bus")));
        QDBusConnection bus = QDBusConnection::connectToBus(address, "portal");
        PortalService::registerTypes();
        QVERIFY(bus.registerVirtualObject(PortalService::path, &portal, QDBusConnection::SubPath));
        QVERIFY(bus.registerService("org.freedesktop.portal.Desktop"));
        manager().onPress = [this] { ++presses; };
    }
    void cleanupTestCase() {
        manager().setBackend(nullptr);
        for (const char* name : {"portal", "first"})
            QDBusConnection::disconnectFromBus(name);
        daemon.terminate();
        daemon.waitForFinished();
    }

    void theDesktopBindsItsOwnChoiceAndSaysWhenItIsPressed() {
        installBackend("first");
        QVERIFY(manager().isDecidedByDesktop());
        int answers = 0; // the tray menu and the Settings window follow each
        manager().onChange = [&answers] { ++answers; };
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        QTRY_COMPARE(answers, 1);
        QVERIFY(manager().isRegistered());
        manager().onChange = nullptr;
        QCOMPARE(portal.calls,
                 QStringList({"CreateSession", "BindShortcuts toggle-drawing CTRL+ALT+d "
                                               "\"Start or stop drawing\""}));

        // Another shortcut, or another program's session, is not ours.
        press("something-else", portal.session);
        press("toggle-drawing", PortalService::path + QStringLiteral("/session/other/s"));
        press("toggle-drawing", portal.session);
        QTRY_COMPARE(presses, 1);

        // A new shortcut from the Settings window is proposed to the desktop:
        // the session ends and a new one binds the new trigger.
        portal.calls.clear();
        const QString first = portal.session;
        QVERIFY(manager().registerHotKey(HotKeyConfig{96, 0x1200, "F5"}));
        QTRY_COMPARE(portal.calls.size(), 3);
        QCOMPARE(portal.calls,
                 QStringList({"Close " + first.section(u'/', -1), "CreateSession",
                              "BindShortcuts toggle-drawing CTRL+SHIFT+F5 \"Start or stop "
                              "drawing\""}));
        QTRY_VERIFY(manager().isRegistered());
        press("toggle-drawing", first);
        press("toggle-drawing", portal.session);
        QTRY_COMPARE(presses, 2);

        manager().unregister();
        QVERIFY(!manager().isRegistered());
        QTRY_COMPARE(portal.calls.last(), "Close " + portal.session.section(u'/', -1));
    }
};

QTEST_GUILESS_MAIN(PortalShortcutTest)
#include "tst_portalshortcut.moc"
