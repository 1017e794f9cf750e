#include "Defaults.h"
#include "TestSettings.h"

#include <QFile>
#include <QSettings>
#include <QtTest>

// The settings wrapper over a real INI file in a temporary directory.
class DefaultsTest : public QObject {
    Q_OBJECT

    static void writeRaw(const QString& path, const QByteArray& contents) {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(contents);
    }

private Q_SLOTS:
    void init() { settings = std::make_unique<TestSettings>(); }

    void registeredDefaultsUnderStoredValues() {
        Defaults::registerDefaults(
            {{QStringLiteral("fadeSeconds"), 4.0}, {QStringLiteral("hudVisible"), true}});
        QCOMPARE(Defaults::doubleValue(QStringLiteral("fadeSeconds")), 4.0);
        QVERIFY(Defaults::boolValue(QStringLiteral("hudVisible")));
        QVERIFY(!Defaults::hasObject(QStringLiteral("fadeSeconds")));

        Defaults::setValue(QStringLiteral("fadeSeconds"), 8.0);
        Defaults::setValue(QStringLiteral("hudVisible"), false);
        QVERIFY(Defaults::hasObject(QStringLiteral("fadeSeconds")));
        QCOMPARE(Defaults::doubleValue(QStringLiteral("fadeSeconds")), 8.0);
        QVERIFY(!Defaults::boolValue(QStringLiteral("hudVisible")));
        QCOMPARE(Defaults::fileName(), settings->filePath());
        QVERIFY(QFile::exists(settings->filePath()));

        Defaults::remove(QStringLiteral("fadeSeconds"));
        QCOMPARE(Defaults::doubleValue(QStringLiteral("fadeSeconds")), 4.0);
    }

    void missingKeysReadAsZero() {
        QCOMPARE(Defaults::doubleValue(QStringLiteral("nothing")), 0.0);
        QVERIFY(!Defaults::boolValue(QStringLiteral("nothing")));
        QVERIFY(!Defaults::integerValue(QStringLiteral("nothing")));
        QVERIFY(!Defaults::stringValue(QStringLiteral("nothing")));
    }

    void valuesWrittenByHandAreRead() {
        writeRaw(settings->filePath(), "[General]\nfadeSeconds=2.5\nhudVisible=false\n"
                                       "hkCode=4294967296\nhkName=F5\n");
        QCOMPARE(Defaults::doubleValue(QStringLiteral("fadeSeconds")), 2.5);
        QVERIFY(!Defaults::boolValue(QStringLiteral("hudVisible")));
        QCOMPARE(Defaults::integerValue(QStringLiteral("hkCode")),
                 std::optional<qint64>(4294967296LL));
        QCOMPARE(Defaults::stringValue(QStringLiteral("hkName")),
                 std::optional<QString>(QStringLiteral("F5")));
    }

    void corruptValuesFallBackAndStayInTheFile() {
        Defaults::registerDefaults(
            {{QStringLiteral("fadeSeconds"), 4.0}, {QStringLiteral("hudVisible"), true}});
        const QByteArray contents = "[General]\nfadeSeconds=soon\nhudVisible=maybe\nhkCode=D\n";
        writeRaw(settings->filePath(), contents);
        QCOMPARE(Defaults::doubleValue(QStringLiteral("fadeSeconds")), 4.0);
        QVERIFY(Defaults::boolValue(QStringLiteral("hudVisible")));
        QVERIFY(!Defaults::integerValue(QStringLiteral("hkCode")));
        QFile file(settings->filePath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), contents); // reading never rewrites the user's file
    }

    void changesFromAnotherWriterAreSeen() {
        Defaults::setValue(QStringLiteral("fadeSeconds"), 2.0);
        {
            QSettings other(settings->filePath(), QSettings::IniFormat);
            other.setValue(QStringLiteral("fadeSeconds"), 15.0);
        }
        QCOMPARE(Defaults::doubleValue(QStringLiteral("fadeSeconds")), 15.0);
    }

private:
    std::unique_ptr<TestSettings> settings;
};

QTEST_GUILESS_MAIN(DefaultsTest)
#include "tst_defaults.moc"
