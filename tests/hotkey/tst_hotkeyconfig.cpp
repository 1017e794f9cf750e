#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "KeyTable.h"
#include "TestSettings.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QProcess>
#include <QtTest>
#include <X11/keysym.h>
#include <cstdio>

// The stored shortcut over a real settings file, its display text, and what
// real key events are recorded as. Reads that must abort or must survive a new
// process run in a child: this same binary, told by QUILLERY_TEST_CHILD.
class HotKeyConfigTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;

    void writeSettings(const QByteArray& contents) {
        QDir().mkpath(QFileInfo(settings->filePath()).path());
        QFile file(settings->filePath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[General]\n" + contents);
    }

    struct ChildResult {
        QProcess::ExitStatus status;
        int exitCode;
        QString out;
        QString err;
    };
    ChildResult readInChild() {
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QUILLERY_TEST_CHILD"), QStringLiteral("current"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), settings->directory());
        child.setProcessEnvironment(env);
        child.start(QCoreApplication::applicationFilePath(), {});
        child.waitForFinished(20000);
        return {child.exitStatus(), child.exitCode(),
                QString::fromUtf8(child.readAllStandardOutput()).trimmed(),
                QString::fromLocal8Bit(child.readAllStandardError())};
    }

    static HotKeyConfig config(quint32 code, quint32 modifiers, const QString& name) {
        HotKeyConfig value;
        value.keyCode = code;
        value.modifiers = modifiers;
        value.keyName = name;
        return value;
    }

    static QKeyEvent keyPress(int key, Qt::KeyboardModifiers modifiers, quint32 keysym,
                              const QString& text = {}) {
        return QKeyEvent(QEvent::KeyPress, key, modifiers, 0, keysym, 0, text);
    }

public:
    static int printCurrent() {
        const HotKeyConfig current = HotKeyConfig::current();
        std::printf("%s %u %u\n", current.display().toUtf8().constData(), current.keyCode,
                    current.modifiers);
        return 0;
    }

private Q_SLOTS:
    void init() { settings = std::make_unique<TestSettings>(); }

    void freshSettingsGiveCtrlAltD() {
        const HotKeyConfig current = HotKeyConfig::current();
        QCOMPARE(current, HotKeyConfig::defaultShortcut());
        QCOMPARE(current.keyCode, 2u);
        QCOMPARE(current.modifiers, 6144u);
        QCOMPARE(current.keyName, QStringLiteral("D"));
        QCOMPARE(current.display(), QStringLiteral("⌃⌥D"));
    }

    void missingPartsOfAStoredShortcut() {
        writeSettings("hkCode=50\nhkMods=256\n");
        QCOMPARE(HotKeyConfig::current().display(), QStringLiteral("⌘?"));

        writeSettings("hkCode=96\nhkName=F5\n");
        QCOMPARE(HotKeyConfig::current(), config(96, 0, QStringLiteral("F5")));
        QCOMPARE(HotKeyConfig::current().display(), QStringLiteral("F5"));

        // Only the key code decides whether a shortcut is stored at all.
        writeSettings("hkMods=256\nhkName=F5\n");
        QCOMPARE(HotKeyConfig::current(), HotKeyConfig::defaultShortcut());
    }

    void displayOrdersTheModifiers() {
        const quint32 commandFirst =
            HotKeyConfig::cmdKey | HotKeyConfig::shiftKey | HotKeyConfig::controlKey;
        QCOMPARE(commandFirst, 0x1300u);
        QCOMPARE(config(96, commandFirst, QStringLiteral("F5")).display(), QStringLiteral("⌃⇧⌘F5"));
        QCOMPARE(config(0, 0x1B00, QStringLiteral("A")).display(), QStringLiteral("⌃⌥⇧⌘A"));
        QCOMPARE(config(0, HotKeyConfig::optionKey | HotKeyConfig::shiftKey, QStringLiteral("←"))
                     .display(),
                 QStringLiteral("⌥⇧←"));
    }

    void savedShortcutSurvivesANewProcess() {
        config(96, 0x1300, QStringLiteral("F5")).save();
        QFile file(settings->filePath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray contents = file.readAll();
        QVERIFY(contents.contains("hkCode=96"));
        QVERIFY(contents.contains("hkMods=4864"));
        QVERIFY(contents.contains("hkName=F5"));

        const ChildResult child = readInChild();
        QCOMPARE(child.status, QProcess::NormalExit);
        QCOMPARE(child.out, QStringLiteral("⌃⇧⌘F5 96 4864"));
    }

    void outOfRangeValuesAreFatal_data() {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::newRow("code above 32 bits")
            << QByteArray("hkCode=4294967296\nhkMods=0\n") << "hkCode"
            << "4294967296";
        QTest::newRow("negative code") << QByteArray("hkCode=-1\n") << "hkCode"
                                       << "-1";
        QTest::newRow("modifiers above 32 bits")
            << QByteArray("hkCode=2\nhkMods=4294967296\n") << "hkMods"
            << "4294967296";
        QTest::newRow("code above 64 bits")
            << QByteArray("hkCode=99999999999999999999999\n") << "hkCode"
            << "99999999999999999999999";
    }
    void outOfRangeValuesAreFatal() {
        QFETCH(QByteArray, stored);
        QFETCH(QString, key);
        QFETCH(QString, value);
        writeSettings(stored);
        const ChildResult child = readInChild();
        QCOMPARE(child.status, QProcess::CrashExit);
        QVERIFY2(child.err.contains(QLatin1Char('"') + key + QLatin1Char('"')),
                 qPrintable(child.err));
        QVERIFY2(child.err.contains(value), qPrintable(child.err));
        QVERIFY2(child.err.contains(settings->filePath()), qPrintable(child.err));
        QVERIFY(child.out.isEmpty());
    }

    void largestValuesAreRead() {
        writeSettings("hkCode=4294967295\nhkMods=4294967295\nhkName=X\n");
        const ChildResult child = readInChild();
        QCOMPARE(child.status, QProcess::NormalExit);
        QCOMPARE(child.out, QStringLiteral("⌃⌥⇧⌘X 4294967295 4294967295"));
    }

    void unreadableShortcutFallsBackToTheDefault_data() {
        QTest::addColumn<QByteArray>("stored");
        QTest::newRow("code") << QByteArray("hkCode=D\nhkMods=4096\nhkName=F\n");
        QTest::newRow("modifiers") << QByteArray("hkCode=3\nhkMods=ctrl\nhkName=F\n");
        QTest::newRow("empty code") << QByteArray("hkCode=\nhkName=F\n");
    }
    void unreadableShortcutFallsBackToTheDefault() {
        QFETCH(QByteArray, stored);
        writeSettings(stored);
        const ChildResult child = readInChild();
        QCOMPARE(child.status, QProcess::NormalExit);
        QCOMPARE(child.out, QStringLiteral("⌃⌥D 2 6144"));
        QVERIFY2(child.err.contains(settings->filePath()), qPrintable(child.err));
        QVERIFY2(child.err.contains(QStringLiteral("Ctrl+Alt+D")), qPrintable(child.err));
        // The user's file stays as it was, for them to mend.
        QFile file(settings->filePath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), "[General]\n" + stored);
    }

    void keyEventsRecordCodeAndName_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<quint32>("keysym");
        QTest::addColumn<quint32>("code");
        QTest::addColumn<QString>("name");
        const int none = Qt::NoModifier;
        const int keypad = Qt::KeypadModifier;
        const int ctrlShift = Qt::ControlModifier | Qt::ShiftModifier;
        auto row = [](const char* tag, int key, int modifiers, quint32 keysym, quint32 code,
                      const QString& name) {
            QTest::newRow(tag) << key << modifiers << keysym << code << name;
        };
        row("F1", Qt::Key_F1, none, XK_F1, 122, "F1");
        row("F12", Qt::Key_F12, none, XK_F12, 111, "F12");
        row("left", Qt::Key_Left, none, XK_Left, 123, "←");
        row("up", Qt::Key_Up, none, XK_Up, 126, "↑");
        row("return", Qt::Key_Return, none, XK_Return, 36, "Return");
        row("backspace", Qt::Key_Backspace, none, XK_BackSpace, 51, "Delete");
        row("space", Qt::Key_Space, none, XK_space, 49, "Space");
        row("d", Qt::Key_D, Qt::ControlModifier, XK_d, 2, "D");
        row("shifted D", Qt::Key_D, ctrlShift, XK_D, 2, "D");
        row("minus", Qt::Key_Minus, none, XK_minus, 27, "-");
        row("grave", Qt::Key_QuoteLeft, none, XK_grave, 50, "`");
        row("keypad 1", Qt::Key_1, keypad, XK_KP_1, 83, "1");
        row("keypad 1 without Num Lock", Qt::Key_End, keypad, XK_KP_End, 83, "1");
        row("keypad enter", Qt::Key_Enter, keypad, XK_KP_Enter, 76, "Key 76");
        row("escape", Qt::Key_Escape, none, XK_Escape, 53, "Key 53");
        row("home", Qt::Key_Home, none, XK_Home, 115, "Key 115");
        row("e acute", Qt::Key_Eacute, none, XK_eacute, 0x800000e9, "É");
        row("Cyrillic", 0x412, none, XK_Cyrillic_ve, 0x800006d7, "В");
        row("Cyrillic as a Unicode keysym", 0x412, none, 0x1000432, 0x800006d7, "В");
        row("dead key", Qt::Key_Dead_Acute, none, XK_dead_acute, 0x8000fe51, "Key 2147548753");
        row("no keysym", Qt::Key_A, Qt::ControlModifier, 0, 0, "A");
        row("no keysym, keypad", Qt::Key_5, keypad, 0, 87, "5");
        row("no keysym, arrow", Qt::Key_Right, none, 0, 124, "→");
        row("no keysym, accented", Qt::Key_Eacute, none, 0, 0x800000e9, "É");
        row("nothing known", Qt::Key_unknown, none, 0, 0x80000000, "Key 2147483648");
    }
    void keyEventsRecordCodeAndName() {
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(quint32, keysym);
        QFETCH(quint32, code);
        QFETCH(QString, name);
        const QKeyEvent event = keyPress(key, Qt::KeyboardModifiers(modifiers), keysym);
        QCOMPARE(HotKeyConfig::keyCodeFor(event), code);
        QCOMPARE(HotKeyConfig::keyNameFor(event), name);
    }

    void carbonModifiersKeepFourBits() {
        QCOMPARE(HotKeyConfig::carbonModifiers(Qt::ControlModifier | Qt::AltModifier |
                                               Qt::ShiftModifier | Qt::MetaModifier),
                 0x1B00u);
        QCOMPARE(HotKeyConfig::carbonModifiers(Qt::ControlModifier | Qt::AltModifier), 6144u);
        QCOMPARE(HotKeyConfig::carbonModifiers(Qt::MetaModifier), HotKeyConfig::cmdKey);
        QCOMPARE(HotKeyConfig::carbonModifiers(Qt::KeypadModifier | Qt::GroupSwitchModifier), 0u);
        QCOMPARE(HotKeyConfig::carbonModifiers(Qt::NoModifier), 0u);
    }

    // Each table code names one key and comes back from that key's keysym.
    void tableCodesRoundTrip() {
        int entries = 0;
        for (quint32 code = 0; code < 128; ++code) {
            const std::optional<quint32> keysym = KeyTable::keysymForCode(code);
            if (!keysym)
                continue;
            ++entries;
            QCOMPARE(KeyTable::codeForKeysym(*keysym), code);
            QVERIFY(KeyTable::qtKeyForCode(code).has_value());
        }
        QCOMPARE(entries, 100); // ANSI letters, digits, punctuation, keypad, F1-F20, navigation
        const quint32 functionKeys[] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111};
        for (int i = 0; i < 12; ++i)
            QCOMPARE(KeyTable::keysymForCode(functionKeys[i]), std::optional<quint32>(XK_F1 + i));
        QCOMPARE(KeyTable::keysymForCode(2), std::optional<quint32>(XK_d));
        QCOMPARE(KeyTable::keysymForCode(49), std::optional<quint32>(XK_space));
        QCOMPARE(KeyTable::keysymForCode(117), std::optional<quint32>(XK_Delete));
        QCOMPARE(KeyTable::qtKeyForCode(51), std::optional<Qt::Key>(Qt::Key_Backspace));
        QVERIFY(!KeyTable::keysymForCode(52)); // no key has that code
        QVERIFY(!KeyTable::keysymForCode(KeyTable::keysymCodeFlag));
    }

    void keysOutsideTheTableRoundTripThroughTheSettings() {
        const quint32 keysyms[] = {XK_Pause, XK_eacute, XK_Cyrillic_ve, 0x1008ff12 /* mute */,
                                   0x101f600 /* an emoji */};
        for (const quint32 keysym : keysyms) {
            const quint32 code = KeyTable::codeForKeysym(keysym);
            QVERIFY(code >= KeyTable::keysymCodeFlag);
            QCOMPARE(KeyTable::keysymForCode(code), std::optional<quint32>(keysym));
            const HotKeyConfig stored = config(code, HotKeyConfig::controlKey, QStringLiteral("X"));
            stored.save();
            QCOMPARE(HotKeyConfig::current(), stored);
        }
    }

    void withoutX11NothingRegisters() {
        HotKeyManager& manager = HotKeyManager::shared();
        QVERIFY(!manager.registerHotKey(HotKeyConfig::defaultShortcut()));
        QVERIFY(!manager.isRegistered());
        manager.unregister();
        manager.unregister();
        QVERIFY(manager.keysymsOfKey(40).isEmpty());
    }
};

int main(int argc, char** argv) {
    if (qEnvironmentVariable("QUILLERY_TEST_CHILD") == QLatin1String("current"))
        return HotKeyConfigTest::printCurrent();
    QGuiApplication app(argc, argv);
    HotKeyConfigTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_hotkeyconfig.moc"
