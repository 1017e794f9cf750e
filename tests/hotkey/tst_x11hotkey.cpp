#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "TestSettings.h"
#include "XTestSupport.h"

#include <QAbstractNativeEventFilter>
#include <QGuiApplication>
#include <QWindow>
#include <QtTest>
#include <X11/keysym.h>

// Sees every X event before the application: notes the other client's markers
// and counts the raw presses of one keycode that reach a root window.
class EventWatcher : public QAbstractNativeEventFilter {
public:
    bool nativeEventFilter(const QByteArray&, void* message, qintptr*) override {
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event);
        const auto* client = reinterpret_cast<const xcb_client_message_event_t*>(event);
        const bool marker =
            (event->response_type & ~0x80) == XCB_CLIENT_MESSAGE && client->type == markerType;
        if (marker)
            lastMarker = client->data.data32[0];
        else if ((event->response_type & ~0x80) == XCB_KEY_PRESS && key->event == key->root)
            rootPresses += key->detail == watchedKeycode;
        return marker;
    }
    xcb_atom_t markerType = XCB_ATOM_NONE;
    quint32 lastMarker = 0;
    xcb_keycode_t watchedKeycode = 0;
    int rootPresses = 0;
};

// The global shortcut on a real X server: xdotool types through XTEST, which
// triggers passive grabs as a keyboard does, and a second X client plays the
// other programs on the desktop.
class X11HotKeyTest : public QObject {
    Q_OBJECT

    static constexpr uint16_t ctrlAlt = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1;
    std::unique_ptr<TestSettings> settings;
    OtherXClient other;
    EventWatcher watcher;
    QWindow markerWindow;
    quint32 markerSerial = 0;
    int presses = 0;
    QStringList keymapRestore;

    static HotKeyManager& manager() { return HotKeyManager::shared(); }
    const HotKeyConfig ctrlAltF{3, HotKeyConfig::controlKey | HotKeyConfig::optionKey, {}};

    // Returns once every event the server produced so far has been handled and
    // every press it queued has run.
    bool settle() {
        other.sendMarker(markerWindow.winId(), ++markerSerial);
        const bool seen =
            QTest::qWaitFor([&] { return watcher.lastMarker == markerSerial; }, 10000);
        QCoreApplication::sendPostedEvents();
        return seen;
    }
    int pressesFrom(const QString& keys) {
        const int before = presses;
        return XDesktop::xdotool("key " + keys) && settle() ? presses - before : -1;
    }
    // Toggles a lock key and returns the modifier bit it switched.
    uint16_t toggleLock(const QString& key) {
        const uint16_t before = other.modifierState();
        XDesktop::xdotool("key " + key);
        other.sync();
        return before ^ other.modifierState();
    }
    void changeKeymap(const QStringList& changes, const QStringList& restore) {
        keymapRestore = restore + keymapRestore;
        QStringList arguments;
        for (const QString& change : changes)
            arguments << "-e" << change;
        QVERIFY(RunningQuillery::run("xmodmap", arguments) && settle());
    }
    // A keycode that types nothing, for moving keys around.
    static int spareKeycode() {
        for (const QByteArray& line : RunningQuillery::output("xmodmap", {"-pke"}).split('\n'))
            if (const QList<QByteArray> parts = line.simplified().split(' ');
                parts.size() == 3 && parts[2] == "=" && parts[1].toInt() > 90)
                return parts[1].toInt();
        return 0;
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(other.isConnected());
        markerWindow.create();
        watcher.markerType = other.markerAtom;
        manager(); // its filter first, so the watcher sees events before it
        QCoreApplication::instance()->installNativeEventFilter(&watcher);
        QVERIFY(RunningQuillery::run("xset", {"r", "rate", "200", "40"}));
    }
    void init() {
        settings = std::make_unique<TestSettings>();
        presses = 0;
        manager().onPress = [this] { ++presses; };
    }
    void cleanup() {
        manager().unregister();
        other.ungrabAll();
        if (other.modifierState() & XCB_MOD_MASK_LOCK)
            toggleLock("Caps_Lock");
        if (other.modifierState() & (XCB_MOD_MASK_2 | XCB_MOD_MASK_3))
            toggleLock("Num_Lock");
        if (const QStringList restore = std::exchange(keymapRestore, {}); !restore.isEmpty())
            changeKeymap(restore, {});
        QVERIFY(settle());
    }

    void pressesArriveOnceWhateverTheLocks() {
        QVERIFY(manager().registerHotKey(HotKeyConfig::current()));
        for (const char* lock : {"", "Caps_Lock", "Num_Lock", "Caps_Lock"}) {
            QVERIFY(!*lock || toggleLock(lock) != 0);
            QCOMPARE(pressesFrom("ctrl+alt+d"), 1);
        }
        QCOMPARE(pressesFrom("ctrl+alt+shift+d d ctrl+d ctrl+alt+super+d"), 0);

        // A held key repeats at the server, but counts once.
        watcher.watchedKeycode = other.keycodeOf(XK_d);
        QVERIFY(XDesktop::xdotool("keydown ctrl+alt+d"));
        QTRY_VERIFY_WITH_TIMEOUT(watcher.rootPresses >= 4, 10000);
        QVERIFY(XDesktop::xdotool("keyup d alt ctrl") && settle());
        QCOMPARE(presses, 5);
    }

    void aShortcutHeldElsewhereIsRefusedAndLeavesNothing() {
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        QVERIFY(!other.grabKey(XK_d, ctrlAlt)); // ours, for every lock combination
        QVERIFY(!other.grabKey(XK_d, ctrlAlt | XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2));
        // Only one lock combination of F is taken: what was grabbed before the
        // refusal is given back, and the old shortcut is gone too.
        QVERIFY(other.grabKey(XK_f, ctrlAlt | XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2));
        QVERIFY(!manager().registerHotKey(ctrlAltF));
        QVERIFY(!manager().isRegistered());
        QVERIFY(other.grabKey(XK_f, ctrlAlt) && other.grabKey(XK_d, ctrlAlt));
        other.ungrabAll();

        QVERIFY(manager().registerHotKey(ctrlAltF));
        QCOMPARE(pressesFrom("ctrl+alt+f"), 1);
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut())); // replaces it
        QCOMPARE(pressesFrom("ctrl+alt+f ctrl+alt+d"), 1);
        manager().unregister();
        QCOMPARE(pressesFrom("ctrl+alt+d"), 0);
        QVERIFY(other.grabKey(XK_d, ctrlAlt | XCB_MOD_MASK_LOCK)); // released at once
    }

    // The grab follows the key to another keycode, and Num Lock to another modifier bit.
    void keymapChangesAreFollowed() {
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        const int spare = spareKeycode();
        QVERIFY(spare != 0);
        changeKeymap({"keycode 40 = NoSymbol", QStringLiteral("keycode %1 = d D").arg(spare)},
                     {QStringLiteral("keycode %1 = NoSymbol").arg(spare), "keycode 40 = d D"});
        QCOMPARE(other.keycodeOf(XK_d), xcb_keycode_t(spare));
        QCOMPARE(pressesFrom("ctrl+alt+d"), 1);
        changeKeymap({"clear mod2", "add mod3 = Num_Lock"}, {"clear mod3", "add mod2 = Num_Lock"});
        QCOMPARE(toggleLock("Num_Lock"), uint16_t(XCB_MOD_MASK_3));
        QCOMPARE(pressesFrom("ctrl+alt+d"), 1);
    }
};

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    X11HotKeyTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_x11hotkey.moc"
