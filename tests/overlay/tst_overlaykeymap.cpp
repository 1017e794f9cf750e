#include "OverlayKeyMap.h"

#include <QtTest>

// Drawing mode's keys as one table: key, text, modifiers, whether a text is
// being typed, and the command that must come of it. No display needed.
class OverlayKeyMapTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void keys_data() {
        using A = OverlayCommand::Action;
        QTest::addColumn<int>("key");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<bool>("typing");
        QTest::addColumn<int>("action");
        QTest::addColumn<int>("tool");
        QTest::addColumn<qint64>("number");
        QTest::addColumn<QString>("typed");
        const int shift = Qt::ShiftModifier, ctrl = Qt::ControlModifier, alt = Qt::AltModifier;
        const auto row = [](const char* name, int key, QString text, int modifiers, bool typing,
                            A action, Tool tool = Tool::pen, qint64 number = 0,
                            QString typed = {}) {
            QTest::newRow(name) << key << text << modifiers << typing << int(action) << int(tool)
                                << number << typed;
        };
        row("p", Qt::Key_P, "p", 0, false, A::selectTool, Tool::pen);
        row("Shift+A", Qt::Key_A, "A", shift, false, A::selectTool, Tool::arrow);
        row("e", Qt::Key_E, "e", 0, false, A::selectTool, Tool::ellipse);
        row("r with Alt", Qt::Key_R, "", alt, false, A::selectTool, Tool::rect);
        row("h", Qt::Key_H, "h", 0, false, A::selectTool, Tool::highlighter);
        row("t", Qt::Key_T, "t", 0, false, A::selectTool, Tool::text);
        row("1", Qt::Key_1, "1", 0, false, A::selectColor, Tool::pen, 1);
        row("6", Qt::Key_6, "6", 0, false, A::selectColor, Tool::pen, 6);
        row("7: no colour, still asked", Qt::Key_7, "7", 0, false, A::selectColor, Tool::pen, 7);
        row("Shift+1 is !", Qt::Key_Exclam, "!", shift, false, A::none);
        row("[", Qt::Key_BracketLeft, "[", 0, false, A::narrower);
        row("]", Qt::Key_BracketRight, "]", 0, false, A::wider);
        row("u", Qt::Key_U, "u", 0, false, A::undo);
        row("Shift+U", Qt::Key_U, "U", shift, false, A::undo);
        row("Ctrl+Z", Qt::Key_Z, "\x1a", ctrl, false, A::undo);
        row("Ctrl+C does nothing", Qt::Key_C, "\x03", ctrl, false, A::none);
        row("c", Qt::Key_C, "c", 0, false, A::clear);
        row("Tab", Qt::Key_Tab, "\t", 0, false, A::toggleHintBar);
        row("Esc", Qt::Key_Escape, "\x1b", 0, false, A::stop);
        row("Ctrl+Shift+Esc", Qt::Key_Escape, "", ctrl | shift, false, A::stop);
        row("F5", Qt::Key_F5, "", 0, false, A::none);
        row("x", Qt::Key_X, "x", 0, false, A::none);
        row("typing c", Qt::Key_C, "c", 0, true, A::typeText, Tool::pen, 0, "c");
        row("typing é", Qt::Key_Eacute, "é", 0, true, A::typeText, Tool::pen, 0, "é");
        row("typing Tab", Qt::Key_Tab, "\t", 0, true, A::none);
        row("typing a private-use key", Qt::Key_Up, QString(QChar(0xf700)), 0, true, A::none);
        row("typing Ctrl+A", Qt::Key_A, "\x01", ctrl, true, A::none);
        row("typing Return", Qt::Key_Return, "\r", 0, true, A::commitText);
        row("typing keypad Enter", Qt::Key_Enter, "\r", 0, true, A::commitText);
        row("typing Backspace", Qt::Key_Backspace, "\b", 0, true, A::deleteCharacter);
        row("typing Esc", Qt::Key_Escape, "\x1b", 0, true, A::stop);
    }
    void keys() {
        QFETCH(int, key);
        QFETCH(QString, text);
        QFETCH(int, modifiers);
        QFETCH(bool, typing);
        QFETCH(int, action);
        QFETCH(int, tool);
        QFETCH(qint64, number);
        QFETCH(QString, typed);
        const OverlayCommand command =
            OverlayKeyMap::commandFor({key, text, Qt::KeyboardModifiers(modifiers)}, typing);
        QCOMPARE(int(command.action), action);
        QCOMPARE(command,
                 (OverlayCommand{OverlayCommand::Action(action), Tool(tool), number, typed}));
    }
};

QTEST_GUILESS_MAIN(OverlayKeyMapTest)
#include "tst_overlaykeymap.moc"
