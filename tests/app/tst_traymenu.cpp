#include "AppDelegate.h"
#include "Defaults.h"
#include "DrawingStore.h"
#include "HotKeyConfig.h"
#include "NotificationCounter.h"
#include "OverlayController.h"
#include "PencilIconEngine.h"
#include "TestSettings.h"
#include "XDesktop.h"
#include "XdgAutostartLoginItem.h"

#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QProcess>
#include <QSystemTrayIcon>
#include <QtTest>

// The tray menu as a user reads it, on a real X server with a tray, and what its
// items do to the drawing, the settings and the autostart entry.
class TrayMenuTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<AppDelegate> delegate;

    static DrawingStore& store() { return OverlayController::shared().store(); }

    // One line per item: its text, "\t" and the key shortcut if any, " [x]" or
    // " [ ]" when it can carry a check mark, " >" for a submenu; "---" a separator.
    static QStringList read(QMenu* menu) {
        QStringList lines;
        for (QAction* action : menu->actions()) {
            if (action->isSeparator()) {
                lines << QStringLiteral("---");
                continue;
            }
            QString line = action->text();
            if (!action->shortcut().isEmpty())
                line += u'\t' + action->shortcut().toString(QKeySequence::NativeText);
            if (action->isCheckable())
                line += action->isChecked() ? QStringLiteral(" [x]") : QStringLiteral(" [ ]");
            if (action->menu())
                line += QStringLiteral(" >");
            lines << line;
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
        QAction* fade = item(QStringLiteral("Fade after"));
        return fade ? fade->menu() : nullptr;
    }

    QStringList openFadeMenu() {
        openMenu();
        return read(fadeMenu());
    }

    QString checkedFadeChoice() {
        openMenu();
        QString checked;
        for (QAction* action : fadeMenu()->actions())
            if (action->isChecked())
                checked += action->text();
        return checked;
    }

    static QImage pixels(const QIcon& icon) {
        QImage image = icon.pixmap(QSize(22, 22)).toImage();
        // Painted on nothing but transparency: the corners stay clear.
        return image.pixelColor(0, 0).alpha() == 0 ? image : QImage();
    }

    // Runs action and answers the alert it shows, if any, with its two texts.
    static QStringList triggerAndReadAlert(QAction* action) {
        QStringList texts;
        QTimer poll;
        poll.setInterval(20);
        QObject::connect(&poll, &QTimer::timeout, [&] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                texts << box->text() << box->informativeText();
                box->done(0);
                poll.stop();
            }
        });
        poll.start();
        action->trigger();
        return texts;
    }

