#include "Clock.h"
#include "DrawingCommands.h"
#include "DrawingStore.h"
#include "InkMask.h"
#include "ModelInvariants.h"
#include "OverlayController.h"
#include "OverlayView.h"
#include "OverlayWindow.h"
#include "OverlayWindows.h"
#include "Renderer.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QElapsedTimer>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QtTest>
#include <array>
#include <deque>
#include <random>

// A seeded random walk through everything a user can do to the drawing:
// pointer presses, drags and releases, command keys, typed text, stopping and
// starting, and time passing while ink fades, checking the model after every
// step. QUILLERY_FUZZ_SEED picks another walk; QUILLERY_FUZZ_STORE_EVENTS and
// QUILLERY_FUZZ_VIEW_EVENTS set its lengths.
class OverlayFuzzTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 100000.0;
    std::unique_ptr<TestSettings> settings;

    static qint64 setting(const char* name, qint64 fallback) {
        bool ok = false;
        const qint64 value = qEnvironmentVariable(name).toLongLong(&ok);
        return ok && value >= 0 ? value : fallback;
    }
    static quint64 seed() { return quint64(setting("QUILLERY_FUZZ_SEED", 20240611)); }

    // Text as people type it, and as they rarely do.
    static const QStringList& texts() {
        static const QStringList pool{
            QStringLiteral("a"),
            QStringLiteral("Hello"),
            QStringLiteral(" "),
            QString(),
            QStringLiteral("e\u0301"),                                    // e + combining acute
            QStringLiteral("\U0001F44D\U0001F3FD"),                       // thumbs up, skin tone
            QStringLiteral("\U0001F1E9\U0001F1EA"),                       // a flag: two scalars
            QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467"), // a family
            QStringLiteral("\u65E5\u672C"),
            QStringLiteral("\u0645\u0631\u062D\u0628\u0627"), // right to left
            QString(QChar(0xD800)),                           // a lone surrogate
            QStringLiteral("\t\r\n"),
            QString(300, QLatin1Char('w')),
        };
        return pool;
    }

    // The last steps of a walk, told when an invariant breaks.
    struct Trace {
        std::deque<QString> steps;
        void add(QString step) {
            steps.push_back(std::move(step));
            if (steps.size() > 40)
                steps.pop_front();
        }
        QString tail() const {
            QStringList lines(steps.begin(), steps.end());
            return lines.join(QLatin1Char('\n'));
        }
    };

    static QPointF randomPoint(std::mt19937_64& random) {
        // Anywhere on a desktop of several monitors, left and above the primary one too.
        std::uniform_real_distribution<double> x(-1500, 3500), y(-800, 2200);
        return {std::round(x(random) * 4) / 4, std::round(y(random) * 4) / 4};
    }

    // The offscreen platform says at every session that it can't raise a window.
    static void quietHandler(QtMsgType type, const QMessageLogContext& context,
                             const QString& message) {
        if (message != QLatin1String("This plugin does not support raise()"))
            previousHandler(type, context, message);
    }
    static inline QtMessageHandler previousHandler = nullptr;

