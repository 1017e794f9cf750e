#include "StatusNotifierHost.h"

#include <QDBusConnection>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

// What a StatusNotifierItem host sees of the real program's tray menu, read
// over D-Bus without ever asking the program to get it ready first.
class StatusNotifierTest : public QObject {
    Q_OBJECT

    QTemporaryDir scratch;
    QProcess bus;
    QProcess quillery;
    std::optional<QDBusConnection> connection;
    StatusNotifierHost host;

    int command(const QString& option) {
        return QProcess::execute(qEnvironmentVariable("QUILLERY_BINARY"), {option});
    }

private Q_SLOTS:
    void initTestCase() {
        const QString address = "unix:path=" + scratch.filePath("bus");
        bus.start("dbus-daemon", {"--session", "--nofork", "--address=" + address});
        QVERIFY(bus.waitForStarted());
        QTRY_VERIFY(QFile::exists(scratch.filePath("bus")));
        connection = QDBusConnection::connectToBus(address, "watcher");
        QVERIFY2(connection->isConnected(), qPrintable(connection->lastError().message()));
        QVERIFY(host.watch(*connection));

        QSettings(qEnvironmentVariable("XDG_CONFIG_HOME") + "/Quillery/Quillery.conf",
                  QSettings::IniFormat)
            .setValue("didShowWelcome", true);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DBUS_SESSION_BUS_ADDRESS", address);
        quillery.setProcessEnvironment(environment);
        quillery.setProcessChannelMode(QProcess::ForwardedChannels);
        quillery.start(qEnvironmentVariable("QUILLERY_BINARY"), {});
        QTRY_VERIFY_WITH_TIMEOUT(!host.menuPath().isEmpty(), 15000);
    }
    void cleanupTestCase() {
        connection.reset();
        QDBusConnection::disconnectFromBus("watcher");
        for (QProcess* process : {&quillery, &bus}) {
            process->terminate();
            process->waitForFinished(5000);
        }
    }

    void theWholeMenuBeforeItWasEverShown() {
        const QStringList expected{"Start Drawing   (Ctrl+Alt+D)",
                                   "Clear All",
                                   "---",
                                   "Fade after >",
                                   "  Never [ ]",
                                   "  2 seconds [ ]",
                                   "  4 seconds [x]",
                                   "  8 seconds [ ]",
                                   "  15 seconds [ ]",
                                   "Launch at Login [ ]",
                                   "---",
                                   "Settings…",
                                   "How to Draw…",
                                   "---",
                                   "Quit Quillery"};
        QCOMPARE(host.layout(), expected);
    }

    // The exported menu follows the program, whoever changes what it shows.
    void followsChangesWithoutBeingOpened() {
        QCOMPARE(command("--start"), 0);
        QTRY_COMPARE(host.layout().value(0), QStringLiteral("Stop Drawing   (Ctrl+Alt+D)"));
        QCOMPARE(command("--stop"), 0);
        QTRY_COMPARE(host.layout().value(0), QStringLiteral("Start Drawing   (Ctrl+Alt+D)"));
        QVERIFY(host.click("Never"));
        QTRY_VERIFY(host.layout().contains("  Never [x]"));
        QVERIFY(host.layout().contains("  4 seconds [ ]"));
        QVERIFY(host.click("Launch at Login"));
        QTRY_VERIFY(host.layout().contains("Launch at Login [x]"));
        QVERIFY(
            QFile::exists(qEnvironmentVariable("XDG_CONFIG_HOME") + "/autostart/quillery.desktop"));
        QCOMPARE(quillery.state(), QProcess::Running);
    }
};

QTEST_MAIN(StatusNotifierTest)
#include "tst_statusnotifier.moc"
