#include "HotKeyConfig.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

// The typed settings over a real INI file in a temporary directory: what
// Quillery stores, what it makes of a file edited by hand or damaged, and the
// values that must stop it.
class SettingsTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;

    QByteArray fileContents() const {
        QFile file(settings->filePath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    // Every setting as the program reads it, the shortcut as the menu shows it.
    static QString readBack() {
        const Settings& s = Settings::shared();
        return QStringLiteral("fade %1, hint bar %2, welcome %3, %4")
            .arg(s.fadeSeconds())
            .arg(QLatin1String(s.hudVisible() ? "on" : "off"))
            .arg(QLatin1String(s.didShowWelcome() ? "done" : "due"))
            .arg(HotKeyConfig::current().display());
    }

private Q_SLOTS:
    void init() { settings = std::make_unique<TestSettings>(); }

    void defaultsThenStoredValuesInTheirFormats() {
        Settings& s = Settings::shared();
        QCOMPARE(readBack(), QStringLiteral("fade 4, hint bar on, welcome due, Ctrl+Alt+D"));
        QSignalSpy changes(&s, &Settings::changed);
        s.setFadeSeconds(8);
        s.setHudVisible(false);
        // The largest key code, and every modifier, shown in the desktop's order.
        s.setHotKey(4294967295, 0x1B00, QStringLiteral("F5"));
        s.setHotKey(4294967295, 0x1B00, QStringLiteral("F5")); // the same again: no news
        QCOMPARE(changes.size(), 5);
        s.reload(); // as a new process reads the file
        QCOMPARE(readBack(), "fade 8, hint bar off, welcome due, Ctrl+Alt+Shift+Super+F5");
        const QSettings file(settings->filePath(), QSettings::IniFormat);
        QCOMPARE(file.value("fadeSeconds").toString() + ' ' + file.value("hkMods").toString(),
                 "8 6912");
    }

    // A damaged value falls back to its default (the shortcut to Ctrl+Alt+D as a
    // whole); the good values around it stay, and the file is never rewritten.
    void damagedValuesFallBack_data() {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("read");
        const auto row = [](const char* key, const QByteArray& value, const char* read) {
            QTest::addRow("%s=%s", key, value.left(20).constData())
                << QByteArray(key) << value << QString::fromUtf8(read);
        };
        for (const char* value : {"", "soon", "true", "1, 2", "0x10", "4s"})
            row("fadeSeconds", value, "fade 4, hint bar off, welcome done, Super+K");
        for (const char* value : {"", "maybe", "2", "-1", "nan", "1, 2"}) {
            row("hudVisible", value, "fade 8, hint bar on, welcome done, Super+K");
            row("didShowWelcome", value, "fade 8, hint bar off, welcome due, Super+K");
        }
        for (const char* value : {"", "D", "2.5", "nan", "inf", "1e3", "true", "1, 2"}) {
            row("hkCode", value, "fade 8, hint bar off, welcome done, Ctrl+Alt+D");
            row("hkMods", value, "fade 8, hint bar off, welcome done, Ctrl+Alt+D");
        }
        row("hkName", "1, 2", "fade 8, hint bar off, welcome done, Super+?"); // a list is no name
    }
    void damagedValuesFallBack() {
        QFETCH(QByteArray, key);
        QFETCH(QByteArray, value);
        QFETCH(QString, read);
        QByteArray contents = "[General]\nfadeSeconds=8\nhudVisible=false\ndidShowWelcome=true\n"
                              "hkCode=40\nhkMods=256\nhkName=K\n";
        const qsizetype at = contents.indexOf('\n' + key + '=') + key.size() + 2;
        contents.replace(at, contents.indexOf('\n', at) - at, value);
        QCOMPARE(settings->writeFile(contents), contents);
        Settings::shared().reload();
        QCOMPARE(readBack(), read);
        QCOMPARE(fileContents(), contents);
    }

    // Numbers no setting can mean stop Quillery at start-up with one line that
    // names the value, the key and the file.
    void fatalValuesStopTheProgram_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("said");
        QTest::newRow("no number of seconds")
            << QByteArray("fadeSeconds=inf") << "inf of \"fadeSeconds\"";
        QTest::newRow("key code over 32 bits")
            << QByteArray("hkCode=4294967296") << "4294967296 of \"hkCode\"";
        QTest::newRow("modifiers over 64 bits")
            << QByteArray("hkCode=2\nhkMods=-99999999999999999999")
            << "-99999999999999999999 of \"hkMods\"";
    }
    void fatalValuesStopTheProgram() {
        QFETCH(QByteArray, line);
        QFETCH(QString, said);
        const QByteArray contents = "[General]\ndidShowWelcome=true\n" + line + '\n';
        QCOMPARE(settings->writeFile(contents), contents);
        const QString runtime = settings->directory() + QStringLiteral("/runtime");
        QVERIFY(QDir().mkdir(runtime, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                          QFileDevice::ExeOwner));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
        QProcess quillery;
        quillery.setProcessEnvironment(environment);
        quillery.setWorkingDirectory(runtime); // where a core dump would go
        quillery.start(qEnvironmentVariable("QUILLERY_BINARY"), {});
        QVERIFY(quillery.waitForFinished(30000));
        const QString errors = QString::fromLocal8Bit(quillery.readAllStandardError());
        QCOMPARE(quillery.exitStatus(), QProcess::CrashExit);
        QCOMPARE(errors.count(QStringLiteral("Quillery: fatal error: the value %1 in %2")
                                  .arg(said, settings->filePath())),
                 1);
    }

    // Someone edits the file while Quillery runs: the next read has the new
    // value, the change is announced, and the watch survives the file being
    // replaced again and again.
    void followsOutsideEdits() {
        Settings& s = Settings::shared();
        s.setFadeSeconds(4); // the folder and file exist and are watched
        QSignalSpy changes(&s, &Settings::changed);
        // Each of another size: QSettings tells a file that changed by its size
        // and time, and these come within a millisecond of each other.
        for (const double seconds : {15.0, 2.0, 8.5}) {
            settings->writeFile(QByteArray("[General]\nfadeSeconds=") +
                                QByteArray::number(seconds) + "\nhudVisible=false\n");
            QTRY_COMPARE(s.fadeSeconds(), seconds);
            QVERIFY(!s.hudVisible());
        }
        QTRY_COMPARE(changes.size(), 4); // three delays, the hint bar once
    }
};

QTEST_GUILESS_MAIN(SettingsTest)
#include "tst_settings.moc"
