#include "AppDelegate.h"
#include "Clock.h"
#include "DrawingStore.h"
#include "HotKeyConfig.h"
#include "OverlayController.h"
#include "Settings.h"
#include "SettingsWindow.h"
#include "WelcomeWindow.h"

#include <QApplication>
#include <QComboBox>
#include <QMenu>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>
#include <cstdio>

// Settings files edited by hand, or damaged: every key with values of the
// wrong type, empty, not a number, infinite, huge, negative, or text where a
// number belongs. Each case runs Quillery's own start-up, tray menu, Settings
// window and fading in a process of its own, since some values must stop the
// program: those stop it with one line that names the key, the value and the
// file; every other value falls back to its default and Quillery runs on. The
// file itself is never rewritten with anything but the program's own change,
// also when two processes write it at the same time.

namespace {

constexpr double t0 = 7000.0;
const char* const childFlag = "--settings-child";
const char* const writerFlag = "--settings-writer";

void say(const QString& line) {
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

QString checkedFadeChoice(QMenu* menu) {
    for (QMenu* submenu : menu->findChildren<QMenu*>(Qt::FindDirectChildrenOnly))
        for (QAction* action : submenu->actions())
            if (action->isChecked())
                return action->text();
    return QStringLiteral("none");
}

// What Quillery does with the settings over a short session, as "what: how" lines.
int runQuillery(int argc, char** argv) {
    QApplication application(argc, argv);
    AppDelegate::prepareApplication();
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    say(QStringLiteral("shortcut: ") + HotKeyConfig::current().display());
    const bool welcomed = delegate.welcomeWindow() && delegate.welcomeWindow()->isVisible();
    say(QStringLiteral("welcome: ") +
        (welcomed ? QStringLiteral("shown") : QStringLiteral("not shown")));

    delegate.menuNeedsUpdate();
    say(QStringLiteral("fade menu: ") + checkedFadeChoice(delegate.menu()));
    delegate.showSettings();
    say(QStringLiteral("settings fade: ") +
        delegate.settingsWindow()->fadeComboBox()->currentText());

    OverlayController& overlay = OverlayController::shared();
    DrawingStore& store = overlay.store();
    Clock::setFixedNow(t0);
    overlay.start();
    say(QStringLiteral("hint bar: ") +
        (Settings::shared().hudVisible() ? QStringLiteral("on") : QStringLiteral("off")));
    store.begin({100, 100});
    store.finishStroke({300, 200});
    overlay.stop();
    // Long after: the fade timer, running as it would, finds the stroke faded or not.
    Clock::setFixedNow(t0 + 1000);
    QTimer::singleShot(3 * DrawingStore::timerIntervalMs, &application, &QApplication::quit);
    application.exec();
    say(QStringLiteral("faded: ") +
        (store.items().empty() ? QStringLiteral("yes") : QStringLiteral("no")));
    return 0;
}

// Writes one group of keys, count times, as the tray menu or the Settings window would.
int runWriter(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QString group = application.arguments().value(2);
    const int count = application.arguments().value(3).toInt();
    static const double delays[] = {0, 2, 4, 8, 15};
    for (int i = 0; i < count; ++i) {
        if (group == QLatin1String("menu")) {
            Settings::shared().setFadeSeconds(delays[i % 5]);
            Settings::shared().setHudVisible(i % 2 == 0);
        } else {
            HotKeyConfig config;
            config.keyCode = quint32(i);
            config.keyName = QStringLiteral("K%1").arg(i);
            config.save();
            Settings::shared().setDidShowWelcome(true);
        }
    }
    return 0;
}

} // namespace

class BadSettingsTest : public QObject {
    Q_OBJECT

    struct Run {
        QProcess::ExitStatus status = QProcess::NormalExit;
        int exitCode = -1;
        QStringList out;
        QStringList err;
        QString line(const QString& what) const {
            for (const QString& line : out)
                if (line.startsWith(what + QStringLiteral(": ")))
                    return line.mid(what.size() + 2);
            return QStringLiteral("(missing)");
        }
    };

    std::unique_ptr<QTemporaryDir> home;