private Q_SLOTS:
    void initTestCase() {
        // The panel with the tray may still be starting.
        QTRY_VERIFY_WITH_TIMEOUT(QSystemTrayIcon::isSystemTrayAvailable(), 10000);
        QVERIFY(XDesktop::waitForWindowManager());
    }

    void init() {
        settings = std::make_unique<TestSettings>();
        Defaults::setValue(QStringLiteral("didShowWelcome"), true);
        delegate = std::make_unique<AppDelegate>();
        delegate->applicationDidFinishLaunching();
    }

    void cleanup() {
        if (store().isDrawing)
            OverlayController::shared().stop();
        store().clear();
        delegate.reset();
    }

    void idleMenuReadsInOrder() {
        const QStringList expected{
            QStringLiteral("Start Drawing   (⌃⌥D)"),
            QStringLiteral("Clear All"),
            QStringLiteral("---"),
            QStringLiteral("Fade after >"),
            QStringLiteral("Launch at Login [ ]"),
            QStringLiteral("---"),
            QStringLiteral("Settings…\tCtrl+,"),
            QStringLiteral("How to Draw…"),
            QStringLiteral("---"),
            QStringLiteral("Quit Quillery\tCtrl+Q"),
        };
        QCOMPARE(openMenu(), expected);
        // Rebuilt from scratch at every opening, never added to.
        QCOMPARE(openMenu(), expected);
        QCOMPARE(delegate->menu()->findChildren<QMenu*>().size(), 1);
        QCOMPARE(openFadeMenu(), (QStringList{
                                     QStringLiteral("Never [ ]"),
                                     QStringLiteral("2 seconds [ ]"),
                                     QStringLiteral("4 seconds [x]"),
                                     QStringLiteral("8 seconds [ ]"),
                                     QStringLiteral("15 seconds [ ]"),
                                 }));
        QCOMPARE(delegate->statusItem()->toolTip(), QStringLiteral("Quillery"));
        QVERIFY(QSystemTrayIcon::isSystemTrayAvailable());
        QVERIFY(delegate->statusItem()->isVisible());
    }

    void menuShowsTheShortcutInForce() {
        HotKeyConfig f5;
        f5.keyCode = 96;
        f5.modifiers = HotKeyConfig::controlKey | HotKeyConfig::shiftKey | HotKeyConfig::cmdKey;
        f5.keyName = QStringLiteral("F5");
        f5.save();
        QCOMPARE(openMenu().first(), QStringLiteral("Start Drawing   (⌃⇧⌘F5)"));

        // A key named "&" stays an ampersand instead of underlining the next letter.
        HotKeyConfig ampersand = f5;
        ampersand.keyName = QStringLiteral("&");
        ampersand.save();
        QCOMPARE(openMenu().first(), QStringLiteral("Start Drawing   (⌃⇧⌘&&)"));
    }

    void startAndStopDrawingFromTheMenuAfterADelay() {
        const QImage idleIcon = pixels(PencilIconEngine::trayIcon(false));
        const QImage drawingIcon = pixels(PencilIconEngine::trayIcon(true));
        QVERIFY(idleIcon != drawingIcon);
        QCOMPARE(pixels(delegate->statusItem()->icon()), idleIcon);

        openMenu();
        item(QStringLiteral("Start Drawing"))->trigger();
        QVERIFY2(!store().isDrawing, "the menu must close before drawing starts");
        QTRY_VERIFY(store().isDrawing);
        QCOMPARE(pixels(delegate->statusItem()->icon()), drawingIcon);
        QCOMPARE(openMenu().first(), QStringLiteral("Stop Drawing   (⌃⌥D)"));

        item(QStringLiteral("Stop Drawing"))->trigger();
        QVERIFY(store().isDrawing);
        QTRY_VERIFY(!store().isDrawing);
        QCOMPARE(pixels(delegate->statusItem()->icon()), idleIcon);

        // Any other way of stopping turns the icon back as well.
        OverlayController::shared().start();
        QCOMPARE(pixels(delegate->statusItem()->icon()), drawingIcon);
        OverlayController::shared().stop();
        QCOMPARE(pixels(delegate->statusItem()->icon()), idleIcon);
    }

    void clearAllRemovesEveryItem() {
        Defaults::setValue(QStringLiteral("fadeSeconds"), 0.0);
        store().begin(QPointF(10, 10));
        store().update(QPointF(200, 120));
        store().finishStroke(QPointF(200, 120));
        QCOMPARE(store().items().size(), size_t(1));
        openMenu();
        item(QStringLiteral("Clear All"))->trigger();
        QVERIFY(store().items().empty());
    }

    void fadeChoiceMarksTheStoredValue_data() {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QString>("checked");
        QTest::newRow("registered default") << QVariant() << QStringLiteral("4 seconds");
        QTest::newRow("0") << QVariant(0.0) << QStringLiteral("Never");
        QTest::newRow("2") << QVariant(2.0) << QStringLiteral("2 seconds");
        QTest::newRow("4") << QVariant(4.0) << QStringLiteral("4 seconds");
        QTest::newRow("8") << QVariant(8.0) << QStringLiteral("8 seconds");
        QTest::newRow("15") << QVariant(15.0) << QStringLiteral("15 seconds");
        QTest::newRow("3.0 is no choice") << QVariant(3.0) << QString();
        QTest::newRow("2.5 truncates to 2") << QVariant(2.5) << QStringLiteral("2 seconds");
        QTest::newRow("-0.5 truncates to 0") << QVariant(-0.5) << QStringLiteral("Never");
        QTest::newRow("-4 is no choice") << QVariant(-4.0) << QString();
        QTest::newRow("written by hand")
            << QVariant(QStringLiteral("8")) << QStringLiteral("8 seconds");
    }

    void fadeChoiceMarksTheStoredValue() {
        QFETCH(QVariant, stored);
        QFETCH(QString, checked);
        if (stored.isValid())
            Defaults::setValue(QStringLiteral("fadeSeconds"), stored);
        QCOMPARE(checkedFadeChoice(), checked);
    }

    void choosingAFadeDelayStoresItAndRepaints() {
        NotificationCounter repaints(drawingStoreChanged);
        openMenu();
        fadeMenu()->actions().first()->trigger();
        QVERIFY(Defaults::hasObject(QStringLiteral("fadeSeconds")));
        QCOMPARE(Defaults::doubleValue(QStringLiteral("fadeSeconds")), 0.0);
        QCOMPARE(repaints.take(), 1);
        QCOMPARE(checkedFadeChoice(), QStringLiteral("Never"));

        fadeMenu()->actions().last()->trigger();
        QCOMPARE(Defaults::doubleValue(QStringLiteral("fadeSeconds")), 15.0);
        QCOMPARE(checkedFadeChoice(), QStringLiteral("15 seconds"));
    }

    void launchAtLoginWritesAndRemovesTheAutostartEntry() {
        const QString entry = XdgAutostartLoginItem::entryPath();
        QVERIFY(entry.startsWith(settings->directory()));
        openMenu();
        QCOMPARE(triggerAndReadAlert(item(QStringLiteral("Launch at Login"))), QStringList());
        QVERIFY(QFile::exists(entry));
        QVERIFY(openMenu().contains(QStringLiteral("Launch at Login [x]")));

        QCOMPARE(triggerAndReadAlert(item(QStringLiteral("Launch at Login"))), QStringList());
        QVERIFY(!QFile::exists(entry));
        QVERIFY(openMenu().contains(QStringLiteral("Launch at Login [ ]")));
    }

    void launchAtLoginFailureShowsWhy() {
        // A file where the autostart folder belongs: refused even for root.
        const QString folder = settings->directory() + QStringLiteral("/autostart");
        QFile blocker(folder);
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();

        openMenu();
        const QStringList alert = triggerAndReadAlert(item(QStringLiteral("Launch at Login")));
        QCOMPARE(alert.size(), 2);
        QCOMPARE(alert[0], QStringLiteral("Couldn't change Launch at Login"));
        QVERIFY2(alert[1].contains(folder), qPrintable(alert[1]));
        QVERIFY(openMenu().contains(QStringLiteral("Launch at Login [ ]")));
    }

    void fadeValueWithNoWholeNumberStopsTheProgram() {
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(),
                    {QStringLiteral("--open-menu-with-fade"), QStringLiteral("1e300"),
                     settings->directory()});
        QVERIFY(child.waitForFinished(20000));
        const QString errors = QString::fromLocal8Bit(child.readAllStandardError());
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        QVERIFY2(errors.contains(QStringLiteral("fatal error")), qPrintable(errors));
        QVERIFY2(errors.contains(QStringLiteral("\"fadeSeconds\"")), qPrintable(errors));
        QVERIFY2(errors.contains(QStringLiteral("1e+300")), qPrintable(errors));
        QVERIFY2(errors.contains(settings->filePath()), qPrintable(errors));
    }
};

// The child of fadeValueWithNoWholeNumberStopsTheProgram: opens the menu over
// a settings file holding the given fadeSeconds.
static int openMenuWithFade(int argc, char** argv) {
    QApplication application(argc, argv);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       QString::fromLocal8Bit(argv[3]));
    Defaults::setValue(QStringLiteral("didShowWelcome"), true);
    Defaults::setValue(QStringLiteral("fadeSeconds"), QString::fromLatin1(argv[2]));
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    Q_EMIT delegate.menu()->aboutToShow();
    return 0;
}

int main(int argc, char** argv) {
    if (argc == 4 && qstrcmp(argv[1], "--open-menu-with-fade") == 0)
        return openMenuWithFade(argc, argv);
    QApplication application(argc, argv);
    TrayMenuTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_traymenu.moc"
