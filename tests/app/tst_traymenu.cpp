#include "AppDelegate.h"
#include "DrawingStore.h"
#include "HotKeyConfig.h"
#include "NotificationCounter.h"
#include "OverlayController.h"
#include "PencilIconEngine.h"
#include "Settings.h"
#include "TestSettings.h"
#include "XdgAutostartLoginItem.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QMenu>
#include <QMessageBox>
#include <QSystemTrayIcon>
#include <QtTest>

// The tray menu as a user reads it, on a real X server with a tray, and what its
// items do to the drawing, the settings and the autostart entry.
class TrayMenuTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<AppDelegate> delegate;

    static DrawingStore& store() { return OverlayController::shared().store(); }

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
    QAction* item(const QString& startOfText) {
        for (QAction* action : delegate->menu()->actions())
            if (action->text().startsWith(startOfText))
                return action;
        return nullptr;
    }
    QMenu* fadeMenu() {
        openMenu();
        return item("Fade after")->menu();
    }
    QImage icon() const { return delegate->statusItem()->icon().pixmap(22, 22).toImage(); }
    static QImage icon(bool drawing) {
        return PencilIconEngine::trayIcon(drawing).pixmap(22, 22).toImage();
    }

    // Runs the action and answers the alert it shows, if any, with its two texts.
    // An alert is read once it is in front, with the keyboard; one that never
    // gets there is read after a few seconds, and says so.
    static QStringList triggerAndReadAlert(QAction* action) {
        QStringList texts;
        QTimer poll;
        QElapsedTimer shown;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box)
                return;
            if (!shown.isValid())
                shown.start();
            if (!box->isActiveWindow() && shown.elapsed() < 5000)
                return;
            texts << box->text() << box->informativeText();
            if (!box->isActiveWindow())
                texts << QStringLiteral("(not in front)");
            box->done(0);
        });
        poll.start(20);
        action->trigger();
        return texts;
    }

