#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "TestSettings.h"
#include "XTestSupport.h"

#include <QAbstractNativeEventFilter>
#include <QGuiApplication>
#include <QKeyEvent>
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
// other programs on the desktop. Last, what the recorder makes of key events.
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

    // What the shortcut recorder stores for a key event: the key code, its name
    // and the modifiers.
    void keyEventsRecorded_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<quint32>("keysym");
        QTest::addColumn<quint32>("code");
        QTest::addColumn<QString>("name");
        QTest::addColumn<quint32>("carbon");
        const int keypad = Qt::KeypadModifier | Qt::GroupSwitchModifier;
        const int all =
            Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier | Qt::MetaModifier;
        const auto row = [](const char* tag, int key, int modifiers, quint32 keysym, quint32 code,
                            const char* name, quint32 carbon = 0) {
            QTest::newRow(tag) << key << modifiers << keysym << code << QString(name) << carbon;
        };
        row("left", Qt::Key_Left, Qt::AltModifier, XK_Left, 123, "←", 0x800);
        row("backspace", Qt::Key_Backspace, Qt::MetaModifier, XK_BackSpace, 51, "Delete", 0x100);
        row("shifted D", Qt::Key_D, Qt::ControlModifier | Qt::ShiftModifier, XK_D, 2, "D", 0x1200);
        row("keypad 1 without Num Lock", Qt::Key_End, keypad, XK_KP_End, 83, "1");
        row("e acute, outside the table", Qt::Key_Eacute, 0, XK_eacute, 0x800000e9, "É");
        row("Cyrillic as a Unicode keysym", 0x412, 0, 0x1000432, 0x800006d7, "В");
        row("no keysym", Qt::Key_A, all, 0, 0, "A", 0x1B00);
    }
    void keyEventsRecorded() {
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(quint32, keysym);
        QFETCH(quint32, code);
        QFETCH(QString, name);
        QFETCH(quint32, carbon);
        const QKeyEvent event(QEvent::KeyPress, key, Qt::KeyboardModifiers(modifiers), 0, keysym,
                              0);
        QCOMPARE(HotKeyConfig::keyCodeFor(event), code);
        QCOMPARE(HotKeyConfig::keyNameFor(event), name);
        QCOMPARE(HotKeyConfig::carbonModifiers(event.modifiers()), carbon);
    }
};

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    X11HotKeyTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_x11hotkey.moc"
