#include "Settings.h"
#include "TestSettings.h"

#include <QFile>
#include <QSettings>
#include <QSignalSpy>
#include <QtTest>

// The typed settings over a real INI file in a temporary directory.
class SettingsTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;

    QByteArray fileContents() const {
        QFile file(settings->filePath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private Q_SLOTS:
    void init() { settings = std::make_unique<TestSettings>(); }

    void defaultsThenStoredValuesInTheirFormats() {
        Settings& s = Settings::shared();
        QCOMPARE(s.fadeSeconds(), 4.0);
        QVERIFY(s.hudVisible() && !s.didShowWelcome());
        QVERIFY(!s.contains(Settings::Key::fadeSeconds) && !s.hotKeyCode() && !s.hotKeyName());
        QSignalSpy changes(&s, &Settings::changed);
        s.setFadeSeconds(8);
        s.setHudVisible(false);
        s.setHotKey(2, 0x1800, QStringLiteral("D"));
        s.setHotKey(2, 0x1800, QStringLiteral("D")); // the same again: no news
        QCOMPARE(changes.size(), 5);
        QCOMPARE(changes.first().first().value<Settings::Key>(), Settings::Key::fadeSeconds);
        QCOMPARE(s.fadeSeconds(), 8.0);
        QVERIFY(!s.hudVisible() && s.contains(Settings::Key::hudVisible));
        QCOMPARE(s.hotKeyModifiers(), std::optional<qint64>(0x1800));
        QSettings file(settings->filePath(), QSettings::IniFormat);
        QCOMPARE(file.value("fadeSeconds").toString(), QStringLiteral("8"));
        QCOMPARE(file.value("hkMods").toString(), QStringLiteral("6144"));
        QCOMPARE(file.value("hkName").toString(), QStringLiteral("D"));
    }

    void handWrittenAndCorruptValues() {
        settings->writeFile("[General]\nfadeSeconds=2.5\nhudVisible=false\nhkCode=4294967296\n");
        Settings& s = Settings::shared();
        s.reload();
        QCOMPARE(s.fadeSeconds(), 2.5);
        QVERIFY(!s.hudVisible());
        QCOMPARE(s.hotKeyCode(), std::optional<qint64>(4294967296LL));
        // Unreadable values fall back, and the user's file is never rewritten.
        const QByteArray corrupt = settings->writeFile(
            "[General]\nfadeSeconds=soon\nhudVisible=maybe\nhkCode=D\nhkName=a, b\n"
            "hkMods=99999999999999999999\n");
        s.reload();
        QCOMPARE(s.fadeSeconds(), 4.0);
        QVERIFY(s.hudVisible());
        QVERIFY(!s.hotKeyCode() && !s.hotKeyName() && !s.hotKeyModifiers());
        QCOMPARE(s.writtenValue(Settings::Key::hotKeyModifiers),
                 QStringLiteral("99999999999999999999"));
        QCOMPARE(fileContents(), corrupt);
    }

    // Someone edits the file while Quillery runs: the next read has the new
    // value, the change is announced, and the watch survives the file being
    // replaced again and again.
    void followsOutsideEditsWithoutReadingOnEveryUse() {
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
        const int reads = s.fileReads();
        for (int i = 0; i < 1000; ++i)
            QVERIFY(s.fadeSeconds() == 8.5 && !s.hudVisible());
        QCOMPARE(s.fileReads(), reads);
    }
};

QTEST_GUILESS_MAIN(SettingsTest)
#include "tst_settings.moc"