private Q_SLOTS:
    void initTestCase() {
        QTRY_VERIFY_WITH_TIMEOUT(QSystemTrayIcon::isSystemTrayAvailable(), 10000);
    }
    void init() {
        settings = std::make_unique<TestSettings>();
        Settings::shared().setDidShowWelcome(true);
        delegate = std::make_unique<AppDelegate>();
        delegate->applicationDidFinishLaunching();
    }
    void cleanup() {
        if (store().isDrawing())
            OverlayController::shared().stop();
        store().clear();
        delegate.reset();
    }

    void menuReadsInOrderAndShowsTheShortcutInForce() {
        const QStringList idle{"Start Drawing   (Ctrl+Alt+D)",
                               "Clear All",
                               "---",
                               "Fade after >",
                               "Launch at Login [ ]",
                               "---",
                               "Settings…\tCtrl+,",
                               "How to Draw…",
                               "---",
                               "Quit Quillery\tCtrl+Q"};
        QCOMPARE(read(delegate->menu()), idle); // complete before it was ever opened
        QCOMPARE(openMenu(), idle);             // and opening adds nothing
        QCOMPARE(delegate->menu()->findChildren<QMenu*>().size(), 1);
        QCOMPARE(read(fadeMenu()), QStringList({"Never [ ]", "2 seconds [ ]", "4 seconds [x]",
                                                "8 seconds [ ]", "15 seconds [ ]"}));
        QVERIFY(delegate->statusItem()->isVisible());
        // This desktop runs no compositor: the tooltip says why ink looks different.
        QCOMPARE(delegate->statusItem()->toolTip(),
                 QStringLiteral("Quillery: ink is drawn without translucency, as no compositor "
                                "runs"));

        HotKeyConfig{96, 0x1300, QStringLiteral("F5")}.save();
        QCOMPARE(openMenu().first(), QStringLiteral("Start Drawing   (Ctrl+Shift+Super+F5)"));
        // A key named "&" stays an ampersand instead of underlining the next letter.
        HotKeyConfig{96, 0x1300, QStringLiteral("&")}.save();
        QCOMPARE(openMenu().first(), QStringLiteral("Start Drawing   (Ctrl+Shift+Super+&&)"));
    }

    void startAndStopDrawingAfterTheMenuCloses() {
        QVERIFY(icon(false) != icon(true));
        QCOMPARE(icon(), icon(false));
        openMenu();
        item("Start Drawing")->trigger();
        QVERIFY2(!store().isDrawing(), "the menu must close before drawing starts");
        QTRY_VERIFY(store().isDrawing());
        QCOMPARE(icon(), icon(true));
        QCOMPARE(openMenu().first(), QStringLiteral("Stop Drawing   (Ctrl+Alt+D)"));
        item("Stop Drawing")->trigger();
        QVERIFY(store().isDrawing());
        QTRY_VERIFY(!store().isDrawing());
        QCOMPARE(icon(), icon(false));
        // Any other way of stopping turns the icon back as well; the menu
        // follows without being opened.
        OverlayController::shared().start();
        QCOMPARE(icon(), icon(true));
        QCOMPARE(read(delegate->menu()).first(), QStringLiteral("Stop Drawing   (Ctrl+Alt+D)"));
        OverlayController::shared().stop();
        QCOMPARE(icon(), icon(false));

        store().begin({10, 10});
        store().finishStroke({200, 120});
        openMenu();
        item("Clear All")->trigger();
        QVERIFY(store().items().empty());
    }

    void fadeChoiceMarksTheStoredValue_data() {
        QTest::addColumn<double>("stored");
        QTest::addColumn<QString>("checked");
        QTest::newRow("0") << 0.0 << "Never";
        QTest::newRow("2") << 2.0 << "2 seconds";
        QTest::newRow("8") << 8.0 << "8 seconds";
        QTest::newRow("15") << 15.0 << "15 seconds";
        QTest::newRow("3.0 is no choice") << 3.0 << "";
        QTest::newRow("2.5 truncates to 2") << 2.5 << "2 seconds";
        QTest::newRow("-0.5 truncates to 0") << -0.5 << "Never";
    }
    void fadeChoiceMarksTheStoredValue() {
        QFETCH(double, stored);
        QFETCH(QString, checked);
        Settings::shared().setFadeSeconds(stored);
        QString marked;
        for (const QAction* action : fadeMenu()->actions())
            marked += action->isChecked() ? action->text() : QString();
        QCOMPARE(marked, checked);
    }

    void choosingAFadeDelayStoresItAndRepaints() {
        NotificationCounter repaints(drawingStoreChanged);
        fadeMenu()->actions().first()->trigger();
        QVERIFY(Settings::shared().contains(Settings::Key::fadeSeconds));
        QCOMPARE(Settings::shared().fadeSeconds(), 0.0);
        QCOMPARE(repaints.take(), 1);
        QVERIFY(fadeMenu()->actions().first()->isChecked());
        fadeMenu()->actions().last()->trigger();
        QCOMPARE(Settings::shared().fadeSeconds(), 15.0);
        // Check marks: one mark moves, and choosing the marked item keeps it.
        QVERIFY(!fadeMenu()->actions().first()->isChecked());
        QVERIFY(!fadeMenu()->actions().last()->actionGroup());
        fadeMenu()->actions().last()->trigger();
        QVERIFY(fadeMenu()->actions().last()->isChecked());
    }

    void launchAtLoginWritesAndRemovesTheAutostartEntry() {
        const QString entry = XdgAutostartLoginItem::entryPath();
        QVERIFY(entry.startsWith(settings->directory()));
        openMenu();
        QCOMPARE(triggerAndReadAlert(item("Launch at Login")), QStringList());
        QVERIFY(QFile::exists(entry));
        QVERIFY(openMenu().contains("Launch at Login [x]"));
        QCOMPARE(triggerAndReadAlert(item("Launch at Login")), QStringList());
        QVERIFY(!QFile::exists(entry));
        QVERIFY(openMenu().contains("Launch at Login [ ]"));

        // A file where the autostart folder belongs: refused even for root.
        QFile blocker(settings->directory() + "/autostart");
        QVERIFY(QDir(blocker.fileName()).removeRecursively() && blocker.open(QIODevice::WriteOnly));
        const QStringList alert = triggerAndReadAlert(item("Launch at Login"));
        QCOMPARE(alert.value(0), QStringLiteral("Couldn't change Launch at Login"));
        QVERIFY2(alert.value(1).contains(blocker.fileName()), qPrintable(alert.value(1)));
        QCOMPARE(alert.size(), 2); // it came to the front
        QVERIFY(openMenu().contains("Launch at Login [ ]"));
    }
};

QTEST_MAIN(TrayMenuTest)
#include "tst_traymenu.moc"
