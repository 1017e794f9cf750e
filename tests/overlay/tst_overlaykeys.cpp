#include "Clock.h"
#include "DrawingStore.h"
#include "NotificationCounter.h"
#include "OverlayController.h"
#include "OverlayView.h"
#include "OverlayWindow.h"
#include "OverlayWindows.h"
#include "PaletteColor.h"
#include "Settings.h"
#include "TestSettings.h"
#include "XTestSupport.h"

#include <QtTest>

// The drawing-mode keys and the mouse, sent as real Qt events to the view of a
// live overlay window.
class OverlayKeysTest : public QObject {
    Q_OBJECT

    OverlayController& controller = OverlayController::shared();
    DrawingStore& store = controller.store();
    std::unique_ptr<TestSettings> settings;

    OverlayView* view() const { return overlayWindows().front()->view(); }

    // A key as the keyboard produces it: Qt's key code, the modifiers and the
    // text it types (Ctrl+Z types U+001A, arrows and F-keys type nothing).
    void press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier,
               const QString& text = {}) {
        QKeyEvent event(QEvent::KeyPress, key, modifiers, text);
        QApplication::sendEvent(view(), &event);
    }
    void type(char character, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::keyClick(view(), character, modifiers);
    }
    void ctrl(char letter) {
        press(Qt::Key_A + (letter - 'a'), Qt::ControlModifier,
              QString(QChar(char16_t(letter - 'a' + 1))));
    }
    void commitStroke(QPoint from, QPoint to) {
        QTest::mousePress(view(), Qt::LeftButton, {}, from);
        QTest::mouseMove(view(), to);
        QTest::mouseRelease(view(), Qt::LeftButton, {}, to);
    }
    void startTyping(const QString& text = {}) {
        store.setTool(Tool::text);
        QTest::mouseClick(view(), Qt::LeftButton, {}, QPoint(50, 60));
        QVERIFY(store.current() && store.current()->kind == Tool::text);
        store.appendText(text);
    }
    // As an input method asks.
    QVariant imQuery(Qt::InputMethodQuery query) const {
        QInputMethodQueryEvent event(query);
        QCoreApplication::sendEvent(view(), &event);
        return event.value(query);
    }
    QString typed() const { return store.current() ? store.current()->text : QString(); }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();

        Clock::setFixedNow(1000.0);
        controller.start();
        QVERIFY(store.isDrawing());
        store.setTool(Tool::pen);
        store.setColorIndex(0);
        store.setWidth(4);
    }
    void cleanup() {
        controller.stop();
        store.clear();
        Clock::setFixedNow(std::nullopt);
        QVERIFY(!controller.isShown());
    }

    void nothingHappensWhileNotDrawing() {
        commitStroke({10, 10}, {60, 60});
        controller.stop();
        const size_t items = store.items().size();
        QCOMPARE(items, size_t(1));
        NotificationCounter changes(drawingStoreChanged);
        for (char key : {'r', 'c', 'u', '[', ']', '3'})
            type(key);
        press(Qt::Key_Tab, Qt::NoModifier, QStringLiteral("\t"));
        ctrl('z');
        press(Qt::Key_Escape);
        commitStroke({10, 10}, {90, 90});
        QCOMPARE(changes.count, 0);
        QCOMPARE(store.tool(), Tool::pen);
        QCOMPARE(store.width(), 4.0);
        QCOMPARE(store.colorIndex(), 0);
        QCOMPARE(store.items().size(), items);
        QVERIFY(Settings::shared().hudVisible());
    }

    void toolKeys_data() {
        QTest::addColumn<char>("key");
        QTest::addColumn<bool>("shift");
        QTest::addColumn<Tool>("tool");
        QTest::newRow("p") << 'p' << false << Tool::pen;
        QTest::newRow("a") << 'a' << false << Tool::arrow;
        QTest::newRow("e") << 'e' << false << Tool::ellipse;
        QTest::newRow("r") << 'r' << false << Tool::rect;
        QTest::newRow("h") << 'h' << false << Tool::highlighter;
        QTest::newRow("t") << 't' << false << Tool::text;
        QTest::newRow("Shift+E") << 'E' << true << Tool::ellipse;
        QTest::newRow("Shift+T") << 'T' << true << Tool::text;
    }
    void toolKeys() {
        QFETCH(char, key);
        QFETCH(bool, shift);
        QFETCH(Tool, tool);
        store.setTool(Tool::highlighter == tool ? Tool::pen : Tool::highlighter);
        NotificationCounter changes(drawingStoreChanged);
        type(key, shift ? Qt::ShiftModifier : Qt::NoModifier);
        QCOMPARE(store.tool(), tool);
        QCOMPARE(changes.count, 1);
    }

    void changingToolOrColourLeavesTheStrokeInProgress() {
        QTest::mousePress(view(), Qt::LeftButton, {}, QPoint(10, 10));
        type('r');
        type('4');
        QTest::mouseMove(view(), QPoint(40, 40));
        QTest::mouseRelease(view(), Qt::LeftButton, {}, QPoint(80, 80));
        QCOMPARE(store.items().back().kind, Tool::pen);
        QCOMPARE(store.items().back().color, paletteColor(0).color);
        QCOMPARE(store.tool(), Tool::rect);
        QCOMPARE(store.colorIndex(), 3);
    }

    void clearAndUndo() {
        for (int i = 0; i < 4; ++i)
            commitStroke({10 + i, 10}, {60, 60 + i});
        QCOMPARE(store.items().size(), size_t(4));
        NotificationCounter changes(drawingStoreChanged);
        type('u');
        QCOMPARE(store.items().size(), size_t(3));
        type('U', Qt::ShiftModifier);
        QCOMPARE(store.items().size(), size_t(2));
        ctrl('z');
        QCOMPARE(store.items().size(), size_t(1));
        QCOMPARE(changes.take(), 3); // the store's own announcements, no more
        QCOMPARE(store.items().front().points.front(), QPointF(10, 10));

        // Ctrl with anything but Z is no command, not even its plain letter's.
        for (char letter : {'c', 'p', 'r', 'u'})
            ctrl(letter);
        QCOMPARE(store.tool(), Tool::pen);
        QCOMPARE(store.items().size(), size_t(1));
        QCOMPARE(changes.take(), 0);

        type('c');
        QVERIFY(store.items().empty());
        QCOMPARE(changes.take(), 1);
    }

    void widths() {
        NotificationCounter changes(drawingStoreChanged);
        for (int i = 0; i < 5; ++i)
            type('[');
        QCOMPARE(store.width(), 2.0);
        QCOMPARE(changes.take(), 5); // announced even at the bound
        for (int i = 0; i < 20; ++i)
            type(']');
        QCOMPARE(store.width(), 16.0);

        store.setWidth(3.5);
        type(']');
        QCOMPARE(store.width(), 4.5);
        type('[');
        type('[');
        QCOMPARE(store.width(), 2.5);
        type('[');
        QCOMPARE(store.width(), 2.0);
        store.setWidth(13.25);
        type(']');
        type(']');
        QCOMPARE(store.width(), 15.25);
        type(']');
        QCOMPARE(store.width(), 16.0);
    }

    void tabTogglesTheHintBar() {
        NotificationCounter changes(drawingStoreChanged);
        QTRY_VERIFY(view()->hasFocus());
        // Through QTest, so Tab travels the way Qt's focus chain would see it.
        QTest::keyClick(view(), Qt::Key_Tab);
        QVERIFY(!Settings::shared().hudVisible());
        QVERIFY(Settings::shared().contains(Settings::Key::hudVisible));
        QCOMPARE(changes.take(), 1);
        QVERIFY(view()->hasFocus()); // Tab is a command here, not a move to another widget
        QTest::keyClick(view(), Qt::Key_Tab);
        QVERIFY(Settings::shared().hudVisible());
        QCOMPARE(changes.take(), 1);
        // Written to the settings file, where the next read of any part finds it.
        QTest::keyClick(view(), Qt::Key_Tab);
        QSettings file(settings->filePath(), QSettings::IniFormat);
        QCOMPARE(file.value(QStringLiteral("hudVisible")).toBool(), false);
    }

    void colourKeys_data() {
        QTest::addColumn<char>("key");
        QTest::addColumn<int>("colorIndex");
        for (int n = 1; n <= 6; ++n)
            QTest::addRow("%d", n) << char('0' + n) << n - 1;
        for (char key : {'0', '7', '8', '9', '-', '+', '!'})
            QTest::addRow("%c", key) << key << -1;
    }
    void colourKeys() {
        QFETCH(char, key);
        QFETCH(int, colorIndex);
        store.setColorIndex(2);
        NotificationCounter changes(drawingStoreChanged);
        type(key);
        QCOMPARE(store.colorIndex(), colorIndex < 0 ? 2 : colorIndex);
        QCOMPARE(changes.count, colorIndex < 0 ? 0 : 1);
    }

    void keypadDigitsChooseColours() {
        press(Qt::Key_5, Qt::KeypadModifier, QStringLiteral("5"));
        QCOMPARE(store.colorIndex(), 4);
    }

    void unknownKeysDoNothing() {
        NotificationCounter changes(drawingStoreChanged);
        for (char key : {'x', 'q', ' ', '/', '{'})
            type(key);
        press(Qt::Key_Left);
        press(Qt::Key_F1);
        press(Qt::Key_Backtab, Qt::ShiftModifier);
        press(Qt::Key_Return, Qt::NoModifier, QStringLiteral("\r"));
        press(Qt::Key_Backspace, Qt::NoModifier, QStringLiteral("\b"));
        QCOMPARE(changes.count, 0);
        QCOMPARE(store.tool(), Tool::pen);
        QVERIFY(store.isDrawing());
    }

    void typingText() {
        startTyping();
        NotificationCounter changes(drawingStoreChanged);
        // Command letters, digits and brackets are text now.
        for (char key : {'c', 'u', 'p', '1', '['})
            type(key);
        type('H', Qt::ShiftModifier);
        QCOMPARE(typed(), QStringLiteral("cup1[H"));
        QCOMPARE(changes.take(), 6);
        QCOMPARE(store.tool(), Tool::text);
        QCOMPARE(store.colorIndex(), 0);

        // Keys that type nothing add nothing and announce nothing.
        press(Qt::Key_Tab, Qt::NoModifier, QStringLiteral("\t"));
        press(Qt::Key_Left);
        press(Qt::Key_F5);
        press(Qt::Key_Delete, Qt::NoModifier, QStringLiteral("\x7f"));
        press(Qt::Key_unknown, Qt::NoModifier, QString(QChar(0xf700)));
        ctrl('z');
        ctrl('c');
        QCOMPARE(typed(), QStringLiteral("cup1[H"));
        QCOMPARE(changes.take(), 0);

        // Control characters are dropped from the middle of typed text too.
        press(Qt::Key_unknown, Qt::NoModifier, QStringLiteral("a\tb\x1b") + QChar(0xf8ff));
        press(Qt::Key_unknown, Qt::NoModifier, QStringLiteral("\U0001F600"));
        QCOMPARE(typed(), QStringLiteral("cup1[Hab\U0001F600"));

        press(Qt::Key_Backspace, Qt::NoModifier, QStringLiteral("\b"));
        press(Qt::Key_Backspace, Qt::NoModifier, QStringLiteral("\b"));
        QCOMPARE(typed(), QStringLiteral("cup1[Ha"));
        QVERIFY(store.items().empty());

        press(Qt::Key_Return, Qt::NoModifier, QStringLiteral("\r"));
        QVERIFY(!store.current());
        QCOMPARE(store.items().size(), size_t(1));
        QCOMPARE(store.items().front().text, QStringLiteral("cup1[Ha"));
        QCOMPARE(store.items().front().points.front(), QPointF(50, 60));

        // Keys are commands again.
        type('c');
        QVERIFY(store.items().empty());
    }

    // Input methods (dead keys, Compose, IBus) help with text only: while
    // drawing, letters are commands. What they compose is typed; their
    // candidate windows go beside the caret.
    void inputMethodsHelpWhileTyping() {
        QVERIFY(!imQuery(Qt::ImEnabled).toBool());
        startTyping(QStringLiteral("ab"));
        QVERIFY(imQuery(Qt::ImEnabled).toBool());
        const QRect caret = imQuery(Qt::ImCursorRectangle).toRect();
        QVERIFY2(caret.left() > 55 && caret.top() < 60 && caret.bottom() > 60,
                 qPrintable(QStringLiteral("%1,%2 %3x%4")
                                .arg(caret.x())
                                .arg(caret.y())
                                .arg(caret.width())
                                .arg(caret.height())));
        QInputMethodEvent composed;
        composed.setCommitString(QStringLiteral("é"));
        QCoreApplication::sendEvent(view(), &composed);
        QCOMPARE(typed(), QStringLiteral("abé"));
        press(Qt::Key_Return);
        QVERIFY(!imQuery(Qt::ImEnabled).toBool());
    }

    // The real keyboard path: an international layout's dead key and a Compose
    // key, pressed on the X server, go through the platform's input method.
    void deadKeysAndComposeFromTheKeyboard() {
        QVERIFY(!XDesktop::run("setxkbmap",
                               {"-layout", "us", "-variant", "intl", "-option", "compose:menu"})
                     .isNull());
        QTRY_VERIFY(view()->hasFocus() && view()->window()->isActiveWindow());
        startTyping(QStringLiteral("ab"));
        QVERIFY(XDesktop::xdotool("key dead_acute e Multi_key o c"));
        QTRY_COMPARE(typed(), QStringLiteral("abé©"));
        QVERIFY(!XDesktop::run("setxkbmap", {"-layout", "us"}).isNull());
    }

    void keypadEnterCommits() {
        startTyping(QStringLiteral("note"));
        press(Qt::Key_Enter, Qt::KeypadModifier, QStringLiteral("\r"));
        QVERIFY(!store.current());
        QCOMPARE(store.items().back().text, QStringLiteral("note"));
    }

    void escapeEndsDrawingWhileTyping() {
        startTyping(QStringLiteral("half"));
        NotificationCounter states(drawingStateChanged);
        press(Qt::Key_Escape, Qt::NoModifier, QStringLiteral("\x1b"));
        QVERIFY(!store.isDrawing());
        QCOMPARE(states.count, 1);
        QVERIFY(!store.current());
        QCOMPARE(store.items().back().text, QStringLiteral("half"));
        // What is left stays on screen and no longer takes the mouse.
        QVERIFY(controller.isShown());
        QVERIFY(overlayWindows().front()->isClickThrough());
    }

    void escapeWithModifiersStillStops() {
        press(Qt::Key_Escape, Qt::ShiftModifier | Qt::ControlModifier);
        QVERIFY(!store.isDrawing());
        QVERIFY(!controller.isShown());
    }

    void clicksWhileTyping() {
        startTyping(QStringLiteral("one"));
        // Another click with the text tool commits and starts a new text there.
        QTest::mouseClick(view(), Qt::LeftButton, {}, QPoint(200, 210));
        QCOMPARE(store.items().back().text, QStringLiteral("one"));
        QCOMPARE(store.current()->kind, Tool::text);
        QCOMPARE(store.current()->points.front(), QPointF(200, 210));
        store.appendText(QStringLiteral("two"));
        // With another tool, the click commits the text and starts a stroke.
        type('x'); // typed into the text, not a command
        store.setTool(Tool::rect);
        QTest::mousePress(view(), Qt::LeftButton, {}, QPoint(300, 300));
        QCOMPARE(store.items().back().text, QStringLiteral("twox"));
        QCOMPARE(store.current()->kind, Tool::rect);
        QTest::mouseRelease(view(), Qt::LeftButton, {}, QPoint(340, 330));
        QCOMPARE(store.items().back().kind, Tool::rect);
        QCOMPARE(store.items().back().points,
                 (std::vector<QPointF>{QPointF(300, 300), QPointF(340, 330)}));
        // Other buttons don't draw.
        QTest::mouseClick(view(), Qt::RightButton, {}, QPoint(20, 20));
        QVERIFY(!store.current());
        QCOMPARE(store.items().size(), size_t(3));
    }

    void crosshairOnlyWhileDrawing() {
        QCOMPARE(view()->cursor().shape(), Qt::CrossCursor);
        controller.stop();
        QCOMPARE(view()->cursor().shape(), Qt::ArrowCursor);
        QVERIFY(!view()->testAttribute(Qt::WA_SetCursor));
    }
};

QTEST_MAIN(OverlayKeysTest)
#include "tst_overlaykeys.moc"