    QString settingsFile() const {
        return home->path() + QStringLiteral("/config/Quillery/Quillery.conf");
    }
    void writeSettings(const QByteArray& contents) const {
        QDir().mkpath(QFileInfo(settingsFile()).path());
        QFile file(settingsFile());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(contents);
    }
    QByteArray settingsContents() const {
        QFile file(settingsFile());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    QProcessEnvironment environment() const {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home->path() + QStringLiteral("/config"));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home->path() + QStringLiteral("/runtime"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        return env;
    }
    Run run(const QString& program, const QStringList& arguments, int timeoutMs = 30000) const {
        QProcess process;
        process.setProcessEnvironment(environment());
        process.start(program, arguments);
        Run result;
        if (!process.waitForFinished(timeoutMs)) {
            process.kill();
            process.waitForFinished();
            result.err << QStringLiteral("(did not finish)");
            return result;
        }
        result.status = process.exitStatus();
        result.exitCode = process.exitCode();
        result.out =
            QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
        result.err =
            QString::fromUtf8(process.readAllStandardError()).split(u'\n', Qt::SkipEmptyParts);
        return result;
    }
    Run runQuilleryWith(const QByteArray& contents) {
        writeSettings(contents);
        return run(QCoreApplication::applicationFilePath(), {QString::fromLatin1(childFlag)});
    }
    // The lines Quillery itself wrote on stderr, but for its notice that the
    // test's desktop has no tray.
    static QStringList ownLines(const Run& run) {
        QStringList lines = run.err.filter(
            QRegularExpression(QStringLiteral("^Quillery(?!: there is no system tray)")));
        return lines;
    }

private Q_SLOTS:
    void init() {
        home = std::make_unique<QTemporaryDir>();
        QVERIFY(home->isValid());
        QDir().mkpath(home->path() + QStringLiteral("/runtime"));
        QFile::setPermissions(home->path() + QStringLiteral("/runtime"),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                  QFileDevice::ExeOwner);
    }

    void goodSettingsForReference() {
        const Run plain = runQuilleryWith("[General]\ndidShowWelcome=true\n");
        QCOMPARE(plain.status, QProcess::NormalExit);
        QCOMPARE(plain.exitCode, 0);
        QCOMPARE(plain.out,
                 (QStringList{QStringLiteral("shortcut: Ctrl+Alt+D"),
                              QStringLiteral("welcome: not shown"),
                              QStringLiteral("fade menu: 4 seconds"),
                              QStringLiteral("settings fade: 4 seconds"),
                              QStringLiteral("hint bar: on"), QStringLiteral("faded: yes")}));
        QCOMPARE(ownLines(plain), QStringList());

        const Run chosen = runQuilleryWith("[General]\ndidShowWelcome=true\nfadeSeconds=0\n"
                                           "hudVisible=false\nhkCode=96\nhkMods=4864\nhkName=F5\n");
        QCOMPARE(chosen.line(QStringLiteral("shortcut")), QStringLiteral("Ctrl+Shift+Super+F5"));
        QCOMPARE(chosen.line(QStringLiteral("fade menu")), QStringLiteral("Never"));
        QCOMPARE(chosen.line(QStringLiteral("hint bar")), QStringLiteral("off"));
        QCOMPARE(chosen.line(QStringLiteral("faded")), QStringLiteral("no"));
    }

    void valuesThatFallBack_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("what");     // the line that shows the fallback
        QTest::addColumn<QString>("expected"); // and what it shows
        QTest::addColumn<bool>("warned");      // whether Quillery said it ignored the value
        const QString fadeMenu = QStringLiteral("fade menu");
        const QString fourSeconds = QStringLiteral("4 seconds");
        for (const QByteArray& value : {QByteArray(""), QByteArray("soon"), QByteArray("true"),
                                        QByteArray("1, 2"), QByteArray("0x10"), QByteArray("4s")})
            QTest::addRow("fadeSeconds=%s", value.constData())
                << QStringLiteral("fadeSeconds") << value << fadeMenu << fourSeconds << true;
        // Not a value QSettings can read at all: as if there were none.
        QTest::addRow("fadeSeconds=@Variant")
            << QStringLiteral("fadeSeconds") << QByteArray("@Variant(\\0\\0\\0\\x7f\\0)")
            << fadeMenu << fourSeconds << false;
        // Numbers, just not ones the menu offers: nothing checked, or "Never"
        // for a number too small for a double.
        for (const QByteArray& value : {QByteArray("-5"), QByteArray("-9223372036854775808")})
            QTest::addRow("fadeSeconds=%s", value.constData())
                << QStringLiteral("fadeSeconds") << value << fadeMenu << QStringLiteral("none")
                << false;
        QTest::addRow("fadeSeconds=1e-400") << QStringLiteral("fadeSeconds") << QByteArray("1e-400")
                                            << fadeMenu << QStringLiteral("Never") << false;
        QTest::addRow("fadeSeconds= 2 ") << QStringLiteral("fadeSeconds") << QByteArray(" 2 ")
                                         << fadeMenu << QStringLiteral("2 seconds") << false;

        for (const QByteArray& value : {QByteArray(""), QByteArray("maybe"), QByteArray("2"),
                                        QByteArray("-1"), QByteArray("nan"), QByteArray("1, 2")})
            QTest::addRow("hudVisible=%s", value.constData())
                << QStringLiteral("hudVisible") << value << QStringLiteral("hint bar")
                << QStringLiteral("on") << true;

        const QString shortcut = QStringLiteral("shortcut");
        const QString ctrlAltD = QStringLiteral("Ctrl+Alt+D");
        for (const QByteArray& value :
             {QByteArray(""), QByteArray("D"), QByteArray("2.5"), QByteArray("nan"),
              QByteArray("inf"), QByteArray("1e3"), QByteArray("true"), QByteArray("1, 2")}) {
            QTest::addRow("hkCode=%s", value.constData())
                << QStringLiteral("hkCode") << value << shortcut << ctrlAltD << true;
            QTest::addRow("hkMods=%s", value.constData())
                << QStringLiteral("hkMods") << value << shortcut << ctrlAltD << true;
        }
        // The name is text: whatever it is shows, and a list is no name at all.
        QTest::addRow("hkName=1, 2") << QStringLiteral("hkName") << QByteArray("1, 2") << shortcut
                                     << QStringLiteral("Super+?") << true;
        QTest::addRow("hkName=nan") << QStringLiteral("hkName") << QByteArray("nan") << shortcut
                                    << QStringLiteral("Super+nan") << false;
        QTest::addRow("hkName=long") << QStringLiteral("hkName") << QByteArray(500, 'W') << shortcut
                                     << QStringLiteral("Super+") + QString(500, u'W') << false;

        for (const QByteArray& value :
             {QByteArray(""), QByteArray("maybe"), QByteArray("2"), QByteArray("1, 2")})
            QTest::addRow("didShowWelcome=%s", value.constData())
                << QStringLiteral("didShowWelcome") << value << QStringLiteral("welcome")
                << QStringLiteral("shown") << true;
    }
    void valuesThatFallBack() {
        QFETCH(QString, key);
        QFETCH(QByteArray, value);
        QFETCH(QString, what);
        QFETCH(QString, expected);
        QFETCH(bool, warned);
        // The other keys hold good values, which must survive untouched.
        QMap<QString, QByteArray> lines{{QStringLiteral("hkCode"), "2"},
                                        {QStringLiteral("hkMods"), "256"},
                                        {QStringLiteral("hkName"), "?"},
                                        {QStringLiteral("didShowWelcome"), "true"}};
        if (key.startsWith(QLatin1String("hk")) && key != QLatin1String("hkName")) {
            lines[QStringLiteral("hkMods")] = "6144";
            lines[QStringLiteral("hkName")] = "D";
        }
        lines[key] = value;
        QByteArray contents = "[General]\n";
        for (auto it = lines.begin(); it != lines.end(); ++it)
            contents += it.key().toLatin1() + '=' + it.value() + '\n';
        const Run result = runQuilleryWith(contents);

        QCOMPARE(result.status, QProcess::NormalExit);
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.line(what), expected);
        // Ink fades after the default delay unless the value was a number that says otherwise.
        const bool fades =
            key != QLatin1String("fadeSeconds") || expected.endsWith(QLatin1String(" seconds"));
        QCOMPARE(result.line(QStringLiteral("faded")),
                 fades ? QStringLiteral("yes") : QStringLiteral("no"));
        // What was ignored is said, with the value as written and the file;
        // the shortcut adds what it does instead.
        const QStringList said = ownLines(result);
        QCOMPARE(said.isEmpty(), !warned);
        QVERIFY2(said.size() <= 2, qPrintable(said.join(u'\n')));
        for (const QString& line : said)
            QVERIFY2(line.contains(settingsFile()), qPrintable(line));
        if (warned)
            QVERIFY2(said.front().contains(QStringLiteral("\"%1\" of \"%2\"")
                                               .arg(QString::fromLatin1(value).trimmed(), key)),
                     qPrintable(said.front()));

