#include "DrawingStore.h"
#include "OverlayScene.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QKeySequence>
#include <QtTest>

// Every key of drawing mode, pressed on an overlay's scene, and what it did to
// the drawing: tool, colour, width, items, typed text, hint bar, stop. No
// display needed; tst_overlaycontroller types the keys that need a real keyboard.
class OverlayKeyMapTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<DrawingStore> store;
    std::unique_ptr<OverlayScene> scene;
    bool stopped = false;

    // A key as the keyboard reports it, from its portable name ("Shift+E",
    // "Num+5" on the keypad): Qt's key, modifiers and the text it types.
    static KeyPress keyPress(const QString& name) {
        const QKeyCombination combination = QKeySequence::fromString(name)[0];
        const int key = combination.key();
        const Qt::KeyboardModifiers modifiers = combination.keyboardModifiers();
        const QMap<int, QString> controlKeys{{Qt::Key_Tab, "\t"},       {Qt::Key_Escape, "\x1b"},
                                             {Qt::Key_Return, "\r"},    {Qt::Key_Enter, "\r"},
                                             {Qt::Key_Backspace, "\b"}, {Qt::Key_Delete, "\x7f"}};
        QString text = controlKeys.value(key);
        if (modifiers & Qt::ControlModifier && key >= Qt::Key_A && key <= Qt::Key_Z)
            text = QChar(key - Qt::Key_A + 1);
        else if (key < Qt::Key_Escape && !(modifiers & Qt::AltModifier))
            text = modifiers & Qt::ShiftModifier ? QChar(key) : QChar(key).toLower();
        return {key, text, modifiers};
    }

    QString state() const {
        QStringList items;
        for (const Item& item : store->items())
            items << (item.text.isEmpty() ? QString::number(item.id) : item.text);
        QString state = QStringLiteral("%1 %2 %3 [%4]")
                            .arg(rawValue(store->tool()))
                            .arg(store->colorIndex() + 1)
                            .arg(store->width())
                            .arg(items.join(u' '));
        if (store->current())
            state += QStringLiteral(" typing ") + store->current()->text;
        if (!Settings::shared().hudVisible())
            state += QStringLiteral(" no-bar");
        return state + (stopped ? QStringLiteral(" stopped") : QString());
    }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();
        store = std::make_unique<DrawingStore>();
        scene = std::make_unique<OverlayScene>(*store);
        stopped = false;
        // As the controller does.
        connect(scene.get(), &OverlayScene::stopRequested, this, [this] {
            stopped = true;
            store->setDrawing(false);
        });
        store->setDrawing(true);
        for (int i = 0; i < 3; ++i) {
            store->begin({10.0 * i, 10});
            store->finishStroke({10.0 * i + 50, 60});
        }
        store->setColorIndex(2);
        store->setWidth(3.5);
    }

    void keys_data() {
        QTest::addColumn<bool>("typing");
        QTest::addColumn<QString>("keys");
        QTest::addColumn<QString>("after");
        const auto row = [](bool typing, const QString& keys, const char* after) {
            QTest::newRow(qPrintable((typing ? "typing " : "") + keys))
                << typing << keys << QString(after);
        };
        row(false, "A", "arrow 3 3.5 [1 2 3]");
        row(false, "H", "highlighter 3 3.5 [1 2 3]");
        row(false, "T", "text 3 3.5 [1 2 3]");
        row(false, "A P", "pen 3 3.5 [1 2 3]");
        row(false, "Shift+E", "ellipse 3 3.5 [1 2 3]");
        row(false, "Alt+R", "rect 3 3.5 [1 2 3]");
        row(false, "6", "pen 6 3.5 [1 2 3]");
        row(false, "Num+5", "pen 5 3.5 [1 2 3]");
        row(false, "7 0 Num+0 Shift+!", "pen 3 3.5 [1 2 3]");
        row(false, "[ [", "pen 3 2 [1 2 3]");
        row(false, QString("] ").repeated(13), "pen 3 16 [1 2 3]");
        row(false, "Shift+U Ctrl+Z", "pen 3 3.5 [1]");
        row(false, "C", "pen 3 3.5 []");
        row(false, "Ctrl+C Ctrl+P Ctrl+U", "pen 3 3.5 [1 2 3]");
        row(false, "X Q Space / F5 Left Return Backspace", "pen 3 3.5 [1 2 3]");
        row(false, "Tab", "pen 3 3.5 [1 2 3] no-bar");
        row(false, "Ctrl+Shift+Esc", "pen 3 3.5 [1 2 3] stopped");
        row(false, "Esc C 1 [ Tab", "pen 3 3.5 [1 2 3] stopped");
        row(true, "C U P 1 [ Shift+H É", "text 3 3.5 [1 2 3] typing abcup1[Hé");
        row(true, "Tab F5 Left Del Ctrl+Z Ctrl+A Backspace", "text 3 3.5 [1 2 3] typing a");
        row(true, "Return", "text 3 3.5 [1 2 3 ab]");
        row(true, "Num+Enter C", "text 3 3.5 []");
        row(true, "Esc", "text 3 3.5 [1 2 3] typing ab stopped");
    }
    void keys() {
        QFETCH(bool, typing);
        QFETCH(QString, keys);
        QFETCH(QString, after);
        if (typing) {
            store->setTool(Tool::text);
            store->beginText({50, 60});
            store->appendText(QStringLiteral("ab"));
        }
        for (const QString& key : keys.split(u' ', Qt::SkipEmptyParts))
            scene->keyPressed(keyPress(key));
        QCOMPARE(state(), after);
    }
};

QTEST_MAIN(OverlayKeyMapTest)
#include "tst_overlaykeymap.moc"
