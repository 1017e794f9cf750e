#include "Defaults.h"
#include "TestSettings.h"

#include <QFile>
#include <QSettings>
#include <QtTest>

// The settings wrapper over a real INI file in a temporary directory.
class DefaultsTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;

    QByteArray writeFile(const QByteArray& contents) {
        QDir().mkpath(QFileInfo(settings->filePath()).path());
        QFile file(settings->filePath());
        return file.open(QIODevice::WriteOnly) && file.write(contents) ? contents : QByteArray();
    }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();
        Defaults::registerDefaults({{"fadeSeconds", 4.0}, {"hudVisible", true}});
    }

    void storedValuesOverRegisteredOnes() {
        QCOMPARE(Defaults::doubleValue("fadeSeconds"), 4.0);
        QVERIFY(!Defaults::hasObject("fadeSeconds"));
        QVERIFY(!Defaults::boolValue("missing") && !Defaults::stringValue("missing"));
        Defaults::setValue("fadeSeconds", 8.0);
        Defaults::setValue("hudVisible", false);
        QVERIFY(Defaults::hasObject("fadeSeconds"));
        QCOMPARE(Defaults::doubleValue("fadeSeconds"), 8.0);
        QVERIFY(!Defaults::boolValue("hudVisible"));
        // Read afresh: another writer's change shows at once.
        QSettings(settings->filePath(), QSettings::IniFormat).setValue("fadeSeconds", 15.0);
        QCOMPARE(Defaults::doubleValue("fadeSeconds"), 15.0);
        Defaults::remove("fadeSeconds");
        QCOMPARE(Defaults::doubleValue("fadeSeconds"), 4.0);
    }

    void handWrittenAndCorruptValues() {
        writeFile("[General]\nfadeSeconds=2.5\nhudVisible=false\nhkCode=4294967296\n");
        QCOMPARE(Defaults::doubleValue("fadeSeconds"), 2.5);
        QVERIFY(!Defaults::boolValue("hudVisible"));
        QCOMPARE(Defaults::integerValue("hkCode"), std::optional<qint64>(4294967296LL));
        // Unreadable values fall back, and the user's file is never rewritten.
        const QByteArray corrupt =
            writeFile("[General]\nfadeSeconds=soon\nhudVisible=maybe\nhkCode=D\n");
        QCOMPARE(Defaults::doubleValue("fadeSeconds"), 4.0);
        QVERIFY(Defaults::boolValue("hudVisible"));
        QVERIFY(!Defaults::integerValue("hkCode"));
        QFile file(settings->filePath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), corrupt);
    }
};

QTEST_GUILESS_MAIN(DefaultsTest)
#include "tst_defaults.moc"
