#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QProcess>
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
    static QString socketPath() {
        return qEnvironmentVariable("XDG_RUNTIME_DIR") + QStringLiteral("/quillery/control");
    }

    static Run quillery(const QStringList& arguments) {
        QProcess process;
        process.start(binary(), arguments);
        if (!process.waitForFinished(15000)) {
            process.kill();
            process.waitForFinished();
            return {-1, {}, QStringLiteral("timed out")};
        }
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2,
                QString::fromLocal8Bit(process.readAllStandardOutput()),
                QString::fromLocal8Bit(process.readAllStandardError())};
    }

    static QString statusValue(const QString& key) {
        const Run run = quillery({QStringLiteral("--status")});
        for (const QString& line : run.out.split(QLatin1Char('\n'))) {
            if (line.startsWith(key + QStringLiteral(": ")))
                return line.mid(key.size() + 2);
        }
        return QStringLiteral("<no %1 in \"%2\" / \"%3\">").arg(key, run.out, run.err);
    }

    static void xdotool(const QStringList& arguments) {
        QCOMPARE(QProcess::execute(QStringLiteral("xdotool"), arguments), 0);
    }

    // A client that sends the bytes and reports whether the program kept running.
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

private Q_SLOTS:
    void initTestCase() {
        QVERIFY2(QFile::exists(binary()), qPrintable(binary()));
        instance.setProcessChannelMode(QProcess::ForwardedChannels);
        instance.start(binary(), {});
        QVERIFY(instance.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(quillery({QStringLiteral("--status")}).exitCode == 0, 15000);
    }

    void cleanupTestCase() {
        if (instance.state() != QProcess::NotRunning) {
            instance.kill();
            instance.waitForFinished();
        }
    }

    void answersWithoutAnInstanceAreImmediate() {
        const Run help = quillery({QStringLiteral("--help")});
        QCOMPARE(help.exitCode, 0);
        QVERIFY(help.out.contains(QStringLiteral("--toggle")));
        const Run version = quillery({QStringLiteral("--version")});
        QCOMPARE(version.exitCode, 0);
        QVERIFY(version.out.startsWith(QStringLiteral("quillery ")));
        const Run wrong = quillery({QStringLiteral("--paint")});
        QCOMPARE(wrong.exitCode, 2);
        QVERIFY(wrong.err.contains(QStringLiteral("paint")));
        QCOMPARE(quillery({QStringLiteral("--color"), QStringLiteral("7")}).exitCode, 2);
        QCOMPARE(quillery({QStringLiteral("--tool"), QStringLiteral("brush")}).exitCode, 2);
        QCOMPARE(quillery({QStringLiteral("--undo"), QStringLiteral("--clear")}).exitCode, 2);
    }

    void drawingThroughCommands() {
        QCOMPARE(statusValue(QStringLiteral("drawing")), QStringLiteral("off"));
        QCOMPARE(quillery({QStringLiteral("--start")}).exitCode, 0);
        QCOMPARE(statusValue(QStringLiteral("drawing")), QStringLiteral("on"));

        xdotool({QStringLiteral("mousemove"), QStringLiteral("300"), QStringLiteral("300")});
        xdotool({QStringLiteral("mousedown"), QStringLiteral("1")});
        for (int x = 310; x <= 400; x += 15)
            xdotool({QStringLiteral("mousemove"), QString::number(x), QStringLiteral("320")});
        xdotool({QStringLiteral("mouseup"), QStringLiteral("1")});
        QTRY_COMPARE(statusValue(QStringLiteral("items")), QStringLiteral("1"));

        QCOMPARE(quillery({QStringLiteral("--undo")}).exitCode, 0);
        QCOMPARE(statusValue(QStringLiteral("items")), QStringLiteral("0"));

        QCOMPARE(quillery({QStringLiteral("--tool"), QStringLiteral("arrow")}).exitCode, 0);
        QCOMPARE(quillery({QStringLiteral("--color"), QStringLiteral("2")}).exitCode, 0);
        QCOMPARE(statusValue(QStringLiteral("tool")), QStringLiteral("arrow"));
        QCOMPARE(statusValue(QStringLiteral("color")), QStringLiteral("Yellow"));
        QCOMPARE(statusValue(QStringLiteral("width")), QStringLiteral("4"));

        QCOMPARE(quillery({QStringLiteral("--toggle")}).exitCode, 0);
        QCOMPARE(statusValue(QStringLiteral("drawing")), QStringLiteral("off"));
        QCOMPARE(quillery({QStringLiteral("--toggle")}).exitCode, 0);
        QCOMPARE(statusValue(QStringLiteral("drawing")), QStringLiteral("on"));
        QCOMPARE(quillery({QStringLiteral("--stop")}).exitCode, 0);
        QCOMPARE(statusValue(QStringLiteral("drawing")), QStringLiteral("off"));
    }

    void secondStartDoesNotRunTwice() {
        const Run second = quillery({});
        QCOMPARE(second.exitCode, 0);
        QCOMPARE(instance.state(), QProcess::Running);
        QCOMPARE(statusValue(QStringLiteral("drawing")), QStringLiteral("off"));
    }

    void hostileClientsLeaveItRunning() {
        QByteArray garbage(4096, '\0');
        for (char& byte : garbage)
            byte = char(QRandomGenerator::global()->bounded(256));
        sendRaw(garbage);
        sendRaw(QByteArray(10 * 1024 * 1024, 'x'));
        sendRaw("\xff\xfe\n");
        {
            // Connects and says nothing: dropped after the timeout, others still served.
            QLocalSocket silent;
            silent.connectToServer(socketPath());
            QVERIFY(silent.waitForConnected(2000));
            QCOMPARE(quillery({QStringLiteral("--status")}).exitCode, 0);
            QVERIFY(silent.waitForDisconnected(5000));
        }
        QCOMPARE(instance.state(), QProcess::Running);
        QCOMPARE(statusValue(QStringLiteral("drawing")), QStringLiteral("off"));
    }

    void otherUsersAreRefused() {
        const QString directory = QFileInfo(socketPath()).path();
        // A control directory others can enter is not trusted by the client.
        QVERIFY(::chmod(QFile::encodeName(directory).constData(), 0755) == 0);
        const Run loose = quillery({QStringLiteral("--status")});
        QCOMPARE(loose.exitCode, 1);
        QVERIFY2(loose.err.contains(QStringLiteral("0755")), qPrintable(loose.err));

        if (::getuid() == 0) {
            // Let another user reach the socket file itself: the server still
            // refuses a peer whose user id is not its own.
            QVERIFY(::chmod(QFile::encodeName(socketPath()).constData(), 0777) == 0);
            // The private runtime folders of this test run must let the other user through.
            const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
            for (const QString& folder : {runtime, QFileInfo(runtime).path()})
                QVERIFY(::chmod(QFile::encodeName(folder).constData(), 0711) == 0);
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
                const char request[] = "status\n";
                if (::write(fd, request, sizeof request - 1) < 0)
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
            QVERIFY(::chmod(QFile::encodeName(socketPath()).constData(), 0700) == 0);
            for (const QString& folder : {runtime, QFileInfo(runtime).path()})
                QVERIFY(::chmod(QFile::encodeName(folder).constData(), 0700) == 0);
        }
        QVERIFY(::chmod(QFile::encodeName(directory).constData(), 0700) == 0);
        QCOMPARE(quillery({QStringLiteral("--status")}).exitCode, 0);
    }

    void quitEndsTheInstance() {
        QCOMPARE(quillery({QStringLiteral("--quit")}).exitCode, 0);
        QVERIFY(instance.waitForFinished(10000));
        QCOMPARE(instance.exitCode(), 0);
        const Run none = quillery({QStringLiteral("--status")});
        QCOMPARE(none.exitCode, 1);
        QVERIFY(none.err.contains(QStringLiteral("not running")));
    }
};

QTEST_GUILESS_MAIN(RemoteControlTest)
#include "tst_remotecontrol.moc"
