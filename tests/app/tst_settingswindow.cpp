#include "AppDelegate.h"
#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "NotificationCounter.h"
#include "Settings.h"
#include "SettingsWindow.h"
#include "ShortcutRecorder.h"
#include "TestSettings.h"
#include "XTestSupport.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QtTest>
#include <X11/keysym.h>

// The Settings window on a real X server with the real global hot key: what the
// user sees in it, and the recorder driven by key presses.
class SettingsWindowTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<AppDelegate> delegate;
    SettingsWindow* window = nullptr;
    int presses = 0;

    const QString hint = "Use at least one of Ctrl, Alt or Super. Esc cancels.";
    const QString addModifier = "Add Ctrl, Alt or Super to the shortcut.";

    QString button() const { return window->shortcutButton()->text(); }
    QString caption() const { return window->captionLabel()->text(); }
    bool recording() const { return window->recorder().isRecording(); }
    static bool registered() { return HotKeyManager::shared().isRegistered(); }
    void openWindow() {
        delegate->showSettings();
        window = delegate->settingsWindow();
        QVERIFY(window && QTest::qWaitForWindowActive(window));
    }
    void clickShortcutButton() { QTest::mouseClick(window->shortcutButton(), Qt::LeftButton); }
    // The shortcut in force reaches the program: a real press from the X server arrives.
    void expectShortcutWorks(const QString& keys) {
        const int before = presses;
        QVERIFY(XDesktop::xdotool("key " + keys));
        QTRY_COMPARE(presses, before + 1);
    }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();
        Settings::shared().setDidShowWelcome(true);
        delegate = std::make_unique<AppDelegate>();
        delegate->applicationDidFinishLaunching();
        HotKeyManager::shared().onPress = [this] { ++presses; };
        presses = 0;
        openWindow();
    }
    void cleanup() {
        delegate.reset();
        HotKeyManager::shared().unregister();
    }

    void showsTheStoredSettingsAndStoresChanges() {
        QCOMPARE(window->windowTitle(), QStringLiteral("Quillery Settings"));
        QCOMPARE(window->width(), 400);
        QCOMPARE(button(), QStringLiteral("Ctrl+Alt+D"));
        QCOMPARE(caption(), hint);
        QCOMPARE(window->fadeComboBox()->currentText(), QStringLiteral("4 seconds"));
        QVERIFY(window->hintBarCheckBox()->isChecked());

        NotificationCounter repaints(drawingStoreChanged);
        window->fadeComboBox()->setFocus();
        QTest::keyClick(window->fadeComboBox(), Qt::Key_Down);
        QCOMPARE(Settings::shared().fadeSeconds(), 8.0);
        QCOMPARE(repaints.count, 0);
        QTest::mouseClick(window->hintBarCheckBox(), Qt::LeftButton);
        QVERIFY(Settings::shared().contains(Settings::Key::hudVisible) &&
                !Settings::shared().hudVisible());

        // Reopening brings back the same window, showing what is stored by then.
        window->close();
        Settings::shared().setFadeSeconds(2.5);
        Settings::shared().setHudVisible(true);
        SettingsWindow* first = window;
        openWindow();
        delegate->showSettings();
        QCOMPARE(delegate->settingsWindow(), first);
        int shown = 0;
        for (QWidget* widget : QApplication::topLevelWidgets())
            shown += qobject_cast<SettingsWindow*>(widget) && widget->isVisible();
        QCOMPARE(shown, 1);
        QCOMPARE(window->fadeComboBox()->currentIndex(), -1);
        QVERIFY(window->hintBarCheckBox()->isChecked());

        // Changes made elsewhere while it is open show at once.
        Settings::shared().setFadeSeconds(0);
        QCOMPARE(window->fadeComboBox()->currentText(), QStringLiteral("Never"));
        Settings::shared().setHudVisible(false);
        QVERIFY(!window->hintBarCheckBox()->isChecked());
    }

    // A key named "&" shows as itself, not as a mnemonic underlining nothing.
    void anAmpersandKeyShowsAsItself() {
        delegate.reset();
        HotKeyConfig{96, 0x1300, QStringLiteral("&")}.save();
        delegate = std::make_unique<AppDelegate>();
        delegate->applicationDidFinishLaunching();
        openWindow();
        QCOMPARE(button(), QStringLiteral("Ctrl+Shift+Super+&&")); // shown as one "&"
    }

    void recorderRefusesKeysWithoutControlOptionOrCommand() {
        QVERIFY(registered());
        clickShortcutButton();
        QVERIFY(recording() && !registered());
        QCOMPARE(button(), QStringLiteral("Press new shortcut…"));
        QTest::keyClick(window, Qt::Key_Shift, Qt::ShiftModifier); // the start of a combination
        QCOMPARE(caption(), hint);
        for (Qt::KeyboardModifier modifier : {Qt::NoModifier, Qt::ShiftModifier}) {
            QTest::keyClick(window, Qt::Key_K, modifier);
            QCOMPARE(caption(), addModifier);
            QVERIFY(recording());
        }
        // Escape cancels even with modifiers held, and leaves the message as it was.
        QTest::keyClick(window, Qt::Key_Escape, Qt::ControlModifier | Qt::AltModifier);
        QVERIFY(!recording());
        QCOMPARE(caption(), addModifier);
        QCOMPARE(button(), QStringLiteral("Ctrl+Alt+D"));
        QVERIFY(!Settings::shared().contains(Settings::Key::hotKeyCode));
        expectShortcutWorks("ctrl+alt+d");
        // A fresh start clears the message; the button ends a recording too.
        clickShortcutButton();
        QCOMPARE(caption(), hint);
        clickShortcutButton();
        QVERIFY(!recording() && registered());
    }

    void recorderTakesARealCombination() {
        clickShortcutButton();
        // The shortcut in force is heard by the recorder now, not by the hot key.
        QVERIFY(XDesktop::xdotool("key ctrl+alt+d"));
        QTRY_VERIFY(!recording());
        QCOMPARE(presses, 0);
        QCOMPARE(caption(), QStringLiteral("Shortcut set to Ctrl+Alt+D."));

        clickShortcutButton();
        QVERIFY(XDesktop::xdotool("key ctrl+alt+k"));
        QTRY_VERIFY(!recording());
        QCOMPARE(caption(), QStringLiteral("Shortcut set to Ctrl+Alt+K."));
        QCOMPARE(button(), QStringLiteral("Ctrl+Alt+K"));
        QCOMPARE(HotKeyConfig::current(), (HotKeyConfig{40, 0x1800, "K"}));
        expectShortcutWorks("ctrl+alt+k");
        window->fadeComboBox()->setFocus(); // keys reach the window's controls again
        QTest::keyClick(window->fadeComboBox(), Qt::Key_Down);
        QCOMPARE(window->fadeComboBox()->currentText(), QStringLiteral("8 seconds"));
        Q_EMIT delegate->menu()->aboutToShow();
        QCOMPARE(delegate->menu()->actions().first()->text(),
                 QStringLiteral("Start Drawing   (Ctrl+Alt+K)"));
    }

    // Keys sent to another window (the overlay, a menu) are not the recorder's;
    // another window coming to the front ends the recording.
    void recorderListensOnlyInItsActiveWindow() {
        QLineEdit other;
        other.show();
        clickShortcutButton();
        QTest::keyClick(&other, Qt::Key_X);
        QCOMPARE(other.text(), QStringLiteral("x"));
        QCOMPARE(caption(), hint);
        QVERIFY(recording());
        other.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        QTRY_VERIFY(!recording());
        QVERIFY(registered());
        expectShortcutWorks("ctrl+alt+d");
    }

    void combinationHeldElsewhereIsUnavailableAndClosingRestoresTheOldOne() {
        OtherXClient other;
        QVERIFY(other.grabKey(XK_F5, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1));
        clickShortcutButton();
        QTest::keyClick(window, Qt::Key_F5, Qt::ControlModifier | Qt::AltModifier);
        QCOMPARE(caption(), QStringLiteral("Ctrl+Alt+F5 is unavailable. Try another."));
        QVERIFY(recording() && !registered());
        window->close();
        QVERIFY(!recording() && registered());
        QVERIFY(!Settings::shared().contains(Settings::Key::hotKeyCode));
        expectShortcutWorks("ctrl+alt+d");
        openWindow();
        QCOMPARE(button(), QStringLiteral("Ctrl+Alt+D"));
    }
};

QTEST_MAIN(SettingsWindowTest)
#include "tst_settingswindow.moc"
