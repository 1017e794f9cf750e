#include "XdgAutostartLoginItem.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

// Launch at login through a real autostart folder in a temporary XDG_CONFIG_HOME.
class LoginItemTest : public QObject {
    Q_OBJECT

    QTemporaryDir home;
    QString folder() const { return home.path() + QStringLiteral("/autostart"); }
    QString entry() const { return folder() + QStringLiteral("/quillery.desktop"); }
    QByteArray read() const {
        QFile file(entry());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private Q_SLOTS:
    void init() {
        QDir(home.path()).removeRecursively();
        QDir().mkpath(home.path());
        qputenv("XDG_CONFIG_HOME", home.path().toLocal8Bit());
    }

    void registerWritesAnEntryThatStartsThisProgram() {
        XdgAutostartLoginItem item;
        QVERIFY(!item.isEnabled());
        QCOMPARE(item.registerItem(), std::nullopt);
        QVERIFY(item.isEnabled());
        const QByteArray contents = read();
        QVERIFY(contents.startsWith("[Desktop Entry]\n") &&
                contents.contains("\nType=Application\n"));
        QVERIFY2(contents.contains("\nExec=\"" + QCoreApplication::applicationFilePath().toUtf8() +
                                   "\"\n"),
                 contents.constData());
        QCOMPARE(QDir(folder()).entryList(QDir::Files), QStringList{"quillery.desktop"});
        QCOMPARE(item.unregisterItem(), std::nullopt);
        QVERIFY(!item.isEnabled() && !QFile::exists(entry()));
        QCOMPARE(item.unregisterItem(), std::nullopt); // nothing to remove is no failure

        // A path with spaces and characters the entry format reserves is one argument.
        XdgAutostartLoginItem odd(QStringLiteral("/opt/My Apps/a$b\"c"));
        QVERIFY(odd.entryContents().contains("\nExec=\"/opt/My Apps/a\\\\$b\\\\\"c\"\n"));
    }

    // Switched off by hand or by the desktop's own tools (GNOME's flag): off,
    // and switching on writes an entry without the switch.
    void switchedOffEntryCountsAsOff_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("enabled");
        QTest::newRow("Hidden=true") << QByteArray("Hidden=true") << false;
        QTest::newRow("GNOME disabled") << QByteArray("X-GNOME-Autostart-enabled=false") << false;
        QTest::newRow("GNOME enabled") << QByteArray("X-GNOME-Autostart-enabled=true") << true;
        QTest::newRow("Hidden=false") << QByteArray("Hidden=false") << true;
    }
    void switchedOffEntryCountsAsOff() {
        QFETCH(QByteArray, line);
        QFETCH(bool, enabled);
        QDir().mkpath(folder());
        QFile file(entry());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[Desktop Entry]\nType=Application\nExec=quillery\n" + line + "\n");
        file.close();
        XdgAutostartLoginItem item;
        QCOMPARE(item.isEnabled(), enabled);
        QCOMPARE(item.registerItem(), std::nullopt);
        QVERIFY(item.isEnabled() && (enabled || !read().contains(line)));
    }

    void withoutXdgConfigHomeTheEntryIsInDotConfig() {
        qunsetenv("XDG_CONFIG_HOME");
        const QByteArray savedHome = qgetenv("HOME");
        qputenv("HOME", home.path().toLocal8Bit());
        const QString path = XdgAutostartLoginItem::entryPath();
        qputenv("HOME", savedHome);
        QCOMPARE(path, home.path() + QStringLiteral("/.config/autostart/quillery.desktop"));
    }

    // Refused even for root: a file where the folder belongs, a folder where the entry does.
    void failuresNameThePathAndTheReason() {
        QFile blocker(folder());
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        XdgAutostartLoginItem item;
        const auto inTheWay = item.registerItem();
        QVERIFY2(inTheWay && inTheWay->contains(folder()) && inTheWay->contains("in the way"),
                 qPrintable(inTheWay.value_or("")));
        QVERIFY(!item.isEnabled());
        QFile::remove(folder());
        QVERIFY(QDir().mkpath(entry()));
        const auto isFolder = item.registerItem();
        QVERIFY2(isFolder && isFolder->contains(entry()), qPrintable(isFolder.value_or("")));
    }
};

QTEST_GUILESS_MAIN(LoginItemTest)
#include "tst_loginitem.moc"
