#include "RunningQuillery.h"
#include "StatusNotifierHost.h"
#include "XTestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QtTest>
#include <sys/stat.h>
#include <unistd.h>

using namespace RunningQuillery;
using namespace XDesktop;

// The real program run twice on a composited desktop: first by hand before any
// panel, until one brings a tray; then beside a StatusNotifierItem host in a
// session manager's session, driven by scripts.
class EndToEndTest : public QObject {
    Q_OBJECT

    QTemporaryDir scratch;
    QProcess desktop; // the first run
    QByteArray said;  // on its error output
    QProcess panel;
    QProcess bus;
    QProcess instance; // the second run
    StatusNotifierHost host;

    // The screen above the panel.
    static int ink(bool (*colour)(QColor)) { return countPixels(colour, QRect(0, 0, 1920, 1040)); }
    void drawStroke(int y) {
        QVERIFY(drag({{400, y}, {500, y + 40}, {650, y + 80}, {800, y + 100}}));
    }
    // Opens the tray menu with a click on the icon, then types the keys.
    static bool inTrayMenu(int button, const char* keys) {
        const QPoint icon = trayIcon().center();
        return xdotool(QString::asprintf("mousemove %d %d click %d sleep 0.4 key %s", icon.x(),
                                         icon.y(), button, keys));
    }

