#include "AppDelegate.h"
#include "Defaults.h"
#include "ForeignKeyGrab.h"
#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "NotificationCounter.h"
#include "SettingsWindow.h"
#include "ShortcutRecorder.h"
#include "TestSettings.h"
#include "XDesktop.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QtTest>

// The Settings window on a real X server, with the real global hot key: what the
// user sees in it, and the recorder driven by key presses.
class SettingsWindowTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<AppDelegate> delegate;
    SettingsWindow* window = nullptr;
    int presses = 0;

    const QString hint =
        QStringLiteral("Use at least one of Control, Option or Command. Esc cancels.");
    const QString addModifier = QStringLiteral("Add Control, Option or Command to the shortcut.");

    QString button() const { return window->shortcutButton()->text(); }
    QString caption() const { return window->captionLabel()->text(); }
    bool recording() const { return window->recorder().isRecording(); }
    static bool registered() { return HotKeyManager::shared().isRegistered(); }

    void openWindow() {
        delegate->showSettings();
        window = delegate->settingsWindow();
        QVERIFY(window);
        QVERIFY(QTest::qWaitForWindowActive(window));
    }

    void clickShortcutButton() { QTest::mouseClick(window->shortcutButton(), Qt::LeftButton); }

    // A real key press from the X server, to whatever has the keyboard.
    static void pressKeys(const QString& keys) {
        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), keys}));
    }

    // Whether the shortcut in force reaches the program: its press arrives.
    void expectShortcutWorks(const QString& keys) {
        const int before = presses;
        pressKeys(keys);
        QTRY_COMPARE(presses, before + 1);
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(XDesktop::waitForWindowManager()); }

    void init() {
        settings = std::make_unique<TestSettings>();
        Defaults::setValue(QStringLiteral("didShowWelcome"), true);
        delegate = std::make_unique<AppDelegate>();
        delegate->applicationDidFinishLaunching();
        HotKeyManager::shared().onPress = [this] { ++presses; };
        presses = 0;
        openWindow();
    }

    void cleanup() {
        delegate.reset();
        window = nullptr;
        HotKeyManager::shared().unregister();
    }

    void windowShowsTheStoredSettingsAndStoresChanges() {
        QCOMPARE(window->windowTitle(), QStringLiteral("Quillery Settings"));
        QCOMPARE(window->width(), 400);
        QVERIFY(window->shortcutButton()->width() >= 150);
        QCOMPARE(button(), QStringLiteral("⌃⌥D"));
        QCOMPARE(caption(), hint);
        QCOMPARE(window->fadeComboBox()->currentText(), QStringLiteral("4 seconds"));
        QVERIFY(window->hintBarCheckBox()->isChecked());
        QCOMPARE(window->hintBarCheckBox()->text(),
                 QStringLiteral("Show shortcut hint bar while drawing"));

        NotificationCounter repaints(drawingStoreChanged);
        window->fadeComboBox()->setFocus();
        QTest::keyClick(window->fadeComboBox(), Qt::Key_Down);
        QCOMPARE(window->fadeComboBox()->currentText(), QStringLiteral("8 seconds"));
        QCOMPARE(Defaults::doubleValue(QStringLiteral("fadeSeconds")), 8.0);
        QCOMPARE(repaints.count, 0);
        QTest::mouseClick(window->hintBarCheckBox(), Qt::LeftButton);
        QVERIFY(Defaults::hasObject(QStringLiteral("hudVisible")));
        QVERIFY(!Defaults::boolValue(QStringLiteral("hudVisible")));

        // Reopening brings back the same window, showing what is stored by then.
        window->close();
        Defaults::setValue(QStringLiteral("fadeSeconds"), 2.5);
        Defaults::setValue(QStringLiteral("hudVisible"), true);
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
    }

    void recorderRefusesKeysWithoutControlOptionOrCommand() {
        QVERIFY(registered());
        clickShortcutButton();
        QVERIFY(recording());
        QCOMPARE(button(), QStringLiteral("Press new shortcut…"));
        QCOMPARE(caption(), hint);
        QVERIFY2(!registered(), "the shortcut must be off while recording");

        // A modifier alone is only the start of a combination.
        QTest::keyClick(window, Qt::Key_Shift, Qt::ShiftModifier);
        QTest::keyClick(window, Qt::Key_Control, Qt::ControlModifier);
        QCOMPARE(caption(), hint);
        QVERIFY(recording());

        QTest::keyClick(window, Qt::Key_K);
        QCOMPARE(caption(), addModifier);
        QVERIFY(recording());
        QTest::keyClick(window, Qt::Key_K, Qt::ShiftModifier);
        QCOMPARE(caption(), addModifier);
        QVERIFY(recording());
        QVERIFY(!Defaults::hasObject(QStringLiteral("hkCode")));

        // Escape cancels even with modifiers held, and leaves the message as it was.
        QTest::keyClick(window, Qt::Key_Escape, Qt::ControlModifier | Qt::AltModifier);
        QVERIFY(!recording());
        QCOMPARE(caption(), addModifier);
        QCOMPARE(button(), QStringLiteral("⌃⌥D"));
        QVERIFY(registered());
        QVERIFY(!Defaults::hasObject(QStringLiteral("hkCode")));
        expectShortcutWorks(QStringLiteral("ctrl+alt+d"));

        // A fresh start clears the message; the button ends a recording too.
        clickShortcutButton();
        QCOMPARE(caption(), hint);
        clickShortcutButton();
        QVERIFY(!recording());
        QCOMPARE(caption(), hint);
        QVERIFY(registered());
    }

    void recorderTakesARealCombination() {
        clickShortcutButton();
        // The shortcut in force is heard by the recorder now, not by the hot key.
        pressKeys(QStringLiteral("ctrl+alt+d"));
        QTRY_VERIFY(!recording());
        QCOMPARE(presses, 0);
        QCOMPARE(caption(), QStringLiteral("Shortcut set to ⌃⌥D."));

        clickShortcutButton();
        pressKeys(QStringLiteral("ctrl+alt+k"));
        QTRY_VERIFY(!recording());
        QCOMPARE(caption(), QStringLiteral("Shortcut set to ⌃⌥K."));
        QCOMPARE(button(), QStringLiteral("⌃⌥K"));
        QCOMPARE(HotKeyConfig::current().display(), QStringLiteral("⌃⌥K"));
        QCOMPARE(Defaults::integerValue(QStringLiteral("hkMods")), std::optional<qint64>(0x1800));
        QCOMPARE(Defaults::stringValue(QStringLiteral("hkName")), std::optional<QString>("K"));
        QCOMPARE(Defaults::integerValue(QStringLiteral("hkCode")), std::optional<qint64>(40));
        expectShortcutWorks(QStringLiteral("ctrl+alt+k"));

        // Keys reach the window's controls again.
        window->fadeComboBox()->setFocus();
        QTest::keyClick(window->fadeComboBox(), Qt::Key_Down);
        QCOMPARE(window->fadeComboBox()->currentText(), QStringLiteral("8 seconds"));
        QCOMPARE(caption(), QStringLiteral("Shortcut set to ⌃⌥K."));

        // The menu shows it at its next opening.
        Q_EMIT delegate->menu()->aboutToShow();
        QCOMPARE(delegate->menu()->actions().first()->text(),
                 QStringLiteral("Start Drawing   (⌃⌥K)"));
    }

    void combinationHeldElsewhereIsUnavailableAndClosingRestoresTheOldOne() {
        ForeignKeyGrab grab(0xffc2 /* F5 */, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1);
        QVERIFY(grab.isHeld());

        clickShortcutButton();
        QTest::keyClick(window, Qt::Key_F5, Qt::ControlModifier | Qt::AltModifier);
        QCOMPARE(caption(), QStringLiteral("⌃⌥F5 is unavailable. Try another."));
        QVERIFY(recording());
        QVERIFY(!registered());
        QVERIFY(!Defaults::hasObject(QStringLiteral("hkCode")));

        window->close();
        QVERIFY(!recording());
        QVERIFY(registered());
        QCOMPARE(HotKeyConfig::current().display(), QStringLiteral("⌃⌥D"));
        expectShortcutWorks(QStringLiteral("ctrl+alt+d"));

        // Reopened, it shows the shortcut in force and no recording.
        openWindow();
        QCOMPARE(button(), QStringLiteral("⌃⌥D"));
    }
};

QTEST_MAIN(SettingsWindowTest)
#include "tst_settingswindow.moc"
