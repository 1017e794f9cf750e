#include "ProgramWindows.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QSettings>
#include <QtTest>

// The real program, started as a user would on a desktop with a window manager,
// a compositor and a panel with a tray, and used through real keys and mouse.
class EndToEndTest : public QObject {
    Q_OBJECT

    QProcess quillery;
    QElapsedTimer sinceLastStroke;

    static QString binary() { return qEnvironmentVariable("QUILLERY_BINARY"); }
    static QString settingsFile() {
        return qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Quillery/Quillery.conf");
    }
    static QString setting(const QString& key) {
        return QSettings(settingsFile(), QSettings::IniFormat).value(key).toString();
    }

    static int inkPixels(bool (*colour)(QColor)) {
        return XDesktop::countPixels(XDesktop::screenshot(), colour, QRect(0, 0, 1920, 1040));
    }

    void drawStroke(int y) {
        QVERIFY(XDesktop::drag({{400, y}, {500, y + 40}, {650, y + 80}, {800, y + 100}}));
        sinceLastStroke.restart();
    }

private Q_SLOTS:
    void withoutADisplayItSaysSoAndExits() {
        QProcess headless;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            environment.remove(QString::fromLatin1(name));
        headless.setProcessEnvironment(environment);
        headless.start(binary(), {});
        QVERIFY(headless.waitForFinished(10000));
        QCOMPARE(headless.exitStatus(), QProcess::NormalExit);
        QCOMPARE(headless.exitCode(), 1);
        QCOMPARE(
            headless.readAllStandardError(),
            QByteArray("Quillery needs a graphical desktop (X11) to run: no DISPLAY is set.\n"));
    }

