#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "TestSettings.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QProcess>
#include <QtTest>
#include <X11/keysym.h>

// The stored shortcut in a real settings file, read by a new process (this
// binary, told by --print-shortcut), and what key events are recorded as.
class HotKeyConfigTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;

    // What a new process prints and says on stderr; nothing printed if it crashed.
    static std::pair<QString, QString> readInChild() {
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {"--print-shortcut"});
        child.waitForFinished(20000);
        const QString err = QString::fromLocal8Bit(child.readAllStandardError());
        if (child.exitStatus() != QProcess::NormalExit)
            return std::pair(QString(), err);
        return std::pair(QString::fromUtf8(child.readAllStandardOutput()).trimmed(), err);
    }

private Q_SLOTS:
    void init() { settings = std::make_unique<TestSettings>(); }

    // "printed" is the display text, key code and modifiers; an error message
    // instead means the program stops with it.
    void storedShortcutInANewProcess_data() {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QString>("printed");
        QTest::addColumn<QString>("error");
        const auto row = [](const char* name, const char* stored, const char* printed,
                            const char* error = "") {
            QTest::newRow(name) << QByteArray(stored) << QString(printed) << QString(error);
        };
        row("fresh", "", "Ctrl+Alt+D 2 6144");
        row("no name", "hkCode=50\nhkMods=256\n", "Super+? 50 256");
        row("no modifiers", "hkCode=96\nhkName=F5\n", "F5 96 0");
        row("symbols in order", "hkCode=96\nhkMods=4864\nhkName=F5\n",
            "Ctrl+Shift+Super+F5 96 4864");
        row("largest", "hkCode=4294967295\nhkMods=4294967295\nhkName=X\n",
            "Ctrl+Alt+Shift+Super+X 4294967295 4294967295");
        row("no code", "hkMods=256\nhkName=F5\n", "Ctrl+Alt+D 2 6144");
        row("unreadable", "hkCode=D\nhkMods=4096\nhkName=F\n", "Ctrl+Alt+D 2 6144", "Ctrl+Alt+D");
        row("code above 32 bits", "hkCode=4294967296\n", "", "4294967296 of \"hkCode\"");
        row("negative code", "hkCode=-1\n", "", "-1 of \"hkCode\"");
        row("modifiers above 64 bits", "hkCode=2\nhkMods=99999999999999999999\n", "",
            "99999999999999999999 of \"hkMods\"");
    }
    void storedShortcutInANewProcess() {
        QFETCH(QByteArray, stored);
        QFETCH(QString, printed);
        QFETCH(QString, error);
        settings->writeFile("[General]\n" + stored);
        const auto [out, err] = readInChild();
        QCOMPARE(out, printed);
        // Every complaint names the setting and the file, which is left alone to mend.
        QVERIFY2(err.contains(error) && (error.isEmpty() || err.contains(settings->filePath())),
                 qPrintable(err));
        QFile file(settings->filePath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), "[General]\n" + stored);
    }

    void savedShortcutSurvivesANewProcess() {
        HotKeyConfig{96, 0x1300, QStringLiteral("F5")}.save();
        QCOMPARE(readInChild().first, QStringLiteral("Ctrl+Shift+Super+F5 96 4864"));
    }

    void keyEventsRecordCodeAndName_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<quint32>("keysym");
        QTest::addColumn<quint32>("code");
        QTest::addColumn<QString>("name");
        const int keypad = Qt::KeypadModifier;
        const auto row = [](const char* tag, int key, int modifiers, quint32 keysym, quint32 code,
                            const char* name) {
            QTest::newRow(tag) << key << modifiers << keysym << code << QString(name);
        };
        row("F1", Qt::Key_F1, 0, XK_F1, 122, "F1");
        row("left", Qt::Key_Left, 0, XK_Left, 123, "←");
        row("backspace", Qt::Key_Backspace, 0, XK_BackSpace, 51, "Delete");
        row("shifted D", Qt::Key_D, Qt::ControlModifier | Qt::ShiftModifier, XK_D, 2, "D");
        row("keypad 1 without Num Lock", Qt::Key_End, keypad, XK_KP_End, 83, "1");
        row("escape", Qt::Key_Escape, 0, XK_Escape, 53, "Key 53");
        row("dead key", Qt::Key_Dead_Acute, 0, XK_dead_acute, 0x8000fe51, "Key 2147548753");
        row("e acute, outside the table", Qt::Key_Eacute, 0, XK_eacute, 0x800000e9, "É");
        row("Cyrillic as a Unicode keysym", 0x412, 0, 0x1000432, 0x800006d7, "В");
        row("no keysym", Qt::Key_A, Qt::ControlModifier, 0, 0, "A");
        row("no keysym, arrow", Qt::Key_Right, 0, 0, 124, "→");
    }
    void keyEventsRecordCodeAndName() {
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(quint32, keysym);
        QFETCH(quint32, code);
        QFETCH(QString, name);
        const QKeyEvent event(QEvent::KeyPress, key, Qt::KeyboardModifiers(modifiers), 0, keysym,
                              0);
        QCOMPARE(HotKeyConfig::keyCodeFor(event), code);
        QCOMPARE(HotKeyConfig::keyNameFor(event), name);
    }

    void carbonModifiers() {
        QCOMPARE(HotKeyConfig::carbonModifiers(Qt::ControlModifier | Qt::AltModifier |
                                               Qt::ShiftModifier | Qt::MetaModifier),
                 0x1B00u);
        QCOMPARE(HotKeyConfig::carbonModifiers(Qt::KeypadModifier | Qt::GroupSwitchModifier), 0u);
    }

    void withoutX11NothingRegisters() {
        QVERIFY(!HotKeyManager::shared().registerHotKey(HotKeyConfig::defaultShortcut()));
        QVERIFY(!HotKeyManager::shared().isRegistered());
        HotKeyManager::shared().unregister();
    }
};

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], "--print-shortcut") == 0) {
        const HotKeyConfig current = HotKeyConfig::current();
        std::printf("%s %u %u\n", current.display().toUtf8().constData(), current.keyCode,
                    current.modifiers);
        return 0;
    }
    HotKeyConfigTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_hotkeyconfig.moc"
