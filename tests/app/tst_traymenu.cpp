#include "AppDelegate.h"
#include "Clock.h"
#include "DrawingStore.h"
#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "NullHotKeyBackend.h"
#include "OverlayController.h"
#include "OverlayHost.h"
#include "OverlayScene.h"
#include "OverlaySurface.h"
#include "PencilIconEngine.h"
#include "Settings.h"
#include "SettingsWindow.h"
#include "ShortcutRecorder.h"
#include "TestSettings.h"
#include "WelcomeWindow.h"
#include "XTestSupport.h"
#include "XdgAutostartLoginItem.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QtTest>
#include <X11/keysym.h>

// The tray menu and the windows it opens, on a real X server with a tray and a
// compositor (so that ink fades), with real key presses and the real hot key.
class TrayMenuTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<AppDelegate> delegate;
    SettingsWindow* window = nullptr;
    int presses = 0;

    const QString hint = "Use at least one of Ctrl, Alt or Super. Esc cancels.";
    const QString addModifier = "Add Ctrl, Alt or Super to the shortcut.";
    static DrawingStore& store() { return OverlayController::shared().store(); }
    void launch() {
        delegate = std::make_unique<AppDelegate>();
        delegate->applicationDidFinishLaunching();
        HotKeyManager::shared().onPress = [this] { ++presses; };
        presses = 0;
    }
    // One line per item: its text, a tab and its shortcut, " [x]" or " [ ]" when
    // it can be checked, " >" for a submenu; "---" for a separator.
    static QStringList read(const QMenu* menu) {
        QStringList lines;
        for (const QAction* action : menu->actions()) {
            QString line = action->isSeparator() ? QStringLiteral("---") : action->text();
            if (!action->shortcut().isEmpty())
                line += u'\t' + action->shortcut().toString(QKeySequence::NativeText);
            if (action->isCheckable())
                line += action->isChecked() ? " [x]" : " [ ]";
            lines << (action->menu() ? line + " >" : line);
        }
        return lines;
    }
    QStringList openMenu() {
        Q_EMIT delegate->menu()->aboutToShow();
        return read(delegate->menu());
    }
    // The menu's items by their place, which the first test pins.
    QAction* item(int place) {
        openMenu();
        return delegate->menu()->actions().at(place);
    }
    QMenu* fadeMenu() { return item(3)->menu(); }
    bool iconShowsDrawing(bool drawing) const {
        const auto image = [](const QIcon& icon) { return icon.pixmap(22, 22).toImage(); };
        return image(delegate->statusItem()->icon()) == image(PencilIconEngine::trayIcon(drawing));
    }

    QString button() const { return window->shortcutButton()->text(); }
    QString caption() const { return window->captionLabel()->text(); }
    bool recording() const { return window->recorder().isRecording(); }
    void openWindow() {
        item(6)->trigger();
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
    void initTestCase() {
        QTRY_VERIFY_WITH_TIMEOUT(QSystemTrayIcon::isSystemTrayAvailable(), 10000);
    }
    void init() {
        settings = std::make_unique<TestSettings>();
        Settings::shared().setDidShowWelcome(true);
        launch();
    }
    void cleanup() {
        OverlayController::shared().stop();
        store().clear();
        Clock::setFixedNow(std::nullopt);
        delegate.reset();
        HotKeyManager::shared().unregister();
    }

    void menuReadsInOrderAndShowsTheShortcutInForce() {
        const QString idle = "Start Drawing   (Ctrl+Alt+D) | Clear All | --- | Fade after > | "
                             "Launch at Login [ ] | --- | Settings…\tCtrl+, | How to Draw… | --- | "
                             "Quit Quillery\tCtrl+Q";
        QCOMPARE(read(delegate->menu()).join(" | "), idle); // complete before it was ever opened
        QCOMPARE(openMenu().join(" | "), idle);             // and opening adds nothing
        QVERIFY(delegate->statusItem()->isVisible());
    }

    // Started from the menu or any other way, the icon and the menu follow.
    void startAndStopDrawingAfterTheMenuCloses() {
        item(0)->trigger();
        QVERIFY2(!store().isDrawing(), "the menu must close before drawing starts");
        QTRY_VERIFY(store().isDrawing());
        QVERIFY(iconShowsDrawing(true));
        store().begin({10, 10});
        store().finishStroke({200, 120});
        item(0)->trigger();
        QTRY_VERIFY(!store().isDrawing());
        OverlayController::shared().start();
        QVERIFY(iconShowsDrawing(true));
        QCOMPARE(read(delegate->menu()).first(), QStringLiteral("Stop Drawing   (Ctrl+Alt+D)"));
        item(1)->trigger();
        QVERIFY(store().items().empty());
    }

    // The stored delay is marked, by its whole seconds, however it was stored;
    // choosing another moves the one mark and repaints the ink at once.
    void fadeChoiceMarksTheStoredValue_data() {
        QTest::addColumn<double>("stored");
        QTest::addColumn<QString>("marked");
        QTest::newRow("nothing stored") << -1.0 << "4 seconds";
        QTest::newRow("8") << 8.0 << "8 seconds";
        QTest::newRow("2.5 truncates to 2") << 2.5 << "2 seconds";
    }
    void fadeChoiceMarksTheStoredValue() {
        QFETCH(double, stored);
        QFETCH(QString, marked);
        if (stored != -1.0)
            Settings::shared().setFadeSeconds(stored);
        const auto markedNow = [this] {
            QStringList texts;
            for (const QAction* action : fadeMenu()->actions())
                if (action->isChecked())
                    texts << action->text();
            return texts.join(u',');
        };
        QCOMPARE(markedNow(), marked);
        QSignalSpy repaints(&DrawingStore::shared(), &DrawingStore::drawingStoreChanged);
        fadeMenu()->actions().at(1)->trigger();
        QCOMPARE(Settings::shared().fadeSeconds(), 2.0);
        QCOMPARE(repaints.size(), 1);
        QCOMPARE(markedNow(), QStringLiteral("2 seconds"));
    }

    // An entry switched off by hand or by the desktop's own tools (GNOME's
    // flag) is off; switching on writes this program's own entry.
    void launchAtLoginFollowsTheAutostartEntry_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("on");
        QTest::newRow("no entry") << QByteArray() << false;
        QTest::newRow("Hidden=true") << QByteArray("Hidden=true") << false;
        QTest::newRow("GNOME disabled") << QByteArray("X-GNOME-Autostart-enabled=false") << false;
        QTest::newRow("GNOME enabled") << QByteArray("X-GNOME-Autostart-enabled=true") << true;
    }
    void launchAtLoginFollowsTheAutostartEntry() {
        QFETCH(QByteArray, line);
        QFETCH(bool, on);
        const QString entry = XdgAutostartLoginItem::entryPath();
        QCOMPARE(entry, settings->directory() + "/autostart/quillery.desktop");
        if (!line.isEmpty()) {
            QDir().mkpath(QFileInfo(entry).path());
            QFile file(entry);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("[Desktop Entry]\nType=Application\nExec=quillery\n" + line + "\n");
        }
        for (int turn = 0; turn < 2; ++turn, on = !on) {
            QVERIFY(openMenu().contains(on ? "Launch at Login [x]" : "Launch at Login [ ]"));
            item(4)->trigger();
            QFile written(entry);
            QCOMPARE(written.open(QIODevice::ReadOnly) ? written.readAll() : "none",
                     on ? "none" : XdgAutostartLoginItem().entryContents());
        }
    }

    void welcomeShownOnTheFirstRunOnlyEvenIfClosedUnread() {
        const QString title = QStringLiteral("^Welcome to Quillery$");
        delegate.reset();
        settings = std::make_unique<TestSettings>();
        launch();
        QVERIFY(delegate->welcomeWindow() &&
                QTest::qWaitForWindowExposed(delegate->welcomeWindow()));
        QTRY_COMPARE(XDesktop::windowsNamed(title).size(), 1);
        delegate->welcomeWindow()->close();
        launch();
        QVERIFY(!delegate->welcomeWindow());
        QTRY_VERIFY(XDesktop::windowsNamed(title).isEmpty());
    }

    void settingsWindowShowsTheStoredSettingsAndStoresChanges() {
        openWindow();
        QCOMPARE(QStringList({button(), caption(), window->fadeComboBox()->currentText()}),
                 QStringList({"Ctrl+Alt+D", hint, "4 seconds"}));
        QVERIFY(window->hintBarCheckBox()->isChecked());

        // Ink halfway through its fade: a longer delay brings it back at once,
        // though the drawing itself did not change.
        QTRY_VERIFY(OverlayController::shared().host().drawsTranslucent()); // ink can fade
        constexpr double t0 = 1000.0;
        Clock::setFixedNow(t0);
        OverlayController::shared().start();
        OverlayController::shared().store().begin({100, 100});
        OverlayController::shared().store().finishStroke({300, 200});
        OverlayController::shared().stop();
        QSignalSpy fadeTicks(&DrawingStore::shared(), &DrawingStore::drawingStoreChanged);
        Clock::setFixedNow(t0 + 4.4);
        QTRY_VERIFY(fadeTicks.size() >= 2);
        QSignalSpy repaints(&OverlayController::shared().surfaces().front()->scene(),
                            &OverlayScene::repaintNeeded);
        QTest::keyClick(window->fadeComboBox(), Qt::Key_Down);
        QCOMPARE(Settings::shared().fadeSeconds(), 8.0);
        QTRY_VERIFY(!repaints.isEmpty());
        QTest::mouseClick(window->hintBarCheckBox(), Qt::LeftButton);
        QVERIFY(Settings::shared().contains(Settings::Key::hudVisible) &&
                !Settings::shared().hudVisible());

        // Changes made elsewhere while it is open show at once.
        Settings::shared().setFadeSeconds(0);
        QCOMPARE(window->fadeComboBox()->currentText(), QStringLiteral("Never"));
    }

    // Keys the recorder can't take leave it recording with a message, and keys
    // sent to another window (the overlay, a menu) are not its own; however it
    // ends then (Escape with modifiers held, the button, closing the window,
    // another window in front), the old shortcut is back and nothing is stored.
    void recorderRefusesAndPutsTheOldShortcutBack_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<QString>("said");
        QTest::addColumn<QString>("end");
        QTest::newRow("bare key") << int(Qt::Key_K) << 0 << addModifier << "escape";
        QTest::newRow("Shift only")
            << int(Qt::Key_K) << int(Qt::ShiftModifier) << addModifier << "button";
        QTest::newRow("held by another program")
            << int(Qt::Key_F5) << int(Qt::ControlModifier | Qt::AltModifier)
            << "Ctrl+Alt+F5 is unavailable. Try another."
            << "close";
        QTest::newRow("another window") << int(Qt::Key_J) << 0 << addModifier << "other";
    }
    void recorderRefusesAndPutsTheOldShortcutBack() {
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(QString, said);
        QFETCH(QString, end);
        openWindow();
        OtherXClient other;
        QVERIFY(other.grabKey(XK_F5, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1));
        QLineEdit elsewhere;
        elsewhere.show();
        clickShortcutButton();
        QVERIFY(recording() && !HotKeyManager::shared().isRegistered());
        QTest::keyClick(window, Qt::Key_Shift, Qt::ShiftModifier); // the start of a combination
        QCOMPARE(caption(), hint);
        QTest::keyClick(window, Qt::Key(key), Qt::KeyboardModifiers(modifiers));
        QTest::keyClick(&elsewhere, Qt::Key_X);
        QCOMPARE(QStringList({elsewhere.text(), caption()}), QStringList({"x", said}));
        QVERIFY(recording());
        if (end == "escape")
            QTest::keyClick(window, Qt::Key_Escape, Qt::ControlModifier | Qt::AltModifier);
        else if (end == "button")
            clickShortcutButton();
        else if (end == "close")
            window->close();
        else
            elsewhere.activateWindow();
        QTRY_VERIFY(!recording());
        QVERIFY(!Settings::shared().contains(Settings::Key::hotKeyCode));
        expectShortcutWorks("ctrl+alt+d");
        openWindow();
        QCOMPARE(QStringList({button(), caption()}), QStringList({"Ctrl+Alt+D", said}));
    }

    // Quitting while a recording is under way (quillery --quit) ends it cleanly.
    void closedWhileRecording() {
        openWindow();
        clickShortcutButton();
        QVERIFY(recording());
        delegate.reset();
    }

    void recorderTakesARealCombination() {
        openWindow();
        clickShortcutButton();
        // The shortcut in force is heard by the recorder now, not by the hot key.
        QVERIFY(XDesktop::xdotool("key ctrl+alt+d"));
        QTRY_VERIFY(!recording());
        QCOMPARE(presses, 0);
        QCOMPARE(caption(), QStringLiteral("Shortcut set to Ctrl+Alt+D."));
        clickShortcutButton();
        QVERIFY(XDesktop::xdotool("key ctrl+alt+k"));
        QTRY_VERIFY(!recording());
        QCOMPARE(QStringList({button(), caption()}),
                 QStringList({"Ctrl+Alt+K", "Shortcut set to Ctrl+Alt+K."}));
        QCOMPARE(HotKeyConfig::current(), (HotKeyConfig{40, 0x1800, "K"}));
        expectShortcutWorks("ctrl+alt+k");
    }

    // Last: the desktop then gives no shortcut. "How to Draw…" names the one
    // in force, or how to bind one, and follows the desktop's answer.
    void howToDrawNamesTheShortcutInForce() {
        item(7)->trigger();
        QVERIFY(delegate->welcomeWindow()->introduction().startsWith("Press Ctrl+Alt+D anywhere"));
        HotKeyManager::shared().setBackend(std::make_unique<NullHotKeyBackend>());
        HotKeyManager::changed();
        QTRY_VERIFY(delegate->welcomeWindow()->introduction().startsWith(
            "Bind \"quillery --toggle\" to a key"));
    }
};

QTEST_MAIN(TrayMenuTest)
#include "tst_traymenu.moc"