    void firstLaunchShowsTheWelcomeWindow() {
        QVERIFY(XDesktop::waitForWindowManager());
        QDir().mkpath(QFileInfo(settingsFile()).path());
        QFile file(settingsFile());
        QVERIFY(file.open(QIODevice::WriteOnly));
        // Shorter than any menu choice, to keep the test quick.
        file.write("[General]\nfadeSeconds=1\n");
        file.close();

        quillery.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        quillery.start(binary(), {});
        QVERIFY(quillery.waitForStarted());
        QTRY_COMPARE_WITH_TIMEOUT(
            XDesktop::windowsNamed(QStringLiteral("^Welcome to Quillery$")).size(), 1, 10000);
        QCOMPARE(setting(QStringLiteral("didShowWelcome")), QStringLiteral("true"));

        const QString welcome =
            XDesktop::windowsNamed(QStringLiteral("^Welcome to Quillery$")).first();
        QVERIFY(XDesktop::xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"),
                                   welcome, QStringLiteral("key"), QStringLiteral("Return")}));
        QTRY_VERIFY(!ProgramWindows::isShown(welcome));
        QTRY_VERIFY_WITH_TIMEOUT(!ProgramWindows::trayIcon().isNull(), 10000);
    }

    void shortcutStartsDrawingAndKeysChooseTheColour() {
        QCOMPARE(inkPixels(XDesktop::isRed), 0);
        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), QStringLiteral("ctrl+alt+d")}));
        QTRY_VERIFY(ProgramWindows::overlayIsUp());
        drawStroke(300);
        QTRY_VERIFY(inkPixels(XDesktop::isRed) > 200);

        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), QStringLiteral("2")}));
        drawStroke(600);
        QTRY_VERIFY(inkPixels(XDesktop::isYellow) > 200);
    }

    void escapeStopsAndTheInkFadesAway() {
        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), QStringLiteral("Escape")}));
        // fadeSeconds (1) and the fade itself (0.8 s), with a little slack for painting.
        QTest::qWait(qMax<qint64>(0, 2100 - sinceLastStroke.elapsed()));
        QCOMPARE(inkPixels(XDesktop::isRed), 0);
        QCOMPARE(inkPixels(XDesktop::isYellow), 0);
        QTRY_VERIFY(!ProgramWindows::overlayIsUp());
        QCOMPARE(quillery.state(), QProcess::Running);
    }

    void trayMenuChoosesTheFadeDelayAndStartsDrawing() {
        const QRect icon = ProgramWindows::trayIcon();
        const QStringList openMenu{QStringLiteral("mousemove"),
                                   QString::number(icon.center().x()),
                                   QString::number(icon.center().y()),
                                   QStringLiteral("click"),
                                   QStringLiteral("3"),
                                   QStringLiteral("sleep"),
                                   QStringLiteral("0.4")};
        // Third item, "Fade after"; its second choice, "2 seconds".
        QVERIFY(XDesktop::xdotool(openMenu +
                                  QStringList{QStringLiteral("key"), QStringLiteral("Down"),
                                              QStringLiteral("Down"), QStringLiteral("Down"),
                                              QStringLiteral("Right"), QStringLiteral("sleep"),
                                              QStringLiteral("0.2"), QStringLiteral("key"),
                                              QStringLiteral("Down"), QStringLiteral("Return")}));
        QTRY_COMPARE(setting(QStringLiteral("fadeSeconds")), QStringLiteral("2"));

        QVERIFY(!ProgramWindows::overlayIsUp());
        QVERIFY(
            XDesktop::xdotool(openMenu + QStringList{QStringLiteral("key"), QStringLiteral("Down"),
                                                     QStringLiteral("Return")}));
        QTRY_VERIFY(ProgramWindows::overlayIsUp());
        // The colour chosen earlier is still in use.
        drawStroke(450);
        QTRY_VERIFY(inkPixels(XDesktop::isYellow) > 200);
        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), QStringLiteral("ctrl+alt+d")}));
        QTRY_VERIFY_WITH_TIMEOUT(!ProgramWindows::overlayIsUp(), 6000);
        QCOMPARE(inkPixels(XDesktop::isYellow), 0);
    }

    void leftClickOpensTheMenuAndQuitEndsTheProgram() {
        const QRect icon = ProgramWindows::trayIcon();
        auto menuIsOpen = [&] {
            for (const auto& window : ProgramWindows::visible())
                if (window.second != icon && window.second.height() > 100 &&
                    window.second.height() < 1080)
                    return true;
            return false;
        };
        QVERIFY(!menuIsOpen());
        QVERIFY(XDesktop::xdotool({QStringLiteral("mousemove"), QString::number(icon.center().x()),
                                   QString::number(icon.center().y()), QStringLiteral("click"),
                                   QStringLiteral("1")}));
        QTRY_VERIFY(menuIsOpen());

        // With ink still fading on the click-through overlay, so that quitting
        // also takes the overlay down.
        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), QStringLiteral("Escape")}));
        QTRY_VERIFY(!menuIsOpen());
        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), QStringLiteral("ctrl+alt+d")}));
        QTRY_VERIFY(ProgramWindows::overlayIsUp());
        drawStroke(500);
        QVERIFY(XDesktop::xdotool({QStringLiteral("key"), QStringLiteral("Escape")}));
        QTRY_VERIFY(inkPixels(XDesktop::isYellow) > 200);
        QVERIFY(ProgramWindows::overlayIsUp());
        // The last item, "Quit Quillery".
        QVERIFY(XDesktop::xdotool({QStringLiteral("mousemove"), QString::number(icon.center().x()),
                                   QString::number(icon.center().y()), QStringLiteral("click"),
                                   QStringLiteral("3"), QStringLiteral("sleep"),
                                   QStringLiteral("0.4"), QStringLiteral("key"),
                                   QStringLiteral("Up"), QStringLiteral("Return")}));
        QVERIFY(quillery.waitForFinished(10000));
        QCOMPARE(quillery.exitStatus(), QProcess::NormalExit);
        QCOMPARE(quillery.exitCode(), 0);
        QTRY_VERIFY(!ProgramWindows::overlayIsUp());
        QCOMPARE(inkPixels(XDesktop::isYellow), 0);
    }

    void cleanupTestCase() {
        quillery.terminate();
        quillery.waitForFinished(5000);
    }
};

QTEST_MAIN(EndToEndTest)
#include "tst_endtoend.moc"