        if (key == QLatin1String("didShowWelcome")) {
            // The welcome window came, and the file says so now; the rest is as it was.
            QSettings written(settingsFile(), QSettings::IniFormat);
            QCOMPARE(written.value(QStringLiteral("didShowWelcome")).toString(),
                     QStringLiteral("true"));
            for (const QString& other :
                 {QStringLiteral("hkCode"), QStringLiteral("hkMods"), QStringLiteral("hkName")})
                QCOMPARE(written.value(other).toString(), QString::fromLatin1(lines[other]));
        } else {
            QCOMPARE(settingsContents(), contents);
        }
    }

    void valuesThatStopQuillery_data() {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        const QByteArray welcomed = "[General]\ndidShowWelcome=true\n";
        for (const char* value :
             {"nan", "inf", "-inf", "1e300", "-1e300", "9.3e18", "9223372036854775807", "1e400"})
            QTest::addRow("fadeSeconds=%s", value)
                << welcomed + "fadeSeconds=" + value + '\n'
                << QStringLiteral("fadeSeconds") << QString::fromLatin1(value);
        for (const char* value :
             {"-1", "4294967296", "99999999999999999999", "-99999999999999999999"}) {
            QTest::addRow("hkCode=%s", value)
                << welcomed + "hkCode=" + value + '\n'
                << QStringLiteral("hkCode") << QString::fromLatin1(value);
            QTest::addRow("hkMods=%s", value)
                << welcomed + "hkCode=2\nhkMods=" + value + '\n'
                << QStringLiteral("hkMods") << QString::fromLatin1(value);
        }
    }
    void valuesThatStopQuillery() {
        QFETCH(QByteArray, contents);
        QFETCH(QString, key);
        QFETCH(QString, value);
        const Run result = runQuilleryWith(contents);
        QCOMPARE(result.status, QProcess::CrashExit);
        const QStringList said = ownLines(result);
        QCOMPARE(said.size(), 1);
        const QString line = said.front();
        QVERIFY2(line.contains(QLatin1Char('"') + key + QLatin1Char('"')), qPrintable(line));
        QVERIFY2(line.contains(settingsFile()), qPrintable(line));
        // The value as written, or the number it reads as (nan, inf, 1e+300).
        const double number = value.toDouble();
        QVERIFY2(line.contains(value) || line.contains(QString::number(number)), qPrintable(line));
        // Stopping loses nothing: the file is as the user left it.
        QCOMPARE(settingsContents(), contents);
    }

