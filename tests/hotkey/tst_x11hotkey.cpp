#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "OtherXClient.h"
#include "TestSettings.h"

#include <QAbstractNativeEventFilter>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QProcess>
#include <QThread>
#include <QWindow>
#include <QtTest>
#include <X11/keysym.h>
#include <cstdio>
#include <iostream>
#include <string>

namespace {

// Sees every X event before the application: notes markers from OtherXClient
// and counts the raw presses of one keycode that reach a root window.
class EventWatcher : public QAbstractNativeEventFilter {
public:
    explicit EventWatcher(xcb_atom_t markerType) : markerType(markerType) {}

    bool nativeEventFilter(const QByteArray& type, void* message, qintptr*) override {
        if (type != "xcb_generic_event_t")
            return false;
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        const uint8_t kind = event->response_type & ~0x80;
        if (kind == XCB_CLIENT_MESSAGE) {
            const auto* client = reinterpret_cast<const xcb_client_message_event_t*>(event);
            if (client->type != markerType)
                return false;
            lastMarker = client->data.data32[0];
            return true;
        }
        if (kind == XCB_KEY_PRESS) {
            const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event);
            if (key->detail == watchedKeycode && key->event == key->root)
                ++rootPresses;
        }
        return false;
    }

    xcb_atom_t markerType;
    quint32 lastMarker = 0;
    xcb_keycode_t watchedKeycode = 0;
    int rootPresses = 0;
};

// A focused window that keeps what it is typed, as the shortcut recorder would.
class KeyWindow : public QWindow {
public:
    struct Recorded {
        int key;
        quint32 code;
        QString name;
    };
    QList<Recorded> presses;

protected:
    void keyPressEvent(QKeyEvent* event) override {
        static const QList<int> modifierKeys = {Qt::Key_Shift,   Qt::Key_Control, Qt::Key_Alt,
                                                Qt::Key_Meta,    Qt::Key_Super_L, Qt::Key_CapsLock,
                                                Qt::Key_NumLock, Qt::Key_AltGr};
        if (!modifierKeys.contains(event->key()))
            presses.append(
                {event->key(), HotKeyConfig::keyCodeFor(*event), HotKeyConfig::keyNameFor(*event)});
    }
};

HotKeyConfig shortcut(quint32 code,
                      quint32 modifiers = HotKeyConfig::controlKey | HotKeyConfig::optionKey) {
    HotKeyConfig config;
    config.keyCode = code;
    config.modifiers = modifiers;
    return config;
}

constexpr quint32 codeF = 3;
constexpr quint32 codeG = 5;
const uint16_t ctrlAlt = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1;

} // namespace

// The global shortcut on a real X server (Xvfb with openbox): xdotool types
// through XTEST, which triggers passive grabs exactly as a keyboard does, and a
// second X client plays the other programs on the desktop.
class X11HotKeyTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;
    OtherXClient other;
    std::unique_ptr<EventWatcher> watcher;
    QWindow markerWindow;
    quint32 markerSerial = 0;
    int presses = 0;
    bool allOnMainThread = true;
    QStringList keymapRestore;

    HotKeyManager& manager() { return HotKeyManager::shared(); }

    void countPresses() {
        manager().onPress = [this] {
            ++presses;
            allOnMainThread &= QThread::currentThread() == qApp->thread();
        };
    }

    static bool run(const QString& program, const QStringList& arguments) {
        return QProcess::execute(program, arguments) == 0;
    }

    // Returns once every event the server produced so far has been handled and
    // every press it queued has run.
    bool settle() {
        other.sendMarker(markerWindow.winId(), ++markerSerial);
        if (!QTest::qWaitFor([&] { return watcher->lastMarker == markerSerial; }, 10000))
            return false;
        QCoreApplication::sendPostedEvents();
        return true;
    }

    int pressesFrom(const QString& keys) {
        const int before = presses;
        if (!run(QStringLiteral("xdotool"), {QStringLiteral("key"), keys}) || !settle())
            return -1;
        return presses - before;
    }

    // Toggles a lock key and returns the modifier bit it switched.
    uint16_t toggleLock(const QString& key) {
        const uint16_t before = other.modifierState();
        if (!run(QStringLiteral("xdotool"), {QStringLiteral("key"), key}))
            return 0;
        other.sync();
        return before ^ other.modifierState();
    }

    void keymap(const QStringList& changes, const QStringList& restore) {
        keymapRestore = restore + keymapRestore;
        QStringList arguments;
        for (const QString& change : changes)
            arguments << QStringLiteral("-e") << change;
        QVERIFY(run(QStringLiteral("xmodmap"), arguments));
        QVERIFY(settle());
    }

    // A keycode that types nothing, for moving keys around.
    static int freeKeycode() {
        QProcess xmodmap;
        xmodmap.start(QStringLiteral("xmodmap"), {QStringLiteral("-pke")});
        xmodmap.waitForFinished();
        const QStringList lines = QString::fromLatin1(xmodmap.readAllStandardOutput()).split('\n');
        for (const QString& line : lines) {
            const QStringList parts = line.simplified().split(' ');
            if (parts.size() == 3 && parts[2] == QLatin1String("=") && parts[1].toInt() > 90)
                return parts[1].toInt();
        }
        return 0;
    }

    void showFocusedWindow(KeyWindow& window) {
        window.setGeometry(100, 100, 200, 200);
        window.show();
        window.requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(&window));
    }

    static QList<int> keysOf(const KeyWindow& window) {
        QList<int> keys;
        for (const KeyWindow::Recorded& press : window.presses)
            keys.append(press.key);
        return keys;
    }