private Q_SLOTS:
    void initTestCase() {
        previousHandler = qInstallMessageHandler(quietHandler);
        settings = std::make_unique<TestSettings>();
    }
    void cleanup() { Clock::setFixedNow(std::nullopt); }

    // The bulk: the store and the drawing commands directly, as the view and
    // the keys drive them, fast enough for a million steps.
    void storeWalk() {
        const qint64 count = setting("QUILLERY_FUZZ_STORE_EVENTS", 900000);
        std::mt19937_64 random(seed());
        DrawingStore store;
        store.setDrawing(true);
        double now = t0;
        Clock::setFixedNow(now);
        Trace trace;
        qint64 commits = 0, ticks = 0, removedByFade = 0;
        QElapsedTimer elapsed;
        elapsed.start();

        for (qint64 step = 0; step < count; ++step) {
            const int op = int(random() % 10000);
            QString did;
            if (op < 800) {
                const Tool tool = allTools[random() % allTools.size()];
                DrawingCommands::selectTool(store, tool);
                did = QStringLiteral("tool %1").arg(rawValue(tool));
            } else if (op < 1600) {
                const QPointF p = randomPoint(random);
                if (store.tool() == Tool::text)
                    store.beginText(p);
                else
                    store.begin(p);
                did = QStringLiteral("begin %1,%2").arg(p.x()).arg(p.y());
            } else if (op < 4600) {
                const QPointF p = randomPoint(random);
                store.update(p);
                did = QStringLiteral("update %1,%2").arg(p.x()).arg(p.y());
            } else if (op < 5400) {
                const size_t before = store.items().size();
                const bool hadStroke = store.current() && store.current()->kind != Tool::text;
                const QPointF p = randomPoint(random);
                store.finishStroke(p);
                did = QStringLiteral("finish %1,%2").arg(p.x()).arg(p.y());
                commits += store.items().size() - before;
                if (hadStroke && store.current())
                    QFAIL("a finished stroke is still in progress");
            } else if (op < 6200) {
                const QString text = texts()[qsizetype(random() % texts().size())];
                store.appendText(text);
                did = QStringLiteral("type %1 characters").arg(text.size());
            } else if (op < 6600) {
                const qsizetype before = store.current() ? store.current()->text.size() : 0;
                store.deleteLastCharacter();
                did = QStringLiteral("delete");
                if (before > 0 && store.current() && store.current()->text.size() >= before)
                    QFAIL("deleting a character left the text as long as it was");
            } else if (op < 7000) {
                store.commitText();
                did = QStringLiteral("commit text");
                if (store.current() && store.current()->kind == Tool::text)
                    QFAIL("a committed text is still being edited");
            } else if (op < 7300) {
                const size_t before = store.items().size();
                DrawingCommands::undo(store);
                did = QStringLiteral("undo");
                if (store.items().size() != (before ? before - 1 : 0))
                    QFAIL("undo did not remove exactly the newest item");
            } else if (op < 7400) {
                DrawingCommands::clear(store);
                did = QStringLiteral("clear");
                if (!store.items().empty() || store.current())
                    QFAIL("clear left something behind");
            } else if (op < 7600) {
                store.endSession();
                did = QStringLiteral("end session");
                if (store.current())
                    QFAIL("the session ended with an item in progress");
            } else if (op < 8000) {
                // Keys 0-9 and a few that a remote command could send.
                static const std::array<qint64, 13> numbers{0,
                                                            1,
                                                            2,
                                                            3,
                                                            4,
                                                            5,
                                                            6,
                                                            7,
                                                            8,
                                                            9,
                                                            -1,
                                                            1LL << 40,
                                                            std::numeric_limits<qint64>::min()};
                const qint64 number = numbers[random() % numbers.size()];
                DrawingCommands::selectColor(store, number);
                did = QStringLiteral("colour %1").arg(number);
            } else if (op < 8500) {
                if (random() % 2)
                    DrawingCommands::narrower(store);
                else
                    DrawingCommands::wider(store);
                did = QStringLiteral("width %1").arg(store.width());
                if (const QString problem = ModelInvariants::checkWidth(store); !problem.isEmpty())
                    QFAIL(qPrintable(problem));
            } else if (op < 9999) {
                // Time passes: mostly a frame, sometimes long enough for ink to fade.
                const int kind = int(random() % 10);
                now += kind < 7 ? 1.0 / 30 : kind < 9 ? 0.4 : 5.0;
                Clock::setFixedNow(now);
                const size_t before = store.items().size();
                if (store.isTimerRunning()) {
                    FadeTicker::tick(store);
                    ++ticks;
                }
                removedByFade += before - store.items().size();
                did = QStringLiteral("time %1").arg(now - t0);
                const double delay = DrawingStore::fadeSeconds();
                for (const Item& item : store.items())
                    if (DrawingStore::alpha(item, now, delay) <= 0)
                        QFAIL("an invisible item outlived the tick");
            } else {
                // The fade delay changed in the settings, rarely: it is a file write.
                static const std::array<double, 5> delays{0, 2, 4, 8, 0.5};
                const double delay = delays[random() % delays.size()];
                Settings::shared().setFadeSeconds(delay);
                did = QStringLiteral("fade after %1").arg(delay);
            }
            trace.add(QStringLiteral("%1: %2").arg(step).arg(did));
            if (const QString problem = ModelInvariants::check(store); !problem.isEmpty())
                QFAIL(
                    qPrintable(QStringLiteral("QUILLERY_FUZZ_SEED=%1, step %2: %3\nlast steps:\n%4")
                                   .arg(seed())
                                   .arg(step)
                                   .arg(problem, trace.tail())));
            // Stopped fade timers are deleted later; there is no event loop here.
            if (step % 4096 == 0)
                QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
        const double seconds = elapsed.nsecsElapsed() / 1e9;
        qInfo("store walk: %lld steps (seed %llu), %lld items committed, %lld faded away, %lld "
              "ticks, %.0f steps/s",
              count, seed(), commits, removedByFade, ticks, count / std::max(seconds, 1e-9));
    }

    // Real events into the overlay's view and its key handler, through the
    // same controller that the shortcut and the tray menu use.
    void viewWalk() {
        const qint64 count = setting("QUILLERY_FUZZ_VIEW_EVENTS", 100000);
        const quint64 walkSeed = seed() ^ 0x5eed;
        std::mt19937_64 random(walkSeed);
        OverlayController& controller = OverlayController::shared();
        DrawingStore& store = controller.store();
        double now = t0;
        Clock::setFixedNow(now);
        controller.start();
        QVERIFY(store.isDrawing());
        OverlayView* view = overlayWindows().front()->view();
        const QPointF origin = QPointF(view->mapToGlobal(QPoint(0, 0)));
        bool pressed = false;
        Trace trace;
        qint64 keys = 0, pointer = 0, texts = 0, sessions = 1, paints = 0;
        const QRect screen = QGuiApplication::primaryScreen()->geometry();
        InkMask inkMask(screen, 1);
        QElapsedTimer elapsed;
        elapsed.start();

        const auto sendMouse = [&](QEvent::Type type, QPointF local, Qt::MouseButton button,
                                   Qt::MouseButtons buttons) {
            QMouseEvent event(type, local, local + origin, button, buttons, Qt::NoModifier);
            QApplication::sendEvent(view, &event);
            ++pointer;
        };
        // Tab is a key too, but writes the settings file: it has its own, rarer turn.
        static const std::array<std::pair<Qt::Key, const char*>, 23> commandKeys{{
            {Qt::Key_P, "p"},
            {Qt::Key_A, "a"},
            {Qt::Key_E, "e"},
            {Qt::Key_R, "r"},
            {Qt::Key_H, "h"},
            {Qt::Key_T, "t"},
            {Qt::Key_C, "c"},
            {Qt::Key_U, "u"},
            {Qt::Key_Z, "z"},
            {Qt::Key_BracketLeft, "["},
            {Qt::Key_BracketRight, "]"},
            {Qt::Key_0, "0"},
            {Qt::Key_1, "1"},
            {Qt::Key_3, "3"},
            {Qt::Key_6, "6"},
            {Qt::Key_7, "7"},
            {Qt::Key_9, "9"},
            {Qt::Key_Return, "\r"},
            {Qt::Key_Enter, "\r"},
            {Qt::Key_Backspace, "\b"},
            {Qt::Key_Left, ""},
            {Qt::Key_F5, ""},
            {Qt::Key_X, "x"},
        }};

        for (qint64 step = 0; step < count; ++step) {
            const int op = int(random() % 1000);
            QString did;
            const QPointF local(double(random() % quint64(view->width())),
                                double(random() % quint64(view->height())));
            if (op < 60) {
                // Now and then a press arrives while the button is already down.
                const Qt::MouseButton button = random() % 8 ? Qt::LeftButton : Qt::RightButton;
                sendMouse(QEvent::MouseButtonPress, local, button, button);
                pressed = button == Qt::LeftButton;
                did = QStringLiteral("press %1,%2").arg(local.x()).arg(local.y());
            } else if (op < 400) {
                sendMouse(QEvent::MouseMove, local, Qt::NoButton,
                          pressed ? Qt::LeftButton : Qt::NoButton);
                did = QStringLiteral("move %1,%2").arg(local.x()).arg(local.y());
            } else if (op < 460) {
                sendMouse(QEvent::MouseButtonRelease, local, Qt::LeftButton, Qt::NoButton);
                pressed = false;
                did = QStringLiteral("release %1,%2").arg(local.x()).arg(local.y());
            } else if (op < 760) {
                const auto& [key, text] = commandKeys[random() % commandKeys.size()];
                const int modifiers = int(random() % 8);
                Qt::KeyboardModifiers held;
                held.setFlag(Qt::ControlModifier, modifiers == 1);
                held.setFlag(Qt::ShiftModifier, modifiers == 2);
                held.setFlag(Qt::AltModifier, modifiers == 3);
                QTest::keyClick(view, key, held);
                ++keys;
                did = QStringLiteral("key %1 (%2) modifiers %3")
                          .arg(QLatin1String(text))
                          .arg(int(key))
                          .arg(held.toInt());
                if (const QString problem = ModelInvariants::checkWidth(store); !problem.isEmpty())
                    QFAIL(qPrintable(problem));
            } else if (op < 860) {
                const QString text =
                    OverlayFuzzTest::texts()[qsizetype(random() % OverlayFuzzTest::texts().size())];
                QKeyEvent press(QEvent::KeyPress, Qt::Key_unknown, Qt::NoModifier, text);
                QApplication::sendEvent(view, &press);
                ++texts;
                did = QStringLiteral("typed %1 characters").arg(text.size());
            } else if (op < 970) {
                now += random() % 4 ? 1.0 / 30 : 3.0;
                Clock::setFixedNow(now);
                if (store.isTimerRunning())
                    FadeTicker::tick(store);
                did = QStringLiteral("time %1").arg(now - t0);
            } else if (op < 990) {
                // Paint what there is, and let deleted windows go.
                QCoreApplication::processEvents();
                QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                did = QStringLiteral("paint");
                // The ink region a screen without a compositor is cut to,
                // kept up to date step by step, is the one made afresh.
                const QRegion kept = inkMask.region(store, now);
                if (++paints % 20 == 0) {
                    QRegion compared(QRect(QPoint(0, 0), screen.size()));
                    if (const auto& current = store.current())
                        compared -= Renderer::itemBounds(*current, true)
                                        .translated(-QPointF(screen.topLeft()))
                                        .toAlignedRect()
                                        .adjusted(-1, -1, 1, 1);
                    InkMask fresh(screen, 1);
                    if ((kept & compared) != (fresh.region(store, now) & compared))
                        QFAIL(qPrintable(QStringLiteral("QUILLERY_FUZZ_SEED=%1, step %2: the "
                                                        "kept ink region differs from a fresh "
                                                        "one\nlast steps:\n%3")
                                             .arg(seed())
                                             .arg(step)
                                             .arg(trace.tail())));
                }
            } else if (op < 991) {
                QTest::keyClick(view, Qt::Key_Tab);
                ++keys;
                did = QStringLiteral("tab");
            } else {
                // Escape, or the shortcut: a session ends, and another begins.
                QTest::keyClick(view, Qt::Key_Escape);
                if (store.isDrawing() || store.current())
                    QFAIL("Escape left drawing on or an item in progress");
                controller.start();
                ++sessions;
                view = overlayWindows().front()->view();
                pressed = false;
                did = QStringLiteral("escape, start");
            }
            trace.add(QStringLiteral("%1: %2").arg(step).arg(did));
            if (const QString problem = ModelInvariants::check(store); !problem.isEmpty())
                QFAIL(
                    qPrintable(QStringLiteral("QUILLERY_FUZZ_SEED=%1, step %2: %3\nlast steps:\n%4")
                                   .arg(seed())
                                   .arg(step)
                                   .arg(problem, trace.tail())));
        }
        controller.stop();
        store.clear();
        QCoreApplication::processEvents();
        const double seconds = elapsed.nsecsElapsed() / 1e9;
        qInfo("view walk: %lld events (walk seed %llu): %lld pointer, %lld keys, %lld texts, %lld "
              "sessions, %.0f events/s",
              count, walkSeed, pointer, keys, texts, sessions, count / std::max(seconds, 1e-9));
    }
};

QTEST_MAIN(OverlayFuzzTest)
#include "tst_overlayfuzz.moc"
