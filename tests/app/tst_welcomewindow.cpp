#include "AppDelegate.h"
#include "Defaults.h"
#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "TestSettings.h"
#include "WelcomeWindow.h"
#include "XDesktop.h"

#include <QApplication>
#include <QMenu>
#include <QPushButton>
#include <QtTest>

// The welcome window: shown by itself on the first run only, made anew with the
// shortcut in force, closed by Return.
class WelcomeWindowTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;

    static void chooseFromMenu(AppDelegate& delegate, const QString& title) {
        Q_EMIT delegate.menu()->aboutToShow();
        for (QAction* action : delegate.menu()->actions())
            if (action->text() == title)
                return action->trigger();
        QFAIL(qPrintable(QStringLiteral("no menu item ") + title));
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(XDesktop::waitForWindowManager()); }

    void init() { settings = std::make_unique<TestSettings>(); }
    void cleanup() { HotKeyManager::shared().unregister(); }

    void firstRunShowsItOnceEvenIfClosedUnread() {
        QVERIFY(!Defaults::hasObject(QStringLiteral("didShowWelcome")));
        {
            AppDelegate firstRun;
            firstRun.applicationDidFinishLaunching();
            QVERIFY(Defaults::boolValue(QStringLiteral("didShowWelcome")));
            WelcomeWindow* window = firstRun.welcomeWindow();
            QVERIFY(window);
            QVERIFY(QTest::qWaitForWindowExposed(window));
            QCOMPARE(window->windowTitle(), QStringLiteral("Welcome to Quillery"));
            QVERIFY(XDesktop::windowsNamed(QStringLiteral("^Welcome to Quillery$")).size() == 1);
            window->close();
            QVERIFY(Defaults::boolValue(QStringLiteral("didShowWelcome")));
        }
        AppDelegate laterRun;
        laterRun.applicationDidFinishLaunching();
        QVERIFY(!laterRun.welcomeWindow());
        QVERIFY(XDesktop::windowsNamed(QStringLiteral("^Welcome to Quillery$")).isEmpty());
    }

    void textsShowTheShortcutInForceAndReturnCloses() {
        Defaults::setValue(QStringLiteral("didShowWelcome"), true);
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        chooseFromMenu(delegate, QStringLiteral("How to Draw…"));
        WelcomeWindow* first = delegate.welcomeWindow();
        QVERIFY(first);
        QCOMPARE(first->width(), 420);
        QCOMPARE(first->introduction(),
                 QStringLiteral("Press ⌃⌥D anywhere to draw on top of everything on your "
                                "screen. Press it again, or Esc, to stop."));
        QCOMPARE(first->instructions(),
                 (QStringList{
                     QStringLiteral("While drawing"),
                     QStringLiteral("Drag to draw. P pen, A arrow, E ellipse, R rectangle, H "
                                    "highlighter, T text (click, type, Return)."),
                     QStringLiteral("1–6 pick a color, [ and ] change size, ⌘Z undo, C clears "
                                    "everything."),
                     QStringLiteral("Drawings fade away on their own. Change the delay from the "
                                    "menu bar icon."),
                 }));
        QCOMPARE(first->gotItButton()->text(), QStringLiteral("Got it"));
        QVERIFY(first->gotItButton()->isDefault());

        // A changed shortcut shows in the next window, which replaces the open one.
        HotKeyConfig changed = HotKeyConfig::current();
        changed.keyCode = 40;
        changed.keyName = QStringLiteral("K");
        changed.save();
        chooseFromMenu(delegate, QStringLiteral("How to Draw…"));
        WelcomeWindow* second = delegate.welcomeWindow();
        QVERIFY(second != first);
        QVERIFY(second->introduction().startsWith(QStringLiteral("Press ⌃⌥K anywhere")));
        QVERIFY(QTest::qWaitForWindowActive(second));
        QCOMPARE(XDesktop::windowsNamed(QStringLiteral("^Welcome to Quillery$")).size(), 1);

        // Return, pressed on the real keyboard, is "Got it".
        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), QStringLiteral("Return")}));
        QTRY_VERIFY(!second->isVisible());
        QCOMPARE(delegate.welcomeWindow(), second);
    }
};

QTEST_MAIN(WelcomeWindowTest)
#include "tst_welcomewindow.moc"
