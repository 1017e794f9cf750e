#include "XTestSupport.h"

#include <QFile>
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
        for (const QStringList& bad :
             {QStringList{"--color", "7"}, {"--tool", "brush"}, {"--undo", "--clear"}})
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
        // A control folder that others can enter is not trusted by the client.
        const QString folder = QFileInfo(socketPath()).path();
        QVERIFY(setMode(folder, 0755));
        const Run loose = quillery({"--status"});
        QVERIFY2(loose.exitCode == 1 && loose.err.contains("0755"), qPrintable(loose.err));
        if (::getuid() == 0) {
            // The socket reachable by another user: the server refuses a peer
            // whose user id is not its own.
            const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
            QVERIFY(setMode(socketPath(), 0777) && setMode(runtime, 0711) &&
                    setMode(QFileInfo(runtime).path(), 0711));
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
