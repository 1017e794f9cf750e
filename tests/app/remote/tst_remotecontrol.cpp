#include "XTestSupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRandomGenerator>
#include <QtTest>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

// The real program under Xvfb, driven only through its command line.
class RemoteControlTest : public QObject {
    Q_OBJECT

    struct Run {
        int exitCode;
        QString out;
        QString err;
    };

    static QString binary() { return qEnvironmentVariable("QUILLERY_BINARY"); }
    // One socket per graphical session, named after the X display here.
    static QString socketPath() {
        return qEnvironmentVariable("XDG_RUNTIME_DIR") + "/quillery/x11-" +
               qEnvironmentVariable("DISPLAY").mid(1) + ".control";
    }

    // The environment of another place the user runs it from.
    static QProcessEnvironment environment(const QStringList& set, const QStringList& unset) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const QString& assignment : set)
            environment.insert(assignment.section(u'=', 0, 0), assignment.section(u'=', 1));
        for (const QString& name : unset)
            environment.remove(name);
        return environment;
    }

    static Run
    quillery(const QStringList& arguments,
             const QProcessEnvironment& from = QProcessEnvironment::systemEnvironment()) {
        QProcess process;
        process.setProcessEnvironment(from);
        process.start(binary(), arguments);
        if (!process.waitForFinished(15000))
            process.kill();
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2,
                QString::fromLocal8Bit(process.readAllStandardOutput()),
                QString::fromLocal8Bit(process.readAllStandardError())};
    }

    static QString
    statusValue(const QString& key,
                const QProcessEnvironment& from = QProcessEnvironment::systemEnvironment()) {
        const Run run = quillery({"--status"}, from);
        for (const QString& line : run.out.split(u'\n'))
            if (line.startsWith(key + ": "))
                return line.mid(key.size() + 2);
        return QStringLiteral("<no %1 in \"%2\" / \"%3\">").arg(key, run.out, run.err);
    }

    static void sendRaw(const QByteArray& bytes) {
        QLocalSocket socket;
        socket.connectToServer(socketPath());
        QVERIFY(socket.waitForConnected(2000));
        socket.write(bytes);
        socket.waitForBytesWritten(3000);
        socket.waitForReadyRead(3000);
        socket.abort();
    }

    // A JSON connection: each request line gets one answer line.
    static QJsonObject ask(QLocalSocket& socket, const QByteArray& request) {
        socket.write(request + '\n');
        while (!socket.canReadLine() && socket.waitForReadyRead(5000)) {
        }
        return QJsonDocument::fromJson(socket.readLine()).object();
    }
    static QJsonObject ask(const QByteArray& request) {
        QLocalSocket socket;
        socket.connectToServer(socketPath());
        socket.waitForConnected(2000);
        return ask(socket, request);
    }
    static int changedPixels(const QImage& before, const QRect& area) {
        const QImage now = XDesktop::screenshot();
        int changed = 0;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x)
                changed += now.pixel(x, y) != before.pixel(x, y);
        return changed;
    }

    QProcess instance;
    QTemporaryDir scratch;
    QLocalServer sessionManager;