    // The real program, started as a user would: a fatal value stops it at
    // once with its one line, a bad one leaves it running.
    void theProgramItself() {
        const QString quillery = qEnvironmentVariable("QUILLERY_BINARY");
        QVERIFY(QFileInfo::exists(quillery));
        writeSettings("[General]\ndidShowWelcome=true\nhkCode=-7\n");
        Run stopped = run(quillery, {});
        QCOMPARE(stopped.status, QProcess::CrashExit);
        QCOMPARE(ownLines(stopped).size(), 1);
        QVERIFY(ownLines(stopped).front().contains(QStringLiteral("-7")));

        const QByteArray contents =
            "[General]\ndidShowWelcome=true\nhudVisible=maybe\nfadeSeconds=soon\n";
        writeSettings(contents);
        QProcess running;
        running.setProcessEnvironment(environment());
        running.start(quillery, {});
        QVERIFY(running.waitForStarted());
        Run status;
        QTRY_VERIFY_WITH_TIMEOUT(
            (status = run(quillery, {QStringLiteral("--status")})).exitCode == 0, 10000);
        QVERIFY(status.out.contains(QStringLiteral("drawing: off")));
        QCOMPARE(run(quillery, {QStringLiteral("--start")}).exitCode, 0);
        QCOMPARE(run(quillery, {QStringLiteral("--status")}).out.value(0),
                 QStringLiteral("drawing: on"));
        QCOMPARE(run(quillery, {QStringLiteral("--quit")}).exitCode, 0);
        QVERIFY(running.waitForFinished(10000));
        QCOMPARE(running.exitStatus(), QProcess::NormalExit);
        QCOMPARE(running.exitCode(), 0);
        const QStringList said =
            QString::fromUtf8(running.readAllStandardError())
                .split(u'\n', Qt::SkipEmptyParts)
                .filter(QRegularExpression(QStringLiteral("^Quillery: ignoring")));
        QVERIFY2(said.size() == 2, qPrintable(said.join(u'\n'))); // one for each key it ignored
        QCOMPARE(settingsContents(), contents);
    }

