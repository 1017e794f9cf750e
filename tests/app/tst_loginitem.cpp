#include "XdgAutostartLoginItem.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <unistd.h>

// Launch at login through a real autostart folder in a temporary XDG_CONFIG_HOME.
class LoginItemTest : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> home;
    QString entry() const { return home->path() + QStringLiteral("/autostart/quillery.desktop"); }

    static QByteArray read(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    static void write(const QString& path, const QByteArray& contents) {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(contents);
    }

private Q_SLOTS:
    void init() {
        home = std::make_unique<QTemporaryDir>();
        qputenv("XDG_CONFIG_HOME", home->path().toLocal8Bit());
    }

    void registerWritesAnEntryThatStartsThisProgramAndUnregisterRemovesIt() {
        XdgAutostartLoginItem item;
        QCOMPARE(XdgAutostartLoginItem::entryPath(), entry());
        QVERIFY(!item.isEnabled());

        QCOMPARE(item.registerItem(), std::nullopt);
        QVERIFY(item.isEnabled());
        const QByteArray contents = read(entry());
        QVERIFY(contents.startsWith("[Desktop Entry]\n"));
        QVERIFY(contents.contains("\nType=Application\n"));
        QVERIFY(contents.contains("\nName=Quillery\n"));
        const QByteArray exec =
            "\nExec=\"" + QCoreApplication::applicationFilePath().toUtf8() + "\"\n";
        QVERIFY2(contents.contains(exec), contents.constData());
        // Written through a temporary file and renamed: nothing else is left behind.
        QCOMPARE(QDir(home->path() + QStringLiteral("/autostart")).entryList(QDir::Files),
                 QStringList{QStringLiteral("quillery.desktop")});

        // Registering again just rewrites it.
        QCOMPARE(item.registerItem(), std::nullopt);
        QVERIFY(item.isEnabled());

        QCOMPARE(item.unregisterItem(), std::nullopt);
        QVERIFY(!QFile::exists(entry()));
        QVERIFY(!item.isEnabled());
        // Nothing to remove is not a failure.
        QCOMPARE(item.unregisterItem(), std::nullopt);
    }

    void hiddenEntryCountsAsOffAndRegisteringTurnsItOn() {
        write(entry(), "[Desktop Entry]\nType=Application\nExec=quillery\nHidden=true\n");
        XdgAutostartLoginItem item;
        QVERIFY(!item.isEnabled());
        QCOMPARE(item.registerItem(), std::nullopt);
        QVERIFY(item.isEnabled());
        QVERIFY(!read(entry()).contains("Hidden"));

        // Hidden in another group doesn't hide the entry.
        write(entry(), "[Desktop Entry]\nExec=quillery\nHidden=false\n[Desktop Action x]\n"
                       "Hidden=true\n");
        QVERIFY(item.isEnabled());
    }

    void withoutXdgConfigHomeTheEntryIsInDotConfig() {
        qunsetenv("XDG_CONFIG_HOME");
        const QByteArray savedHome = qgetenv("HOME");
        qputenv("HOME", home->path().toLocal8Bit());
        const QString path = XdgAutostartLoginItem::entryPath();
        qputenv("HOME", savedHome);
        QCOMPARE(path, home->path() + QStringLiteral("/.config/autostart/quillery.desktop"));
    }

    void execQuotesThePathAsOneArgument() {
        QCOMPARE(XdgAutostartLoginItem::execValue(QStringLiteral("/opt/My Apps/quillery")),
                 QStringLiteral("\"/opt/My Apps/quillery\""));
        // $ and " escaped for the quoting, then every backslash doubled for the string.
        QCOMPARE(XdgAutostartLoginItem::execValue(QStringLiteral("/a$b\"c\\d`e")),
                 QStringLiteral("\"/a\\\\$b\\\\\"c\\\\\\\\d\\\\`e\""));
        QCOMPARE(XdgAutostartLoginItem::execValue(QStringLiteral("/100%/q")),
                 QStringLiteral("\"/100%%/q\""));
        XdgAutostartLoginItem item(QStringLiteral("/opt/My Apps/quillery"));
        QVERIFY(item.entryContents().contains("\nExec=\"/opt/My Apps/quillery\"\n"));
    }

    // These hold for root as well: a file where the folder should be, and a
    // folder where the entry should be.
    void failuresNameThePathAndTheReason() {
        write(home->path() + QStringLiteral("/autostart"), "not a folder");
        XdgAutostartLoginItem item;
        const auto blocked = item.registerItem();
        QVERIFY(blocked);
        QVERIFY2(blocked->contains(home->path() + QStringLiteral("/autostart")),
                 qPrintable(*blocked));
        QVERIFY2(blocked->contains(QStringLiteral("in the way")), qPrintable(*blocked));
        QVERIFY(!item.isEnabled());

        QFile::remove(home->path() + QStringLiteral("/autostart"));
        QVERIFY(QDir().mkpath(entry() + QStringLiteral("/inside")));
        QVERIFY(!item.isEnabled());
        const auto isFolder = item.registerItem();
        QVERIFY(isFolder);
        QVERIFY2(isFolder->contains(entry()), qPrintable(*isFolder));
        QVERIFY(QFileInfo(entry()).isDir());
    }

    void readOnlyFolderRefusesBothChanges() {
        if (::geteuid() == 0)
            QSKIP("permissions don't stop root");
        XdgAutostartLoginItem item;
        QCOMPARE(item.registerItem(), std::nullopt);
        const QString folder = home->path() + QStringLiteral("/autostart");
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
        const auto removeFailure = item.unregisterItem();
        const auto writeFailure = item.registerItem();
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QVERIFY(removeFailure && removeFailure->contains(entry()));
        QVERIFY(writeFailure && writeFailure->contains(entry()));
        QVERIFY(item.isEnabled());
    }
};

QTEST_GUILESS_MAIN(LoginItemTest)
#include "tst_loginitem.moc"