    // One socket per graphical session, named after the X display here.
    static QString socketPath() {
        return qEnvironmentVariable("XDG_RUNTIME_DIR") + "/quillery/x11-" +
               qEnvironmentVariable("DISPLAY").mid(1) + ".control";
    }
    // A JSON connection, new unless one is given: each request line gets one answer line.
    static QJsonObject ask(const QByteArray& request, QLocalSocket* given = nullptr) {
        QLocalSocket own;
        QLocalSocket& socket = given ? *given : own;
        socket.connectToServer(socketPath());
        socket.waitForConnected(2000);
        socket.write(request + '\n');
        while (!socket.canReadLine() && socket.waitForReadyRead(5000)) {
        }
        return QJsonDocument::fromJson(socket.readLine()).object();
    }

private Q_SLOTS:
    void withoutADisplayItSaysSoAndExits() {
        const Finished headless =
            finish(binary(), {}, environment({"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}));
        QCOMPARE(headless.exitCode, 1);
        QCOMPARE(headless.err,
                 "Quillery needs a graphical desktop (X11) to run: no DISPLAY is set.\n");
    }

    void firstLaunchShowsTheWelcomeWindowAndSaysThereIsNoTray() {
        setSetting("fadeSeconds", 1); // to keep the test quick
        desktop.start(binary(), {});
        QTRY_COMPARE_WITH_TIMEOUT(windowsNamed("^Welcome to Quillery$").size(), 1, 10000);
        QCOMPARE(setting("didShowWelcome"), QStringLiteral("true"));
        QVERIFY(xdotool("windowactivate --sync " + windowsNamed("^Welcome to Quillery$").first() +
                        " key Return"));
        QTRY_VERIFY(windowsNamed("^Welcome to Quillery$").isEmpty());
        QTRY_VERIFY((said += desktop.readAllStandardError()).contains("no system tray"));
        QVERIFY(trayIcon().isNull());
    }

    void shortcutStartsDrawingKeysChooseTheColourEscapeStopsAndTheInkFades() {
        QCOMPARE(ink(isRed), 0);
        QVERIFY(xdotool("key ctrl+alt+d"));
        QTRY_VERIFY(overlayIsUp());
        drawStroke(300);
        QVERIFY(inkShows(isRed));
        QVERIFY(xdotool("key 2"));
        drawStroke(600);
        QVERIFY(inkShows(isYellow));
        QVERIFY(xdotool("key Escape"));
        // After fadeSeconds (1) and the fade itself (0.8 s) nothing is left.
        QTRY_COMPARE_WITH_TIMEOUT(ink(isRed) + ink(isYellow), 0, 10000);
        QTRY_VERIFY(!overlayIsUp());
    }

    void aPanelStartingLaterGetsTheIconAndItsMenuWorks() {
        panel.start("tint2", {});
        QTRY_VERIFY_WITH_TIMEOUT(!trayIcon().isNull(), 15000); // once the tray announces itself
        QCOMPARE((said += desktop.readAllStandardError()).count("no system tray"), 1); // once
        QVERIFY(inTrayMenu(1, "Down Return")); // a left click opens it too; "Start Drawing"
        QTRY_VERIFY(overlayIsUp());
        drawStroke(450);
        QVERIFY(xdotool("key Escape"));
        QVERIFY(inkShows(isYellow)); // the colour chosen earlier
        // With ink still fading on the overlay, so that quitting takes that down too.
        QVERIFY(inTrayMenu(3, "Up Return")); // "Quit Quillery", the last item
        QVERIFY(desktop.waitForFinished(10000));
        QCOMPARE(desktop.exitCode(), 0);
        QTRY_VERIFY(!overlayIsUp());
        QTRY_COMPARE(ink(isYellow), 0);
    }

    // The second run: a host reads the menu without asking the program to get it ready.
    void aStatusNotifierHostSeesTheWholeMenuBeforeItIsShown() {
        for (QProcess* first : {&desktop, &panel}) // even if the first run went wrong
            first->kill(), first->waitForFinished();
        QVERIFY(QFile::remove(settingsFile()));
        setSetting("didShowWelcome", true);
        const QString address = "unix:path=" + scratch.filePath("bus");
        bus.start("dbus-daemon", {"--session", "--nofork", "--address=" + address});
        QTRY_VERIFY(QFile::exists(scratch.filePath("bus")));
        QVERIFY(host.watch(QDBusConnection::connectToBus(address, "watcher")));
        instance.setProcessEnvironment(environment({"DBUS_SESSION_BUS_ADDRESS=" + address}));
        instance.setProcessChannelMode(QProcess::ForwardedChannels);
        instance.start(binary(), {});
        QTRY_VERIFY_WITH_TIMEOUT(host.layout().size() > 1, 15000);
        QCOMPARE(host.layout().join(" | "),
                 "Start Drawing   (Ctrl+Alt+D) | Clear All | --- | Fade after > |   Never [ ] |"
                 "   2 seconds [ ] |   4 seconds [x] |   8 seconds [ ] |   15 seconds [ ] |"
                 " Launch at Login [ ] | --- | Settings… | How to Draw… | --- | Quit Quillery");
    }

    // The exported menu and the status follow the program, whoever changes them.
    void commandsAndTheMenuFollowEachOther() {
        for (const char* option : {"--start", "--toggle", "--toggle", "--stop"}) {
            const QString drawing = status("drawing") == "on" ? "off" : "on";
            QVERIFY(command(option));
            QCOMPARE(status("drawing"), drawing);
            QTRY_COMPARE(host.layout().value(0),
                         (drawing == "on" ? "Stop" : "Start") + QString(" Drawing   (Ctrl+Alt+D)"));
        }
        QVERIFY(host.click("Never")); // which keeps the ink still for the checks on screen below
        QTRY_VERIFY(host.layout().contains("  Never [x]"));
        QVERIFY(host.layout().contains("  4 seconds [ ]"));
    }

    void eachKindDrawnShowsWhereAskedAndGoesById_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QRect>("area");
        const auto row = [](const char* kind, const QStringList& points, const QRect& area) {
            QTest::newRow(kind) << QStringList{kind} + points << area;
        };
        QStringList longStroke{"--width=8"}; // far longer than a plain command may be
        for (int i = 0; i <= 20000; ++i)
            longStroke << QStringLiteral("%1,200").arg(200 + i * 0.025);
        row("pen", longStroke, {200, 190, 500, 20});
        row("highlighter", {"200,300", "700,300"}, {200, 280, 500, 40});
        row("arrow", {"200,400", "700,400"}, {200, 390, 500, 20});
        row("ellipse", {"200,500", "700,700", "--color=#00ff00"}, {190, 490, 520, 220});
        row("rect", {"200,500", "700,700"}, {190, 490, 520, 220});
        row("text", {"200,850", "--text=Quillery"}, {100, 700, 800, 300});
    }
    void eachKindDrawnShowsWhereAskedAndGoesById() {
        QFETCH(QStringList, arguments);
        QFETCH(QRect, area);
        const QImage before = screenshot().copy(area);
        const Finished drawn = finish(binary(), QStringList{"--draw"} + arguments);
        QVERIFY2(drawn.exitCode == 0, drawn.err.constData());
        QVERIFY(QTest::qWaitFor([&] { return screenshot().copy(area) != before; }, 10000));
        QVERIFY(ask(R"({"v":1,"cmd":"remove","id":)" + drawn.out.trimmed() + "}")["ok"].toBool());
        QVERIFY(QTest::qWaitFor([&] { return screenshot().copy(area) == before; }, 10000));
    }

    void badRequestsAreRefusedAndChangeNothing_data() {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QString>("error");
        const auto row = [](const char* name, const QByteArray& request, const char* error) {
            QTest::newRow(name) << request << QString(error);
        };
        QByteArray oversized = R"({"v":1,"cmd":"draw","kind":"pen","points":[)";
        while (oversized.size() <= 1024 * 1024)
            oversized += "[100,100],";
        row("oversized", oversized, "longer than");
        row("not JSON", "{nope}", "not JSON");
        row("unknown command", R"({"cmd":"paint"})", "\"paint\"");
        row("unknown field", R"({"cmd":"set","colour":2})", "Unknown field \"colour\"");
        row("point of three numbers", R"({"cmd":"draw","kind":"pen","points":[[1,2,3]]})",
            "\"points\" must be");
        row("no such item", R"({"cmd":"remove","id":999999})", "\"id\" is out of range");
        row("half good set", R"({"cmd":"set","tool":"arrow","fade":-1})", "\"fade\" is out of");
    }
    void badRequestsAreRefusedAndChangeNothing() {
        QFETCH(QByteArray, request);
        QFETCH(QString, error);
        QCOMPARE(finish(binary(), {"--draw", "arrow", "100,100", "300,300"}).exitCode, 0);
        const QJsonObject before = ask(R"({"cmd":"state"})");
        const QJsonObject reply = ask(request);
        QVERIFY2(!reply["ok"].toBool() && reply["error"].toString().contains(error),
                 qPrintable(reply["error"].toString()));
        QCOMPARE(ask(R"({"cmd":"state"})"), before);
        QVERIFY(command("--clear"));
    }

    // A command line it cannot read: a message naming what is wrong, status 2, nothing done.
    void badCommandLinesAreRefused() {
        const QJsonObject before = ask(R"({"cmd":"state"})");
        for (const QStringList& bad : {QStringList{"--paint"},
                                       {"--tool", "brush"},
                                       {"--undo", "--clear"},
                                       {"--draw", "pen", "1;1"}}) {
            const Finished run = finish(binary(), bad);
            QVERIFY2(run.exitCode == 2 && !run.err.isEmpty(), qPrintable(bad.join(' ')));
        }
        QVERIFY(finish(binary(), {"--paint"}).err.contains("paint"));
        QCOMPARE(ask(R"({"cmd":"state"})"), before);
    }

    // Rather than queue without end for a watcher that never reads.
    void aWatcherThatNeverReadsIsDropped() {
        QLocalSocket watcher, script; // no event loop runs while waiting: nothing is taken in
        QVERIFY(ask(R"({"cmd":"watch"})", &watcher)["ok"].toBool());
        script.connectToServer(socketPath());
        QVERIFY(script.waitForConnected(2000));
        script.write(QByteArray(R"({"cmd":"draw","kind":"pen","points":[[10,10]]})"
                                "\n")
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
        QVERIFY((events + watcher.readAll()).trimmed().split('\n').last().contains("overflow"));
    }

    void watchersFollowADrawingSession() {
        QProcess watcher; // its first line says it is in place
        watcher.start(binary(), {"--watch"});
        QVERIFY(watcher.waitForReadyRead(5000));
        QCOMPARE(watcher.readLine(), QByteArray("{\"ok\":true,\"v\":1}\n"));

        QVERIFY(command("--start"));
        const qint64 id = finish(binary(), {"--draw", "rect", "100,100", "300,300", "--color=1"})
                              .out.trimmed()
                              .toLongLong();
        QVERIFY(drag({{500, 500}, {530, 520}, {560, 520}}));
        QTRY_COMPARE(ask(R"({"cmd":"state"})")["items"].toArray().size(), 2);
        QVERIFY(command("--stop") && command("--undo"));
        QVERIFY(ask(R"({"v":1,"cmd":"set","fade":1})")["ok"].toBool());

        QStringList seen;
        const auto follow = [&] {
            while (watcher.canReadLine()) {
                const QJsonObject event = QJsonDocument::fromJson(watcher.readLine()).object();
                seen << (event["event"].toString() + ' ' + event["id"].toVariant().toString() +
                         ' ' + event["kind"].toString())
                            .trimmed();
            }
            return seen;
        };
        QTRY_COMPARE_WITH_TIMEOUT(
            follow().join(", "),
            QString("started, committed %1 rect, committed %2 pen, stopped, removed %2, faded %1")
                .arg(id)
                .arg(id + 1),
            10000);
        watcher.kill();
        watcher.waitForFinished();
    }

    // One instance per graphical session, whatever name the display goes by.
    void oneInstancePerGraphicalSession() {
        QCOMPARE(finish(binary(), {}).exitCode, 0);
        QCOMPARE(instance.state(), QProcess::Running);
        QVERIFY(command("--start"));
        for (const QString& display : {"DISPLAY=unix" + qEnvironmentVariable("DISPLAY") + ".1",
                                       QStringLiteral("DISPLAY")}) // the second: none at all
            QCOMPARE(status("drawing", environment({display, "WAYLAND_DISPLAY"})),
                     QStringLiteral("on"));
        QVERIFY(command("--stop"));
    }

    void otherUsersAreRefused() {
        const auto setMode = [](const QString& path, mode_t mode) {
            return ::chmod(QFile::encodeName(path).constData(), mode) == 0;
        };
        // The socket is its user's alone, in a folder the client trusts only if others can't enter.
        QVERIFY((QFile::permissions(socketPath()) & 0x00ff) == 0);
        const QString folder = QFileInfo(socketPath()).path();
        QVERIFY(setMode(folder, 0750));
        const Finished loose = finish(binary(), {"--status"});
        QVERIFY2(loose.exitCode == 1 && loose.err.contains("0750"), loose.err.constData());
        QVERIFY(setMode(folder, 0700));
        if (::getuid() == 0) {
            // Another user who reaches the socket gets no answer from the server.
            const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
            const auto handTo = [&](uid_t user, mode_t mode) {
                return ::chown(QFile::encodeName(folder).constData(), user, user) == 0 &&
                       setMode(socketPath(), mode | 0700) && setMode(runtime, mode | 0700) &&
                       setMode(QFileInfo(runtime).path(), mode | 0700);
            };
            QVERIFY(handTo(65534, 0077));
            const Finished stranger = finish("setpriv", {"--reuid=65534", "--regid=65534",
                                                         "--clear-groups", binary(), "--status"});
            QVERIFY(handTo(0, 0));
            QVERIFY2(stranger.exitCode == 1 && stranger.err.contains("did not answer"),
                     (stranger.out + stranger.err).constData());
        }
        QVERIFY(command("--status"));
    }

    void quitEndsTheInstance() {
        QVERIFY(command("--quit"));
        QVERIFY(instance.waitForFinished(10000));
        QCOMPARE(instance.exitCode(), 0);
        const Finished none = finish(binary(), {"--status"});
        QVERIFY(none.exitCode == 1 && none.err.contains("not running"));
        // A client alone never makes the control directory.
        const QString directory = qEnvironmentVariable("XDG_RUNTIME_DIR") + "/quillery";
        QVERIFY(QDir(directory).removeRecursively());
        QVERIFY(!command("--status") && !QFileInfo::exists(directory));
        bus.terminate();
        QVERIFY(bus.waitForFinished(5000));
    }
};

QTEST_GUILESS_MAIN(EndToEndTest)
#include "tst_endtoend.moc"