private Q_SLOTS:
    void initTestCase() {
        // Started inside a session that a session manager keeps.
        QVERIFY(sessionManager.listen(scratch.filePath("ice")));
        instance.setProcessEnvironment(environment(
            {"SESSION_MANAGER=unix/" + QSysInfo::machineHostName() + ":" + scratch.filePath("ice")},
            {}));
        instance.setProcessChannelMode(QProcess::ForwardedChannels);
        instance.start(binary(), {});
        QTRY_VERIFY_WITH_TIMEOUT(quillery({"--status"}).exitCode == 0, 15000);
    }

    void cleanupTestCase() {
        instance.kill();
        instance.waitForFinished();
    }

    void answersWithoutAnInstanceAreImmediate() {
        const Run help = quillery({"--help"});
        QVERIFY(help.exitCode == 0 && help.out.contains("--toggle"));
        const Run version = quillery({"--version"});
        QVERIFY(version.exitCode == 0 && version.out.startsWith("quillery "));
        const Run wrong = quillery({"--paint"});
        QVERIFY(wrong.exitCode == 2 && wrong.err.contains("paint"));
        for (const QStringList& bad : {QStringList{"--color", "7"},
                                       {"--tool", "brush"},
                                       {"--undo", "--clear"},
                                       {"--draw", "brush", "1,1"},
                                       {"--draw", "pen", "1;1"},
                                       {"--width", "3"}})
            QCOMPARE(quillery(bad).exitCode, 2);
    }

    void drawingThroughCommands() {
        const auto command = [](const QStringList& arguments) {
            return quillery(arguments).exitCode;
        };
        QCOMPARE(statusValue("drawing"), QStringLiteral("off"));
        QCOMPARE(statusValue("host"), QStringLiteral("x11"));
        QCOMPARE(statusValue("translucency"), QStringLiteral("no (no compositor runs)"));
        QCOMPARE(command({"--start"}), 0);
        QCOMPARE(statusValue("drawing"), QStringLiteral("on"));
        QVERIFY(XDesktop::drag({{300, 300}, {330, 320}, {360, 320}, {400, 320}}));
        QTRY_COMPARE(statusValue("items"), QStringLiteral("1"));
        QCOMPARE(command({"--undo"}), 0);
        QCOMPARE(statusValue("items"), QStringLiteral("0"));
        QCOMPARE(command({"--tool", "arrow"}) + command({"--color", "2"}), 0);
        QCOMPARE(statusValue("tool"), QStringLiteral("arrow"));
        QCOMPARE(statusValue("color"), QStringLiteral("Yellow"));
        QCOMPARE(statusValue("width"), QStringLiteral("4"));
        QCOMPARE(command({"--toggle"}), 0);
        QCOMPARE(statusValue("drawing"), QStringLiteral("off"));
        QCOMPARE(command({"--toggle"}), 0);
        QCOMPARE(statusValue("drawing"), QStringLiteral("on"));
        QCOMPARE(command({"--stop"}), 0);
        QCOMPARE(statusValue("drawing"), QStringLiteral("off"));
    }

    void scriptedItemsShowWhereAskedAndGoById_data() {
        QTest::addColumn<QByteArray>("item");
        QTest::addColumn<QRect>("area");
        QByteArray longStroke; // a request far over the plain commands' limit
        for (int i = 0; i <= 20000; ++i)
            longStroke +=
                QByteArray(i ? "," : "") + "[" + QByteArray::number(200 + i * 0.025) + ",200]";
        QTest::newRow("pen") << "\"kind\":\"pen\",\"width\":8,\"points\":[" + longStroke + "]"
                             << QRect(200, 190, 500, 20);
        QTest::newRow("highlighter")
            << QByteArray("\"kind\":\"highlighter\",\"points\":[[200,300],[700,300]]")
            << QRect(200, 280, 500, 40);
        QTest::newRow("arrow") << QByteArray("\"kind\":\"arrow\",\"points\":[[200,400],[700,400]]")
                               << QRect(200, 390, 500, 20);
        QTest::newRow("ellipse")
            << QByteArray(
                   "\"kind\":\"ellipse\",\"color\":\"#00ff00\",\"points\":[[200,500],[700,700]]")
            << QRect(190, 490, 520, 220);
        QTest::newRow("rect") << QByteArray("\"kind\":\"rect\",\"points\":[[200,500],[700,700]]")
                              << QRect(190, 490, 520, 220);
        QTest::newRow("text")
            << QByteArray("\"kind\":\"text\",\"text\":\"Quillery\",\"points\":[[200,850]]")
            << QRect(100, 700, 800, 300);
    }
    void scriptedItemsShowWhereAskedAndGoById() {
        QFETCH(QByteArray, item);
        QFETCH(QRect, area);
        QLocalSocket socket;
        socket.connectToServer(socketPath());
        QVERIFY(socket.waitForConnected(2000));
        QVERIFY(ask(socket, "{\"v\":1,\"cmd\":\"set\",\"fade\":0}")["ok"].toBool());
        const QImage before = XDesktop::screenshot();
        const QJsonObject drawn = ask(socket, "{\"v\":1,\"cmd\":\"draw\"," + item + "}");
        QVERIFY2(drawn["ok"].toBool(), qPrintable(drawn["error"].toString()));
        QVERIFY(QTest::qWaitFor([&] { return changedPixels(before, area) > 200; }, 10000));
        const QByteArray id = QByteArray::number(drawn["id"].toInteger());
        QVERIFY(ask(socket, "{\"v\":1,\"cmd\":\"remove\",\"id\":" + id + "}")["ok"].toBool());
        QVERIFY(QTest::qWaitFor([&] { return changedPixels(before, area) == 0; }, 10000));
    }

    void watchersFollowADrawingSession() {
        QVERIFY(ask("{\"v\":1,\"cmd\":\"set\",\"tool\":\"pen\",\"fade\":0}")["ok"].toBool());
        QLocalSocket watcher;
        watcher.connectToServer(socketPath());
        QVERIFY(watcher.waitForConnected(2000));
        QVERIFY(ask(watcher, "{\"v\":1,\"cmd\":\"watch\"}")["ok"].toBool());
        QProcess commandLine; // a second watcher: its first line says it is in place
        commandLine.start(binary(), {"--watch"});
        QVERIFY(commandLine.waitForReadyRead(5000));
        QCOMPARE(commandLine.readLine(), QByteArray("{\"ok\":true,\"v\":1}\n"));

        QCOMPARE(quillery({"--start"}).exitCode, 0);
        const Run rect = quillery({"--draw", "rect", "100,100", "300,300", "--color", "1"});
        QCOMPARE(rect.exitCode, 0);
        const qint64 id = rect.out.trimmed().toLongLong();
        QVERIFY(XDesktop::drag({{500, 500}, {530, 520}, {560, 520}}));
        QTRY_COMPARE(ask("{\"cmd\":\"state\"}")["items"].toArray().size(), 2);
        QCOMPARE(quillery({"--stop"}).exitCode, 0);
        QCOMPARE(quillery({"--undo"}).exitCode, 0);
        QVERIFY(ask("{\"v\":1,\"cmd\":\"set\",\"fade\":1}")["ok"].toBool());

        const QStringList expected = {"started",
                                      QString("committed %1 rect").arg(id),
                                      QString("committed %1 pen").arg(id + 1),
                                      "stopped",
                                      QString("removed %1").arg(id + 1),
                                      QString("faded %1").arg(id)};
        const auto follow = [&](QIODevice& stream, QStringList& seen) {
            while (stream.canReadLine()) {
                const QJsonObject event = QJsonDocument::fromJson(stream.readLine()).object();
                const QJsonObject bounds = event["bounds"].toObject();
                if (event["kind"] == "rect") // the ink covers the corners asked for
                    QVERIFY(bounds["x"].toInt() <= 100 &&
                            bounds["x"].toInt() + bounds["width"].toInt() >= 300);
                seen << QStringList{event["event"].toString(),
                                    event["id"].isDouble()
                                        ? QString::number(event["id"].toInteger())
                                        : QString(),
                                    event["kind"].toString()}
                            .join(' ')
                            .trimmed();
            }
        };
        QStringList bySocket;
        QStringList byCommandLine;
        QTRY_COMPARE_WITH_TIMEOUT((follow(watcher, bySocket), bySocket), expected, 10000);
        QTRY_COMPARE((follow(commandLine, byCommandLine), byCommandLine), expected);
        commandLine.kill();
        commandLine.waitForFinished();
    }

    void watcherThatDoesNotReadIsDropped() {
        QVERIFY(ask("{\"v\":1,\"cmd\":\"set\",\"fade\":0}")["ok"].toBool());
        QLocalSocket watcher; // no event loop runs until it reads: nothing is taken in
        watcher.connectToServer(socketPath());
        QVERIFY(watcher.waitForConnected(2000));
        QVERIFY(ask(watcher, "{\"cmd\":\"watch\"}")["ok"].toBool());
        QLocalSocket script;
        script.connectToServer(socketPath());
        QVERIFY(script.waitForConnected(2000));
        script.write(QByteArray("{\"cmd\":\"draw\",\"kind\":\"pen\",\"points\":[[10,10]]}\n")
                         .repeated(4000) +
                     "{\"cmd\":\"clear\"}\n");
        qsizetype replies = 0;
        while (replies < 4001 && script.waitForReadyRead(10000))
            replies += script.readAll().count('\n');
        QCOMPARE(replies, 4001);
        QByteArray events;
        QTRY_VERIFY_WITH_TIMEOUT(
            (events += watcher.readAll(), watcher.state() == QLocalSocket::UnconnectedState),
            10000);
        events += watcher.readAll();
        QVERIFY(events.trimmed().split('\n').last().contains("\"overflow\""));
    }

    void badRequestsAreRefusedAndChangeNothing_data() {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QString>("error");
        QByteArray oversized = "{\"v\":1,\"cmd\":\"draw\",\"kind\":\"pen\",\"points\":[";
        while (oversized.size() <= 1024 * 1024)
            oversized += "[100,100],";
        QTest::newRow("not JSON") << QByteArray("{nope}") << "not JSON";
        QTest::newRow("unknown command") << QByteArray("{\"cmd\":\"paint\"}") << "\"paint\"";
        QTest::newRow("missing field")
            << QByteArray("{\"cmd\":\"draw\",\"kind\":\"rect\"}") << "\"points\" is missing";
        QTest::newRow("wrong type")
            << QByteArray("{\"cmd\":\"set\",\"hintBar\":1}") << "\"hintBar\" must be true or false";
        QTest::newRow("unknown field")
            << QByteArray("{\"cmd\":\"set\",\"colour\":2}") << "Unknown field \"colour\"";
        QTest::newRow("other version")
            << QByteArray("{\"v\":2,\"cmd\":\"clear\"}") << "\"v\" is out of range";
        QTest::newRow("colour out of range")
            << QByteArray("{\"cmd\":\"draw\",\"kind\":\"pen\",\"points\":[[1,1]],\"color\":7}")
            << "\"color\" is out of range";
        QTest::newRow("point of three numbers")
            << QByteArray("{\"cmd\":\"draw\",\"kind\":\"pen\",\"points\":[[1,2,3]]}")
            << "\"points\"";
        QTest::newRow("point out of range")
            << QByteArray("{\"cmd\":\"draw\",\"kind\":\"pen\",\"points\":[[1e7,1]]}")
            << "\"points\" is out of range";
        QTest::newRow("no such item")
            << QByteArray("{\"cmd\":\"remove\",\"id\":999999}") << "\"id\" is out of range";
        QTest::newRow("half good set")
            << QByteArray("{\"cmd\":\"set\",\"tool\":\"arrow\",\"fade\":-1}")
            << "\"fade\" is out of range";
        QTest::newRow("oversized") << oversized << "longer than";
        QTest::newRow("truncated")
            << QByteArray("{\"cmd\":\"draw\",\"kind\":\"pen\",\"points\":[[1,2],[3") << "not JSON";
        QTest::newRow("binary") << QByteArray("{\xff\xfe\x00\x01\x80\x1b}") << "not JSON";
        QTest::newRow("deeply nested")
            << QByteArray("{\"a\":").repeated(100000) + QByteArray("}").repeated(100000)
            << "not JSON";
    }
    void badRequestsAreRefusedAndChangeNothing() {
        QFETCH(QByteArray, request);
        QFETCH(QString, error);
        QVERIFY(ask("{\"v\":1,\"cmd\":\"set\",\"fade\":0}")["ok"].toBool());
        QCOMPARE(quillery({"--draw", "arrow", "100,100", "300,300"}).exitCode, 0);
        const QJsonObject before = ask("{\"cmd\":\"state\"}");
        const QJsonObject reply = ask(request);
        QVERIFY2(!reply["ok"].toBool() && reply["error"].toString().contains(error),
                 qPrintable(reply["error"].toString()));
        QCOMPARE(ask("{\"cmd\":\"state\"}"), before);
        QCOMPARE(quillery({"--clear"}).exitCode, 0);
    }

    void secondStartDoesNotRunTwice() {
        QCOMPARE(quillery({}).exitCode, 0);
        QCOMPARE(instance.state(), QProcess::Running);
        QCOMPARE(statusValue("drawing"), QStringLiteral("off"));
        // It never asked to be restored at login: that is its autostart entry's job.
        QVERIFY(!sessionManager.hasPendingConnections());
    }

    // One instance per graphical session: another session of the same user
    // gets its own, and every way of naming this display reaches this one.
    void oneInstancePerGraphicalSession() {
        QCOMPARE(quillery({"--start"}).exitCode, 0);
        const QString display = qEnvironmentVariable("DISPLAY");
        for (const QProcessEnvironment& here :
             {environment({"DISPLAY=unix" + display + ".0"}, {}),
              environment({"DISPLAY=" + display + ".1"}, {}),
              environment({}, {"DISPLAY", "WAYLAND_DISPLAY"})}) // a shell with no display
            QCOMPARE(statusValue("drawing", here), QStringLiteral("on"));

        const QProcessEnvironment elsewhere = environment({"WAYLAND_DISPLAY=wayland-9"}, {});
        QProcess second;
        second.setProcessEnvironment(elsewhere);
        second.start(binary(), {});
        QTRY_COMPARE_WITH_TIMEOUT(statusValue("drawing", elsewhere), QStringLiteral("off"), 15000);
        QCOMPARE(second.state(), QProcess::Running);
        QCOMPARE(statusValue("drawing"), QStringLiteral("on"));
        // With two running, a shell with no display can't tell which it means.
        QCOMPARE(quillery({"--status"}, environment({}, {"DISPLAY", "WAYLAND_DISPLAY"})).exitCode,
                 1);
        QCOMPARE(quillery({"--quit"}, elsewhere).exitCode, 0);
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(quillery({"--stop"}).exitCode, 0);
        QCOMPARE(instance.state(), QProcess::Running);
    }

    void hostileClientsLeaveItRunning() {
        QByteArray garbage(4096, '\0');
        for (char& byte : garbage)
            byte = char(QRandomGenerator::global()->bounded(256));
        for (const QByteArray& bytes :
             {garbage, QByteArray(10 * 1024 * 1024, 'x'), QByteArray("\xff\xfe\n")})
            sendRaw(bytes);
        QLocalSocket silent; // says nothing: dropped after a while, others still served
        silent.connectToServer(socketPath());
        QVERIFY(silent.waitForConnected(2000));
        QCOMPARE(quillery({"--status"}).exitCode, 0);
        QVERIFY(silent.waitForDisconnected(5000));
        QCOMPARE(instance.state(), QProcess::Running);
    }

    void otherUsersAreRefused() {
        const auto setMode = [](const QString& path, mode_t mode) {
            return ::chmod(QFile::encodeName(path).constData(), mode) == 0;
        };
        // The socket is its user's alone, inside a folder of its own.
        QVERIFY((QFile::permissions(socketPath()) & 0x00ff) == 0); // no group or others
        // A control folder that others can enter is not trusted by the client.
        const QString folder = QFileInfo(socketPath()).path();
        QVERIFY(setMode(folder, 0750));
        const Run loose = quillery({"--status"});
        QVERIFY2(loose.exitCode == 1 && loose.err.contains("0750"), qPrintable(loose.err));
        if (::getuid() == 0) {
            // The socket reachable by another user: the server refuses a peer
            // whose user id is not its own.
            const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
            QVERIFY(setMode(folder, 0755) && setMode(socketPath(), 0777) &&
                    setMode(runtime, 0711) && setMode(QFileInfo(runtime).path(), 0711));
            const QByteArray path = QFile::encodeName(socketPath());
            const pid_t child = ::fork();
            if (child == 0) {
                // Plain system calls only: this is a forked copy of a Qt process.
                if (::setgid(65534) != 0 || ::setuid(65534) != 0)
                    ::_exit(3);
                const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
                sockaddr_un address{};
                address.sun_family = AF_UNIX;
                std::strncpy(address.sun_path, path.constData(), sizeof address.sun_path - 1);
                if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
                    ::_exit(4);
                if (::write(fd, "status\n", 7) < 0)
                    ::_exit(0); // already cut off
                pollfd poller{fd, POLLIN, 0};
                ::poll(&poller, 1, 3000);
                char answer[64];
                ::_exit(::read(fd, answer, sizeof answer) > 0 ? 5 : 0);
            }
            int status = 0;
            QCOMPARE(::waitpid(child, &status, 0), child);
            QVERIFY(WIFEXITED(status));
            QCOMPARE(WEXITSTATUS(status), 0);
            QVERIFY(setMode(socketPath(), 0700) && setMode(runtime, 0700) &&
                    setMode(QFileInfo(runtime).path(), 0700));
        }
        QVERIFY(setMode(folder, 0700));
        QCOMPARE(quillery({"--status"}).exitCode, 0);
    }

    void quitEndsTheInstance() {
        QCOMPARE(quillery({"--quit"}).exitCode, 0);
        QVERIFY(instance.waitForFinished(10000));
        QCOMPARE(instance.exitCode(), 0);
        const Run none = quillery({"--status"});
        QVERIFY(none.exitCode == 1 && none.err.contains("not running"));
        // A client alone never makes the control directory.
        const QString directory = qEnvironmentVariable("XDG_RUNTIME_DIR") + "/quillery";
        QVERIFY(QDir(directory).removeRecursively());
        QCOMPARE(quillery({"--status"}).exitCode, 1);
        QVERIFY(!QFileInfo::exists(directory));
    }
};

QTEST_GUILESS_MAIN(RemoteControlTest)
#include "tst_remotecontrol.moc"
