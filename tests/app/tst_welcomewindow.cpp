#include "AppDelegate.h"
#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "NullHotKeyBackend.h"
#include "Settings.h"
#include "TestSettings.h"
#include "WelcomeWindow.h"
#include "XTestSupport.h"

#include <QApplication>
#include <QMenu>
#include <QPushButton>
#include <QtTest>

// The welcome window: shown by itself on the first run only, made anew with the
// shortcut in force and following it, closed by Return.
class WelcomeWindowTest : public QObject {
    Q_OBJECT

    TestSettings settings;
    const QString title = QStringLiteral("^Welcome to Quillery$");

private Q_SLOTS:
    void cleanup() { HotKeyManager::shared().unregister(); }

    void shownOnTheFirstRunOnlyEvenIfClosedUnread() {
        {
            AppDelegate firstRun;
            firstRun.applicationDidFinishLaunching();
            QVERIFY(Settings::shared().didShowWelcome());
            QVERIFY(firstRun.welcomeWindow() &&
                    QTest::qWaitForWindowExposed(firstRun.welcomeWindow()));
            QTRY_COMPARE(XDesktop::windowsNamed(title).size(), 1);
            firstRun.welcomeWindow()->close();
        }
        AppDelegate laterRun;
        laterRun.applicationDidFinishLaunching();
        QVERIFY(!laterRun.welcomeWindow());
        QTRY_VERIFY(XDesktop::windowsNamed(title).isEmpty());
    }

    void howToDrawShowsTheShortcutInForceAndReturnCloses() {
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        const auto howToDraw = [&] {
            Q_EMIT delegate.menu()->aboutToShow();
            for (QAction* action : delegate.menu()->actions())
                if (action->text() == QStringLiteral("How to Draw…"))
                    action->trigger();
            return delegate.welcomeWindow();
        };
        WelcomeWindow* first = howToDraw();
        QVERIFY(first->introduction().startsWith("Press Ctrl+Alt+D anywhere to draw"));
        QVERIFY(first->gotItButton()->isDefault());
        // A changed shortcut shows in the next window, which replaces the open one.
        HotKeyConfig{40, 0x1800, "K"}.save();
        WelcomeWindow* second = howToDraw();
        QVERIFY(second != first && second->introduction().startsWith("Press Ctrl+Alt+K anywhere"));
        QVERIFY(QTest::qWaitForWindowActive(second));
        QTRY_COMPARE(XDesktop::windowsNamed(title).size(), 1);
        // A desktop that turns out to give no shortcut: the open window says what to do.
        HotKeyManager::shared().setBackend(std::make_unique<NullHotKeyBackend>());
        HotKeyManager::changed();
        QTRY_VERIFY(second->introduction().startsWith("Bind \"quillery --toggle\" to a key"));
        QVERIFY(XDesktop::xdotool("key Return")); // on the real keyboard
        QTRY_VERIFY(!second->isVisible());
    }
};

QTEST_MAIN(WelcomeWindowTest)
#include "tst_welcomewindow.moc"
