#include "ProgramWindows.h"

#include <QProcess>
#include <QSettings>
#include <QtTest>

// The real program on a desktop without a tray: it keeps running, the shortcut
// works, it says once why there is no icon, and the icon comes when a tray does.
class NoTrayTest : public QObject {
    Q_OBJECT

    QProcess quillery;
    QProcess panel;

private Q_SLOTS:
    void initTestCase() { QVERIFY(XDesktop::waitForWindowManager()); }

    void runsWithoutATrayAndTheShortcutDraws() {
        QSettings settings(qEnvironmentVariable("XDG_CONFIG_HOME") +
                               QStringLiteral("/Quillery/Quillery.conf"),
                           QSettings::IniFormat);
        settings.setValue(QStringLiteral("didShowWelcome"), true);
        settings.sync();

        quillery.start(qEnvironmentVariable("QUILLERY_BINARY"), {});
        QVERIFY(quillery.waitForStarted());
        QByteArray said;
        QTRY_VERIFY((said += quillery.readAllStandardError()).contains("no system tray"));
        QCOMPARE(said.count("no system tray"), 1);
        QVERIFY(ProgramWindows::trayIcon().isNull());

        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), QStringLiteral("ctrl+alt+d")}));
        QTRY_VERIFY(ProgramWindows::overlayIsUp());
        QVERIFY(XDesktop::drag({{300, 300}, {500, 400}, {700, 420}}));
        QTRY_VERIFY(XDesktop::countPixels(XDesktop::screenshot(), XDesktop::isRed) > 200);
        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), QStringLiteral("Escape")}));
        QCOMPARE(quillery.state(), QProcess::Running);
    }

    void iconAppearsOnceATrayStarts() {
        panel.start(QStringLiteral("tint2"), {});
        QVERIFY(panel.waitForStarted());
        // Looked for every few seconds.
        QTRY_VERIFY_WITH_TIMEOUT(!ProgramWindows::trayIcon().isNull(), 15000);
        QCOMPARE(quillery.state(), QProcess::Running);
        // Said once, not at every look.
        const QByteArray saidSince = quillery.readAllStandardError();
        QVERIFY2(!saidSince.contains("no system tray"), saidSince.constData());
    }

    void cleanupTestCase() {
        quillery.terminate();
        quillery.waitForFinished(5000);
        panel.terminate();
        panel.waitForFinished(5000);
    }
};

QTEST_MAIN(NoTrayTest)
#include "tst_notray.moc"
