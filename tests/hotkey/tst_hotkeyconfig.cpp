#include "HotKeyConfig.h"

#include <QKeyEvent>
#include <QtTest>
#include <X11/keysym.h>

// What the shortcut recorder stores for a key event: the key code, its name
// and the modifiers.
class HotKeyConfigTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
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

QTEST_GUILESS_MAIN(HotKeyConfigTest)
#include "tst_hotkeyconfig.moc"
