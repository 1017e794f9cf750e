#include "Clock.h"
#include "DrawingStore.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

// The drawing store with the exact number of change notifications (the overlay
// repaints once per post), and its fading on the real timer with a pinned clock.
class DrawingStoreTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 10'000.0;
    std::unique_ptr<TestSettings> settings;

    // Runs steps separated by spaces: a tool name selects it; bX,Y begin, uX,Y
    // update, fX,Y finishStroke, tX,Y beginText; +abc appends "abc", < deletes a
    // character; commit, undo, clear, end (endSession).
    static void run(DrawingStore& store, const QString& steps) {
        using Store = DrawingStore;
        static const QHash<QString, void (Store::*)()> words = {{"<", &Store::deleteLastCharacter},
                                                                {"commit", &Store::commitText},
                                                                {"undo", &Store::undo},
                                                                {"clear", &Store::clear},
                                                                {"end", &Store::endSession}};
        static const QHash<QChar, void (Store::*)(QPointF)> atPoint = {{u'b', &Store::begin},
                                                                       {u'u', &Store::update},
                                                                       {u'f', &Store::finishStroke},
                                                                       {u't', &Store::beginText}};
        for (const QString& step : steps.split(u' ', Qt::SkipEmptyParts)) {
            const QStringList xy = step.mid(1).split(u',');
            if (words.contains(step))
                (store.*words[step])();
            else if (const auto tool = toolFromRawValue(step))
                store.setTool(*tool);
            else if (step[0] == u'+')
                store.appendText(step.mid(1));
            else if (atPoint.contains(step[0]) && xy.size() == 2)
                (store.*atPoint[step[0]])(QPointF(xy[0].toDouble(), xy[1].toDouble()));
            else
                QFAIL(qPrintable("unknown step " + step));
        }
    }
    static void letTimerTick() { QTest::qWait(DrawingStore::timerIntervalMs * 4); }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();
        Clock::setFixedNow(t0);
    }
    void cleanup() { Clock::setFixedNow(std::nullopt); }

    // What an action is heard as ("*": a repaint notice, then the finer
    // notices by id, each before its repaint), the ids kept and the last item's
    // points and text. Text is typed piece by piece, as key events deliver it.
    void noticesAndWhatIsKept_data() {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("heard");
        QTest::addColumn<QString>("ids");
        QTest::addColumn<QString>("last");
        const auto row = [](const char* before, const char* action, const char* heard,
                            const char* ids, const char* last = "") {
            QTest::addRow("%s | %s", before, action) << before << action << heard << ids << last;
        };
        row("", "b10,20 f10,20", "* * commit 1 *", "1", "10,20 10,20");
        row("arrow b0,0 u1,1", "f0,2.9", "* *", "");
        row("ellipse b0,0 u1,1", "f3,0", "* commit 1 *", "1", "0,0 3,0");
        row("arrow b5,5 u6,7 u8,9 u20,30", "f50,60", "* commit 1 *", "1", "5,5 50,60");
        row("highlighter b0,0 u3,4", "end", "* commit 1 *", "1", "0,0 3,4 3,4");
        row("t5,5 +abc", "end", "commit 1 *", "1", "5,5 abc");
        row("t5,5 +a", "u50,50 f60,60", "", "");
        row("b0,0 u5,5", "+x", "", "");
        row("t5,5", "+Hi", "*", "");
        row("t5,5 +Hi < <", "commit", "*", "");
        row("t0,0 +a +e +\u0301 <", "commit", "commit 1 *", "1", "0,0 a");
        row("t0,0 +o +k +\U0001F44D +\U0001F3FD <", "commit", "commit 1 *", "1", "0,0 ok");
        row("t0,0 +x +\U0001F468 +\u200D +\U0001F469 +\u200D +\U0001F467 <", "commit", "commit 1 *",
            "1", "0,0 x");
        row("b0,0 f1,1 b2,2 f3,3", "undo", "remove 2 *", "1", "0,0 1,1");
        row("b0,0 f1,1 undo", "pen b2,2 f7,7", "* * * commit 2 *", "2", "2,2 7,7");
        row("b0,0 f1,1 rect b1,1 f5,5", "clear", "remove 1 remove 2 *", "");
    }
    void noticesAndWhatIsKept() {
        QFETCH(QString, before);
        QFETCH(QString, action);
        QFETCH(QString, ids);
        DrawingStore store;
        run(store, before);
        const bool hadTimer = store.isTimerRunning();
        QStringList heard;
        connect(&store, &DrawingStore::itemCommitted, this,
                [&](quint64 id) { heard << QStringLiteral("commit %1").arg(id); });
        connect(&store, &DrawingStore::itemRemoved, this,
                [&](quint64 id) { heard << QStringLiteral("remove %1").arg(id); });
        connect(&store, &DrawingStore::drawingStoreChanged, this, [&] { heard << "*"; });
        run(store, action);
        QTEST(heard.join(u' '), "heard");
        QStringList kept, last;
        for (const Item& item : store.items()) {
            kept << QString::number(item.id);
            QCOMPARE(item.finishedAt, std::optional<double>(t0));
        }
        QCOMPARE(kept.join(u' '), ids);
        if (!ids.isEmpty()) {
            for (const QPointF& point : store.items().back().points)
                last << QStringLiteral("%1,%2").arg(point.x()).arg(point.y());
            last << store.items().back().text;
        }
        QTEST(last.join(u' ').trimmed(), "last");
        QCOMPARE(store.isTimerRunning(), hadTimer || !ids.isEmpty());
    }

    void colourPastThePaletteIsFatal() {
        QProcess child;
        child.setWorkingDirectory(settings->directory()); // where a core dump would go
        child.start(QCoreApplication::applicationFilePath(), {"--begin-with-colour-6"});
        QVERIFY(child.waitForFinished(20000));
        const QString errors = QString::fromLocal8Bit(child.readAllStandardError());
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        QVERIFY2(errors.contains("fatal error: colour index 6"), qPrintable(errors));
    }

    // Fading off, the timer sleeps; turned on, what is already old goes at once,
    // the rest in turn, with a repaint at every tick only while one fades.
    void itemsFadeInTurnAndTheTimerStops() {
        Settings::shared().setFadeSeconds(0.0);
        DrawingStore store;
        run(store, "b0,0 f5,5");
        Clock::setFixedNow(t0 + 1.0);
        run(store, "b10,0 f15,5");
        QSignalSpy changes(&store, &DrawingStore::drawingStoreChanged);
        const auto take = [&changes] {
            const auto seen = changes.size();
            changes.clear();
            return int(seen);
        };
        QSignalSpy faded(&store, &DrawingStore::itemFaded);
        Clock::setFixedNow(t0 + 4.9);
        letTimerTick();
        QVERIFY(changes.isEmpty() && !store.isTimerRunning());
        Settings::shared().setFadeSeconds(4.0);
        QTRY_COMPARE(store.items().size(), size_t(1));
        QCOMPARE(faded.takeFirst().value(0), QVariant(quint64(1)));
        letTimerTick();
        QCOMPARE(take(), 1); // the other is not fading yet: no repaint
        Clock::setFixedNow(t0 + 5.4);
        letTimerTick();
        QVERIFY(take() >= 2);
        QVERIFY(qAbs(DrawingStore::alpha(store.items().front(), Clock::now()) - 0.5) < 1e-9);
        Clock::setFixedNow(t0 + 5.8);
        QTRY_VERIFY(store.items().empty());
        QCOMPARE(take(), 1);
        QVERIFY(!store.isTimerRunning());
    }
};

int main(int argc, char** argv) {
    if (argc == 2 && qstrcmp(argv[1], "--begin-with-colour-6") == 0) {
        DrawingStore store;
        store.setColorIndex(6);
        store.begin({0, 0});
        return 0;
    }
    QCoreApplication app(argc, argv);
    DrawingStoreTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_drawingstore.moc"