    // The tray menu and the Settings window write one file; so may a second
    // Quillery. Two processes writing different keys as fast as they can
    // never leave it cut short, unreadable, or without a key, and the last
    // value each wrote is the one that stays.
    void twoWritersAtOnce() {
        writeSettings("[General]\nfadeSeconds=4\nhudVisible=true\nhkCode=2\nhkMods=6144\n"
                      "hkName=D\ndidShowWelcome=true\n");
        constexpr int count = 150; // the last ones: 15 seconds, no hint bar, K149
        QProcess menu, settings;
        for (auto [process, group] : {std::pair{&menu, "menu"}, std::pair{&settings, "shortcut"}}) {
            process->setProcessEnvironment(environment());
            process->setProcessChannelMode(QProcess::ForwardedChannels);
            process->start(QCoreApplication::applicationFilePath(),
                           {QString::fromLatin1(writerFlag), QString::fromLatin1(group),
                            QString::number(count)});
            QVERIFY(process->waitForStarted());
        }
        const QStringList keys{QStringLiteral("fadeSeconds"), QStringLiteral("hudVisible"),
                               QStringLiteral("hkCode"),      QStringLiteral("hkMods"),
                               QStringLiteral("hkName"),      QStringLiteral("didShowWelcome")};
        int reads = 0;
        while (menu.state() != QProcess::NotRunning || settings.state() != QProcess::NotRunning) {
            // Read as a person would look at it: the whole file, at any moment.
            const QByteArray contents = settingsContents();
            QVERIFY2(contents.startsWith("[General]\n") && contents.endsWith('\n'),
                     contents.constData());
            for (const QString& key : keys)
                QVERIFY2(contents.contains('\n' + key.toLatin1() + '='),
                         qPrintable(key + QStringLiteral(" is missing:\n") + contents));
            ++reads;
            QTest::qWait(2);
        }
        QCOMPARE(menu.exitCode(), 0);
        QCOMPARE(settings.exitCode(), 0);
        QSettings final(settingsFile(), QSettings::IniFormat);
        QCOMPARE(final.status(), QSettings::NoError);
        QCOMPARE(final.value(QStringLiteral("fadeSeconds")).toDouble(), 15.0);
        QCOMPARE(final.value(QStringLiteral("hudVisible")).toString(), QStringLiteral("false"));
        QCOMPARE(final.value(QStringLiteral("hkName")).toString(),
                 QStringLiteral("K%1").arg(count - 1));
        QCOMPARE(final.value(QStringLiteral("hkCode")).toInt(), count - 1);
        qInfo("two writers, %d writes each, %d reads in between", count * 2, reads);
    }
};

int main(int argc, char** argv) {
    if (argc > 1 && qstrcmp(argv[1], childFlag) == 0)
        return runQuillery(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], writerFlag) == 0)
        return runWriter(argc, argv);
    QApplication application(argc, argv);
    BadSettingsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_badsettings.moc"
