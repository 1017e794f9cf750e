#include "Clock.h"
#include "DrawingStore.h"
#include "NotificationCounter.h"
#include "TestSettings.h"

#include <QtTest>

// Typing a label: begin, append, backspace by user-perceived character, commit.
class TextEditingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { Clock::setFixedNow(50.0); }
    void cleanup() { Clock::setFixedNow(std::nullopt); }

    void fontSizeFollowsWidthAtBegin_data() {
        QTest::addColumn<double>("width");
        QTest::addColumn<double>("fontSize");
        QTest::newRow("default") << 4.0 << 30.0;
        QTest::newRow("one") << 1.0 << 21.0;
        QTest::newRow("ten") << 10.0 << 48.0;
    }
    void fontSizeFollowsWidthAtBegin() {
        QFETCH(double, width);
        QFETCH(double, fontSize);
        DrawingStore store;
        store.width = width;
        store.colorIndex = 2;
        store.beginText({30, 40});
        store.width = 16; // changing the width while typing doesn't resize the text
        QCOMPARE(store.current()->width, fontSize);
        QCOMPARE(store.current()->kind, Tool::text);
        QCOMPARE(store.current()->points, (std::vector<QPointF>{{30, 40}}));
        QVERIFY(!store.current()->finishedAt);
    }

    void typingAndCommitting() {
        DrawingStore store;
        NotificationCounter changes(drawingStoreChanged);
        store.beginText({0, 0});
        store.appendText(QStringLiteral("Hi"));
        store.appendText(QString()); // announced although nothing changed
        QCOMPARE(changes.take(), 3);
        store.appendText(QStringLiteral(" there "));
        store.commitText();
        QCOMPARE(changes.take(), 2);
        QCOMPARE(store.items().size(), size_t(1));
        QCOMPARE(store.items().front().text, QStringLiteral("Hi there "));
        QCOMPARE(store.items().front().finishedAt, std::optional<double>(50.0));
        QVERIFY(store.isTimerRunning());

        store.beginText({0, 0});
        store.appendText(QStringLiteral("   "));
        store.commitText(); // only spaces is not empty
        QCOMPARE(store.items().size(), size_t(2));
    }

    void emptyTextLeavesNothing() {
        DrawingStore store;
        store.beginText({0, 0});
        NotificationCounter changes(drawingStoreChanged);
        store.commitText();
        QCOMPARE(changes.take(), 1);
        QVERIFY(store.items().empty());
        QVERIFY(!store.current());
        QVERIFY(!store.isTimerRunning());

        store.beginText({0, 0});
        store.appendText(QStringLiteral("Hi"));
        changes.take();
        store.deleteLastCharacter();
        store.deleteLastCharacter();
        QCOMPARE(changes.take(), 2);
        store.deleteLastCharacter();
        QCOMPARE(changes.take(), 0);
        store.commitText();
        QVERIFY(store.items().empty());
    }

    void backspaceRemovesWholeGraphemes_data() {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("left");
        QTest::newRow("combining accent") << QStringLiteral("ae\u0301") << QStringLiteral("a");
        QTest::newRow("emoji with skin tone")
            << QStringLiteral("ok\U0001F44D\U0001F3FD") << QStringLiteral("ok");
        QTest::newRow("family zwj sequence")
            << QStringLiteral("x\U0001F468\u200D\U0001F469\u200D\U0001F467") << QStringLiteral("x");
        QTest::newRow("flag") << QStringLiteral("\U0001F1E9\U0001F1EA") << QString();
        QTest::newRow("astral letter") << QStringLiteral("b\U0001D400") << QStringLiteral("b");
    }
    void backspaceRemovesWholeGraphemes() {
        QFETCH(QString, typed);
        QFETCH(QString, left);
        DrawingStore store;
        store.beginText({0, 0});
        // Typed piece by piece, as key events deliver it.
        for (const QChar& part : typed) {
            if (part.isLowSurrogate())
                continue;
            const qsizetype at = &part - typed.constData();
            store.appendText(typed.mid(at, part.isHighSurrogate() ? 2 : 1));
        }
        QCOMPARE(store.current()->text, typed);
        store.deleteLastCharacter();
        QCOMPARE(store.current()->text, left);
    }

    void textOperationsIgnoreOtherItems() {
        DrawingStore store;
        store.begin({0, 0});
        NotificationCounter changes(drawingStoreChanged);
        store.appendText(QStringLiteral("x"));
        store.deleteLastCharacter();
        store.commitText();
        QCOMPARE(changes.count, 0);
        QVERIFY(store.current()->text.isEmpty());
        QCOMPARE(store.current()->kind, Tool::pen);
    }

    void mouseCannotDisturbText() {
        DrawingStore store;
        store.beginText({5, 5});
        NotificationCounter changes(drawingStoreChanged);
        store.update({50, 50});
        store.finishStroke({60, 60});
        QCOMPARE(changes.count, 0);
        QCOMPARE(store.current()->points, (std::vector<QPointF>{{5, 5}}));
    }

    void undoWhileTypingLeavesTheText() {
        DrawingStore store;
        store.begin({0, 0});
        store.finishStroke({5, 5});
        store.beginText({1, 1});
        store.appendText(QStringLiteral("abc"));
        store.undo();
        QVERIFY(store.items().empty());
        QCOMPARE(store.current()->text, QStringLiteral("abc"));
        store.endSession();
        QCOMPARE(store.items().size(), size_t(1));
        QCOMPARE(store.items().front().text, QStringLiteral("abc"));
        QVERIFY(store.items().front().finishedAt);
    }

    void beginTextDropsTextInProgress() {
        DrawingStore store;
        store.beginText({0, 0});
        store.appendText(QStringLiteral("lost"));
        store.beginText({9, 9});
        QVERIFY(store.items().empty());
        QVERIFY(store.current()->text.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TextEditingTest)
#include "tst_textediting.moc"
