#include "Clock.h"
#include "DrawingStore.h"
#include "NotificationCounter.h"
#include "PaletteColor.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QProcess>
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

    // "current" after the action: "none", "kept" (unchanged) or "new".
    void notificationsAndWhatIsKept_data() {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("action");
        QTest::addColumn<int>("posts");
        QTest::addColumn<int>("items");
        QTest::addColumn<QString>("current");
        const auto row = [](const char* before, const char* action, int posts, int items,
                            const char* current) {
            QTest::addRow("%s | %s", before, action)
                << before << action << posts << items << current;
        };
        row("", "b1,1", 1, 0, "new");
        row("b10,20", "f10,20", 2, 1, "none");
        row("rect b9,9", "f9,9", 2, 0, "none");
        row("arrow b0,0 u1,1", "f0,2.9", 2, 0, "none");
        row("ellipse b0,0 u1,1", "f3,0", 2, 1, "none");
        row("b0,0 u5,5", "b7,7", 1, 0, "new");
        row("", "undo", 0, 0, "none");
        row("", "clear", 1, 0, "none");
        row("", "end", 0, 0, "none");
        row("arrow b0,0 u10,0", "end", 2, 1, "none");
        row("t5,5 +abc", "end", 1, 1, "none");
        row("t5,5 +a", "u50,50 f60,60", 0, 0, "kept");
        row("b0,0 u5,5", "+x", 0, 0, "kept");
        row("t5,5", "+Hi", 1, 0, "new");
        row("t5,5", "commit", 1, 0, "none");
        row("t5,5 +Hi", "commit", 1, 1, "none");
        row("t5,5 +Hi < <", "<", 0, 0, "kept");
        row("t5,5 +Hi < <", "commit", 1, 0, "none");
        row("b0,0 f1,1 b2,2 f3,3 t5,5 +abc", "undo", 1, 1, "kept");
    }
    void notificationsAndWhatIsKept() {
        QFETCH(QString, before);
        QFETCH(QString, action);
        QFETCH(int, posts);
        QFETCH(int, items);
        QFETCH(QString, current);
        DrawingStore store;
        run(store, before);
        const std::optional<Item> wasCurrent = store.current();
        const bool hadTimer = store.isTimerRunning();
        NotificationCounter changes(drawingStoreChanged, store);
        run(store, action);
        QCOMPARE(changes.count, posts);
        QCOMPARE(int(store.items().size()), items);
        QCOMPARE(store.current().has_value(), current != "none");
        if (current == "kept")
            QCOMPARE(*store.current(), *wasCurrent);
        if (current == "new")
            QVERIFY(store.current() != wasCurrent && !store.current()->finishedAt);
        for (const Item& item : store.items())
            QCOMPARE(item.finishedAt, std::optional<double>(t0));
        QCOMPARE(store.isTimerRunning(), hadTimer || items > 0);
    }

    void whatItemsHold() {
        DrawingStore store;
        store.setColorIndex(3);
        store.begin({10, 20});
        store.setColorIndex(1); // a later choice leaves the item being drawn alone
        store.finishStroke({10, 20});
        QCOMPARE(store.items().back().points, (std::vector<QPointF>{{10, 20}, {10, 20}}));
        QCOMPARE(store.items().back().color, palette()[3].color);
        QCOMPARE(store.items().back().width, 4.0);
        run(store, "arrow b5,5 u6,7 u8,9 u20,30 f50,60");
        QCOMPARE(store.items().back().points, (std::vector<QPointF>{{5, 5}, {50, 60}}));
        run(store, "highlighter b0,0 u3,4 end");
        QCOMPARE(store.items().back().points, (std::vector<QPointF>{{0, 0}, {3, 4}, {3, 4}}));
        Item copy = store.items().front();
        copy.points.clear();
        QCOMPARE(store.items().front().points.size(), size_t(2));

        for (const auto& [width, size] : {std::pair(4.0, 30.0), {1.0, 21.0}, {10.0, 48.0}}) {
            store.setWidth(width);
            run(store, "t5,5 +x");
            store.setWidth(16);
            QCOMPARE(store.current()->width, size);
        }
        run(store, "end");
        QCOMPARE(store.items().back().text, QStringLiteral("x"));
        QCOMPARE(store.items().back().points, (std::vector<QPointF>{{5, 5}}));
        run(store, "undo");
        QCOMPARE(store.items().back().kind, Tool::highlighter);
    }

    // Typed piece by piece, as key events deliver it.
    void backspaceRemovesOneGrapheme() {
        for (const auto& [typed, left] :
             {std::pair("+a +e +\u0301", "a"),
              {"+o +k +\U0001F44D +\U0001F3FD", "ok"},
              {"+x +\U0001F468 +\u200D +\U0001F469 +\u200D +\U0001F467", "x"},
              {"+\U0001F1E9 +\U0001F1EA", ""}}) {
            DrawingStore store;
            run(store, QStringLiteral("t0,0 %1 <").arg(QString::fromUtf8(typed)));
            QCOMPARE(store.current()->text, QString::fromUtf8(left));
        }
    }

    void toolsAndPalette() {
        for (Tool tool : allTools)
            QCOMPARE(toolFromRawValue(rawValue(tool)), tool);
        QCOMPARE(toolFromRawValue(u"highlighter"), Tool::highlighter);
        QVERIFY(!toolFromRawValue(u"Pen") && !toolFromRawValue(u""));
        QStringList names;
        for (const PaletteColor& entry : palette())
            names << entry.name;
        QCOMPARE(names, QStringList({"Red", "Yellow", "Green", "Blue", "White", "Black"}));
    }

    void invalidColourIndexIsFatal() {
        for (const char* index : {"6", "-1"}) {
            QProcess child;
            child.start(QCoreApplication::applicationFilePath(), {"--begin-with-colour", index});
            QVERIFY(child.waitForFinished(20000));
            const QString errors = QString::fromLocal8Bit(child.readAllStandardError());
            QCOMPARE(child.exitStatus(), QProcess::CrashExit);
            QVERIFY2(errors.contains(QStringLiteral("fatal error")), qPrintable(errors));
            QVERIFY2(errors.contains(QStringLiteral("index %1").arg(index)), qPrintable(errors));
        }
    }

    void alphaCurve() {
        const auto alpha = [](double fadeSeconds, double age) {
            Settings::shared().setFadeSeconds(fadeSeconds);
            Item item;
            item.finishedAt = t0;
            return DrawingStore::alpha(item, t0 + age);
        };
        QCOMPARE(alpha(4.0, 0.0), 1.0);
        QCOMPARE(alpha(4.0, 4.0), 1.0);
        QVERIFY(qAbs(alpha(4.0, 4.4) - 0.5) < 1e-9);
        QCOMPARE(alpha(4.0, 4.8), 0.0);
        QCOMPARE(alpha(4.0, -30.0), 1.0); // committed in the future: the clock was set back
        QCOMPARE(alpha(0.0, 100.0), 1.0);
        QCOMPARE(alpha(-3.0, 100.0), 1.0);
        Settings::shared().setFadeSeconds(1.0);
        QCOMPARE(DrawingStore::alpha(Item(), t0 + 100), 1.0); // the item being drawn never fades
    }

    void itemsFadeInTurnAndTheTimerStops() {
        DrawingStore store;
        run(store, "b0,0 f5,5");
        Clock::setFixedNow(t0 + 1.0);
        run(store, "b10,0 f15,5");
        NotificationCounter changes(drawingStoreChanged, store);
        Clock::setFixedNow(t0 + 3.9);
        letTimerTick();
        QCOMPARE(changes.take(), 0); // nothing fading: ticks cost no repaint
        Clock::setFixedNow(t0 + 4.4);
        letTimerTick();
        QVERIFY(changes.take() >= 2); // fading: a repaint at every tick
        Clock::setFixedNow(t0 + 4.8);
        QTRY_COMPARE(store.items().size(), size_t(1));
        QCOMPARE(changes.take(), 1);
        QCOMPARE(store.items().front().points.front(), QPointF(10, 0));
        Clock::setFixedNow(t0 + 5.8);
        QTRY_VERIFY(store.items().empty());
        QCOMPARE(changes.take(), 1);
        QVERIFY(!store.isTimerRunning());
        letTimerTick();
        QCOMPARE(changes.count, 0);
    }

    void turningFadingOnRemovesOldItemsAtOnce() {
        Settings::shared().setFadeSeconds(0.0);
        DrawingStore store;
        run(store, "b0,0 f5,5 b10,0 f15,5");
        Clock::setFixedNow(t0 + 2.0);
        run(store, "b20,0 f25,5");
        NotificationCounter changes(drawingStoreChanged, store);
        Clock::setFixedNow(t0 + 3.0);
        letTimerTick();
        QCOMPARE(changes.count, 0); // never fading: quiet, no timer wakes
        QVERIFY(!store.isTimerRunning());
        Settings::shared().setFadeSeconds(2.0);
        QTRY_COMPARE(store.items().size(), size_t(1));
        QCOMPARE(changes.take(), 1);
        QCOMPARE(store.items().front().points.front(), QPointF(20, 0));
    }

    // Every committed item has its own id, never reused; each commit, removal
    // and fade is told by id, before the repaint notice of the same change.
    void itemIdsAndTheirNotices() {
        DrawingStore store;
        QStringList heard;
        const auto hear = [&](const char* what) {
            return
                [&heard, what](quint64 id) { heard << QStringLiteral("%1 %2").arg(what).arg(id); };
        };
        connect(&store, &DrawingStore::itemCommitted, this, hear("commit"));
        connect(&store, &DrawingStore::itemRemoved, this, hear("remove"));
        connect(&store, &DrawingStore::itemFaded, this, hear("fade"));
        connect(&store, &DrawingStore::drawingStoreChanged, this, [&] { heard << "changed"; });
        const auto take = [&] { return std::exchange(heard, {}).join(u'/'); };
        const auto ids = [&] {
            QList<quint64> list;
            for (const Item& item : store.items())
                list << item.id;
            return list;
        };
        const struct {
            const char* steps;
            double at;
            QString heard;
            QList<quint64> ids;
        } table[] = {
            {"b0,0 f5,5", 0, "changed/changed/commit 1/changed", {1}},
            {"b1,1 f6,6 undo", 0, "changed/changed/commit 2/changed/remove 2/changed", {1}},
            {"rect b0,0 f1,1 t9,9 +a commit",
             0,
             "changed/changed/changed/changed/changed/changed/commit 3/changed",
             {1, 3}},
            {"pen b2,2 f7,7", 2, "changed/changed/changed/commit 4/changed", {1, 3, 4}},
            {"", 4.8, "fade 1/fade 3/changed", {4}},
            {"clear", 4.8, "remove 4/changed", {}},
        };
        for (const auto& row : table) {
            Clock::setFixedNow(t0 + row.at);
            run(store, row.steps);
            if (!*row.steps) {
                QTRY_VERIFY(!heard.isEmpty());
                QTest::qWait(DrawingStore::timerIntervalMs); // the next tick finds nothing new
            }
            QCOMPARE(take(), row.heard);
            QCOMPARE(ids(), row.ids);
        }
    }

    void clearStopsTheTimerSilently() {
        DrawingStore store;
        run(store, "b0,0 f5,5 clear");
        NotificationCounter changes(drawingStoreChanged, store);
        QTRY_VERIFY(!store.isTimerRunning());
        QCOMPARE(changes.count, 0);
    }
};

int main(int argc, char** argv) {
    if (argc == 3 && qstrcmp(argv[1], "--begin-with-colour") == 0) {
        DrawingStore store;
        store.setColorIndex(std::atoi(argv[2]));
        store.colorIndex() < 0 ? store.beginText({0, 0}) : store.begin({0, 0});
        return 0;
    }
    QCoreApplication app(argc, argv);
    DrawingStoreTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_drawingstore.moc"
