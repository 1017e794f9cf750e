#include "HotKeyConfig.h"
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

    // What a new process prints, and what it says on stderr.
    static std::pair<QString, QString> readInChild() {
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {"--print-shortcut"});
        child.waitForFinished(20000);
        return {QString::fromUtf8(child.readAllStandardOutput()).trimmed(),
                QString::fromLocal8Bit(child.readAllStandardError())};
    }

private Q_SLOTS:
    void init() { settings = std::make_unique<TestSettings>(); }

    // "printed" is the display text, key code and modifiers. (Damaged and fatal
    // values are in tst_settings.)
    void storedShortcutInANewProcess_data() {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QString>("printed");
        QTest::newRow("fresh") << QByteArray() << "Ctrl+Alt+D 2 6144";
        QTest::newRow("no name") << QByteArray("hkCode=50\nhkMods=256\n") << "Super+? 50 256";
        QTest::newRow("symbols in order")
            << QByteArray("hkCode=96\nhkMods=4864\nhkName=F5\n") << "Ctrl+Shift+Super+F5 96 4864";
        QTest::newRow("largest") << QByteArray("hkCode=4294967295\nhkMods=4294967295\nhkName=X\n")
                                 << "Ctrl+Alt+Shift+Super+X 4294967295 4294967295";
    }
    void storedShortcutInANewProcess() {
        QFETCH(QByteArray, stored);
        settings->writeFile("[General]\n" + stored);
        const auto [out, err] = readInChild();
        QTEST(out, "printed");
        QVERIFY2(!err.contains(settings->filePath()), qPrintable(err)); // no complaint
        QFile file(settings->filePath()); // reading leaves it as it was
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), "[General]\n" + stored);
    }

    void savedShortcutSurvivesANewProcess() {
        HotKeyConfig{96, 0x1300, QStringLiteral("F5")}.save();
        QCOMPARE(readInChild().first, QStringLiteral("Ctrl+Shift+Super+F5 96 4864"));
    }

    // The key code and name the recorder stores, and the modifiers it stores with them.
    void keyEventsRecorded_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<quint32>("keysym");
        QTest::addColumn<quint32>("code");
        QTest::addColumn<QString>("name");
        QTest::addColumn<quint32>("carbon");
        const int keypad = Qt::KeypadModifier | Qt::GroupSwitchModifier;
        const int all =
            Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier | Qt::MetaModifier;
        const auto row = [](const char* tag, int key, int modifiers, quint32 keysym, quint32 code,
                            const char* name, quint32 carbon = 0) {
            QTest::newRow(tag) << key << modifiers << keysym << code << QString(name) << carbon;
        };
        row("left", Qt::Key_Left, Qt::AltModifier, XK_Left, 123, "←", 0x800);
        row("backspace", Qt::Key_Backspace, Qt::MetaModifier, XK_BackSpace, 51, "Delete", 0x100);
        row("shifted D", Qt::Key_D, Qt::ControlModifier | Qt::ShiftModifier, XK_D, 2, "D", 0x1200);
        row("keypad 1 without Num Lock", Qt::Key_End, keypad, XK_KP_End, 83, "1");
        row("e acute, outside the table", Qt::Key_Eacute, 0, XK_eacute, 0x800000e9, "É");
        row("Cyrillic as a Unicode keysym", 0x412, 0, 0x1000432, 0x800006d7, "В");
        row("no keysym", Qt::Key_A, all, 0, 0, "A", 0x1B00);
    }
    void keyEventsRecorded() {
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(quint32, keysym);
        QFETCH(quint32, code);
        QFETCH(QString, name);
        QFETCH(quint32, carbon);
        const QKeyEvent event(QEvent::KeyPress, key, Qt::KeyboardModifiers(modifiers), 0, keysym,
                              0);
        QCOMPARE(HotKeyConfig::keyCodeFor(event), code);
        QCOMPARE(HotKeyConfig::keyNameFor(event), name);
        QCOMPARE(HotKeyConfig::carbonModifiers(event.modifiers()), carbon);
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
