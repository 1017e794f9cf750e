#include "XTestSupport.h"

#include <QSettings>
#include <QtTest>

// The real program on a desktop without a tray: it keeps running, the shortcut
// works, it says once why there is no icon, and the icon comes when a tray does.
class NoTrayTest : public QObject {
    Q_OBJECT

    QProcess quillery;
    QProcess panel;

private Q_SLOTS:
    void runsWithoutATrayAndShowsTheIconWhenOneStarts() {
        QSettings(qEnvironmentVariable("XDG_CONFIG_HOME") + "/Quillery/Quillery.conf",
                  QSettings::IniFormat)
            .setValue("didShowWelcome", true);
        quillery.start(qEnvironmentVariable("QUILLERY_BINARY"), {});
        QByteArray said;
        QTRY_VERIFY((said += quillery.readAllStandardError()).contains("no system tray"));
        QVERIFY(XDesktop::trayIcon().isNull());
        QVERIFY(XDesktop::xdotool("key ctrl+alt+d"));
        QTRY_VERIFY(XDesktop::overlayIsUp());
        QVERIFY(XDesktop::drag({{300, 300}, {500, 400}, {700, 420}}));
        QVERIFY(XDesktop::inkShows(XDesktop::isRed));
        QVERIFY(XDesktop::xdotool("key Escape"));

        panel.start("tint2", {});
        QTRY_VERIFY_WITH_TIMEOUT(!XDesktop::trayIcon().isNull(),
                                 15000); // shown once the tray announces itself
        QCOMPARE(quillery.state(), QProcess::Running);
        said += quillery.readAllStandardError();
        QCOMPARE(said.count("no system tray"), 1); // said once, not at every look
    }

    void cleanupTestCase() {
        for (QProcess* process : {&quillery, &panel}) {
            process->terminate();
            process->waitForFinished(5000);
        }
    }
};

QTEST_MAIN(NoTrayTest)
#include "tst_notray.moc"
