#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

// What a StatusNotifierItem host (Plasma, waybar, GNOME's AppIndicator
// extension) sees of the real program's tray menu: a private session bus with
// a watcher played by this test, and the menu read over D-Bus as such a host
// reads it, without ever asking the program to get it ready first.
class Watcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)

public:
    QStringList registered;
    bool hostRegistered() const { return true; }
    int protocolVersion() const { return 0; }
    QStringList items() const { return registered; }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service) { registered << service; }
    void RegisterStatusNotifierHost(const QString&) {}
};

class StatusNotifierTest : public QObject {
    Q_OBJECT

    QTemporaryDir scratch;
    QProcess bus;
    QProcess quillery;
    std::optional<QDBusConnection> connection;
    Watcher watcher;
    QString menuPath;

    // One line per item as a host shows it, submenus indented: "---" for a
    // separator, " [x]" or " [ ]" for a check mark, " >" for a submenu; and
    // each label's item id.
    static void readItem(const QDBusArgument& argument, const QString& indent, QStringList* lines,
                         QHash<QString, int>* ids) {
        int id = 0;
        QVariantMap properties;
        argument.beginStructure();
        argument >> id >> properties;
        QString line = properties.value("type").toString() == "separator"
                           ? QStringLiteral("---")
                           : properties.value("label").toString();
        ids->insert(line, id);
        if (properties.value("toggle-type").toString() == "checkmark")
            line += properties.value("toggle-state").toInt() == 1 ? " [x]" : " [ ]";
        if (properties.value("toggle-type").toString() == "radio")
            line += " (radio)";
        if (properties.value("children-display").toString() == "submenu")
            line += " >";
        if (id != 0 && properties.value("visible", true).toBool())
            *lines << indent + line;
        argument.beginArray();
        while (!argument.atEnd()) {
            QDBusVariant child;
            argument >> child;
            readItem(qvariant_cast<QDBusArgument>(child.variant()),
                     id == 0 ? indent : indent + "  ", lines, ids);
        }
        argument.endArray();
        argument.endStructure();
    }
    QDBusMessage callMenu(const QString& method, const QVariantList& arguments) {
        QDBusMessage call = QDBusMessage::createMethodCall(watcher.registered.value(0), menuPath,
                                                           "com.canonical.dbusmenu", method);
        call.setArguments(arguments);
        return connection->call(call);
    }
    QStringList layout(QHash<QString, int>* ids = nullptr) {
        const QDBusMessage reply = callMenu("GetLayout", {0, -1, QStringList()});
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2)
            return {"GetLayout failed: " + reply.errorMessage()};
        QStringList lines;
        QHash<QString, int> labels;
        readItem(qvariant_cast<QDBusArgument>(reply.arguments().at(1)), QString(), &lines,
                 ids ? ids : &labels);
        return lines;
    }
    // Clicks the item with this label, as a host does when the user picks it.
    bool click(const QString& label) {
        QHash<QString, int> ids;
        layout(&ids);
        if (!ids.contains(label))
            return false;
        const QDBusMessage done =
            callMenu("Event", {ids.value(label), QStringLiteral("clicked"),
                               QVariant::fromValue(QDBusVariant(QString())), 0u});
        return done.type() == QDBusMessage::ReplyMessage;
    }
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
        QVERIFY(connection->registerObject("/StatusNotifierWatcher", &watcher,
                                           QDBusConnection::ExportAllSlots |
                                               QDBusConnection::ExportAllProperties));
        QVERIFY(connection->registerService("org.kde.StatusNotifierWatcher"));

        QSettings(qEnvironmentVariable("XDG_CONFIG_HOME") + "/Quillery/Quillery.conf",
                  QSettings::IniFormat)
            .setValue("didShowWelcome", true);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DBUS_SESSION_BUS_ADDRESS", address);
        quillery.setProcessEnvironment(environment);
        quillery.setProcessChannelMode(QProcess::ForwardedChannels);
        quillery.start(qEnvironmentVariable("QUILLERY_BINARY"), {});
        QTRY_VERIFY_WITH_TIMEOUT(!watcher.registered.isEmpty(), 15000);
        const QDBusMessage menu = connection->call(
            QDBusMessage::createMethodCall(watcher.registered.first(), "/StatusNotifierItem",
                                           "org.freedesktop.DBus.Properties", "Get")
            << QStringLiteral("org.kde.StatusNotifierItem") << QStringLiteral("Menu"));
        menuPath = qvariant_cast<QDBusObjectPath>(
                       qvariant_cast<QDBusVariant>(menu.arguments().value(0)).variant())
                       .path();
        QVERIFY2(!menuPath.isEmpty(), qPrintable(menu.errorMessage()));
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
        QCOMPARE(layout(), expected);
    }

    // The exported menu follows the program, whoever changes what it shows.
    void followsChangesWithoutBeingOpened() {
        QCOMPARE(command("--start"), 0);
        QTRY_COMPARE(layout().value(0), QStringLiteral("Stop Drawing   (Ctrl+Alt+D)"));
        QCOMPARE(command("--stop"), 0);
        QTRY_COMPARE(layout().value(0), QStringLiteral("Start Drawing   (Ctrl+Alt+D)"));
        QVERIFY(click("Never"));
        QTRY_VERIFY(layout().contains("  Never [x]"));
        QVERIFY(layout().contains("  4 seconds [ ]"));
        QVERIFY(click("Launch at Login"));
        QTRY_VERIFY(layout().contains("Launch at Login [x]"));
        QVERIFY(
            QFile::exists(qEnvironmentVariable("XDG_CONFIG_HOME") + "/autostart/quillery.desktop"));
        QCOMPARE(quillery.state(), QProcess::Running);
    }
};

QTEST_MAIN(StatusNotifierTest)
#include "tst_statusnotifier.moc"