public:
    static int holdShortcutUntilInput() {
        const bool held = HotKeyManager::shared().registerHotKey(HotKeyConfig::defaultShortcut());
        std::printf("%s\n", held ? "held" : "refused");
        std::fflush(stdout);
        std::string line;
        std::getline(std::cin, line);
        std::_Exit(0); // no clean-up at all: the server must drop the grab by itself
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(other.isConnected());
        markerWindow.create();
        watcher = std::make_unique<EventWatcher>(other.markerAtom());
        // Created before the watcher is installed, so the watcher sees events first.
        manager();
        qApp->installNativeEventFilter(watcher.get());
        QVERIFY(run(QStringLiteral("xset"), {"r", "rate", "200", "40"}));
    }

    void init() {
        settings = std::make_unique<TestSettings>();
        presses = 0;
        allOnMainThread = true;
        countPresses();
    }

    void cleanup() {
        manager().unregister();
        other.ungrabAll();
        if (other.modifierState() & XCB_MOD_MASK_LOCK)
            toggleLock(QStringLiteral("Caps_Lock"));
        if (other.modifierState() & (XCB_MOD_MASK_2 | XCB_MOD_MASK_3))
            toggleLock(QStringLiteral("Num_Lock"));
        if (!keymapRestore.isEmpty()) {
            QStringList arguments;
            for (const QString& change : std::as_const(keymapRestore))
                arguments << QStringLiteral("-e") << change;
            run(QStringLiteral("xmodmap"), arguments);
            keymapRestore.clear();
        }
        QVERIFY(settle());
    }

    void pressRunsOnPressOnceOnTheMainThread() {
        QVERIFY(manager().registerHotKey(HotKeyConfig::current()));
        QVERIFY(manager().isRegistered());
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
        QVERIFY(allOnMainThread);
    }

    void lockKeysDontMatter() {
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        QCOMPARE(toggleLock(QStringLiteral("Caps_Lock")), uint16_t(XCB_MOD_MASK_LOCK));
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
        const uint16_t numLock = toggleLock(QStringLiteral("Num_Lock"));
        QVERIFY(numLock != 0);
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
        QCOMPARE(toggleLock(QStringLiteral("Caps_Lock")), uint16_t(XCB_MOD_MASK_LOCK));
        QCOMPARE(other.modifierState(), numLock);
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
    }

    void onlyTheExactModifiersFire() {
        KeyWindow window;
        showFocusedWindow(window);
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+shift+d")), 0);
        QCOMPARE(pressesFrom(QStringLiteral("d")), 0);
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+d")), 0);
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+super+d")), 0);
        // Those went to the focused window like any other typing...
        QCOMPARE(keysOf(window), QList<int>(4, Qt::Key_D));
        // ...and the shortcut itself does not.
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
        QCOMPARE(window.presses.size(), 4);
        // Typing goes on reaching the window after the shortcut.
        QCOMPARE(pressesFrom(QStringLiteral("x")), 0);
        QCOMPARE(keysOf(window).last(), int(Qt::Key_X));
    }

    void aHeldKeyFiresOnce() {
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        watcher->watchedKeycode = other.keycodeOf(XK_d);
        watcher->rootPresses = 0;
        QVERIFY(run(QStringLiteral("xdotool"), {"keydown", "ctrl+alt+d"}));
        // The server repeats the held key.
        QTRY_VERIFY_WITH_TIMEOUT(watcher->rootPresses >= 4, 10000);
        QVERIFY(run(QStringLiteral("xdotool"), {"keyup", "d", "alt", "ctrl"}));
        QVERIFY(settle());
        QCOMPARE(presses, 1);
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
    }

    void aShortcutHeldElsewhereIsRefused() {
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
        // Ours is taken for every lock combination.
        QVERIFY(!other.grabKey(XK_d, ctrlAlt));
        QVERIFY(!other.grabKey(XK_d, ctrlAlt | XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2));

        QVERIFY(other.grabKey(XK_f, ctrlAlt));
        QVERIFY(!manager().registerHotKey(shortcut(codeF)));
        QVERIFY(!manager().isRegistered());
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 0); // the old one is gone too
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+f")), 0);
        QVERIFY(other.grabKey(XK_d, ctrlAlt));
    }

    void aPartlyHeldShortcutLeavesNothingBehind() {
        // Only one lock combination is taken: whatever was grabbed before the
        // refusal must be given back.
        QVERIFY(other.grabKey(XK_g, ctrlAlt | XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2));
        QVERIFY(!manager().registerHotKey(shortcut(codeG)));
        QVERIFY(!manager().isRegistered());
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+g")), 0);
        QVERIFY(other.grabKey(XK_g, ctrlAlt));
        other.ungrabAll();

        QVERIFY(manager().registerHotKey(shortcut(codeG)));
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+g")), 1);
    }

    void unregisterStopsPresses() {
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
        manager().unregister();
        QVERIFY(!manager().isRegistered());
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 0);
        manager().unregister();
        // Released for every lock combination, at once.
        QVERIFY(other.grabKey(XK_d, ctrlAlt | XCB_MOD_MASK_LOCK));
        other.ungrabAll();

        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
        // Registering another replaces it.
        QVERIFY(manager().registerHotKey(shortcut(codeF)));
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 0);
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+f")), 1);
    }

    void aPressWithoutCallbackIsSwallowed() {
        KeyWindow window;
        showFocusedWindow(window);
        manager().onPress = nullptr;
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 0);
        QVERIFY(window.presses.isEmpty());
        countPresses();
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
        QVERIFY(window.presses.isEmpty());
    }

    // The grab follows the key when the keymap moves it to another keycode.
    void keymapChangesAreFollowed() {
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        const int spare = freeKeycode();
        QVERIFY(spare != 0);
        keymap({QStringLiteral("keycode 40 = NoSymbol"),
                QStringLiteral("keycode %1 = d D").arg(spare)},
               {QStringLiteral("keycode %1 = NoSymbol").arg(spare),
                QStringLiteral("keycode 40 = d D")});
        QCOMPARE(other.keycodeOf(XK_d), xcb_keycode_t(spare));
        QVERIFY(manager().isRegistered());
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
    }

    // Num Lock's modifier bit comes from the modifier map, which can change.
    void numLockOnAnotherModifierBit() {
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        keymap({QStringLiteral("clear mod2"), QStringLiteral("add mod3 = Num_Lock")},
               {QStringLiteral("clear mod3"), QStringLiteral("add mod2 = Num_Lock")});
        QCOMPARE(toggleLock(QStringLiteral("Num_Lock")), uint16_t(XCB_MOD_MASK_3));
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
    }

    // What the recorder gets from real typing; a key outside the table then
    // survives the settings and works as the shortcut.
    void keysAreRecordedFromTheKeyboard() {
        KeyWindow window;
        showFocusedWindow(window);
        const int spare = freeKeycode();
        QVERIFY(spare != 0);
        keymap({QStringLiteral("keycode %1 = eacute Eacute").arg(spare)},
               {QStringLiteral("keycode %1 = NoSymbol").arg(spare)});
        for (const char* keys : {"shift+1", "shift+d", "F5", "Left", "KP_End", "Pause", "eacute"})
            QVERIFY(run(QStringLiteral("xdotool"), {QStringLiteral("key"), keys}));
        QVERIFY(settle());
        const QList<QPair<quint32, QString>> expected = {
            {18, QStringLiteral("1")},        {2, QStringLiteral("D")},
            {96, QStringLiteral("F5")},       {123, QStringLiteral("←")},
            {83, QStringLiteral("1")},        {0x8000ff13, QStringLiteral("Key 2147548947")},
            {0x800000e9, QStringLiteral("É")}};
        QCOMPARE(window.presses.size(), expected.size());
        for (int i = 0; i < expected.size(); ++i) {
            QCOMPARE(window.presses[i].code, expected[i].first);
            QCOMPARE(window.presses[i].name, expected[i].second);
        }

        for (const auto& [index, keys] :
             {std::pair(5, "ctrl+alt+Pause"), std::pair(6, "ctrl+alt+eacute")}) {
            HotKeyConfig recorded = shortcut(window.presses[index].code);
            recorded.keyName = window.presses[index].name;
            recorded.save();
            QCOMPARE(HotKeyConfig::current(), recorded);
            QVERIFY(manager().registerHotKey(HotKeyConfig::current()));
            QCOMPARE(pressesFrom(QString::fromLatin1(keys)), 1);
        }
    }

    void grabsEndWithTheProcess() {
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QUILLERY_TEST_CHILD"), QStringLiteral("hold"));
        child.setProcessEnvironment(env);
        child.start(QCoreApplication::applicationFilePath(), {});
        QVERIFY(child.waitForReadyRead(20000));
        QCOMPARE(child.readLine().trimmed(), QByteArray("held"));

        QVERIFY(!manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        child.write("\n");
        QVERIFY(child.waitForFinished(20000));
        QCOMPARE(child.exitCode(), 0);
        QVERIFY(manager().registerHotKey(HotKeyConfig::defaultShortcut()));
        QCOMPARE(pressesFrom(QStringLiteral("ctrl+alt+d")), 1);
    }
};

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    if (qEnvironmentVariable("QUILLERY_TEST_CHILD") == QLatin1String("hold"))
        return X11HotKeyTest::holdShortcutUntilInput();
    X11HotKeyTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_x11hotkey.moc"
