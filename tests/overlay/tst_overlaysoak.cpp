#include "Clock.h"
#include "DrawingStore.h"
#include "InkMask.h"
#include "ModelInvariants.h"
#include "OverlayController.h"
#include "OverlayView.h"
#include "OverlayWindow.h"
#include "OverlayWindows.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QFile>
#include <QMouseEvent>
#include <QtTest>
#include <malloc.h>
#include <random>
#include <unistd.h>

// A long presentation: thousands of strokes drawn through the overlay's view,
// shown, faded and removed, with sessions stopped and started, and the ink
// region of a screen without a compositing manager kept up to date. What
// the program holds at the end is what it held at the start.
// QUILLERY_SOAK_STROKES sets the number of strokes.
class OverlaySoakTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 200000.0;
    std::unique_ptr<TestSettings> settings;

    // Resident memory in MiB, after handing freed heap back to the system,
    // so that the figure is what is in use rather than what malloc keeps.
    static double residentMiB() {
        malloc_trim(0);
        QFile statm(QStringLiteral("/proc/self/statm"));
        if (!statm.open(QIODevice::ReadOnly))
            return -1;
        const QList<QByteArray> fields = statm.readAll().split(' ');
        return fields.value(1).toDouble() * double(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
    }
    static size_t overlayWindowsAlive() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        size_t count = 0;
        for (QWidget* widget : QApplication::topLevelWidgets())
            count += qobject_cast<OverlayWindow*>(widget) != nullptr;
        return count;
    }
    static bool underSanitizer() {
#if defined(__SANITIZE_ADDRESS__)
        return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
        return true;
#endif
#endif
        return false;
    }

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

    void tenThousandStrokesDrawnAndFaded() {
        bool ok = false;
        int strokes = qEnvironmentVariableIntValue("QUILLERY_SOAK_STROKES", &ok);
        if (!ok || strokes <= 0)
            strokes = 10000;
        std::mt19937_64 random(7);
        OverlayController& controller = OverlayController::shared();
        DrawingStore& store = controller.store();
        double now = t0;
        Clock::setFixedNow(now);
        const QRect screen = QGuiApplication::primaryScreen()->geometry();
        InkMask mask(screen, 1);

        const auto drawStroke = [&](int index) {
            OverlayView* view = overlayWindows().front()->view();
            store.setTool(allTools[size_t(index) % allTools.size()]);
            std::uniform_real_distribution<double> x(0, screen.width()), y(0, screen.height());
            QPointF at(x(random), y(random));
            const auto send = [&](QEvent::Type type, Qt::MouseButton button,
                                  Qt::MouseButtons buttons) {
                QMouseEvent event(type, at, at + QPointF(screen.topLeft()), button, buttons,
                                  Qt::NoModifier);
                QApplication::sendEvent(view, &event);
            };
            send(QEvent::MouseButtonPress, Qt::LeftButton, Qt::LeftButton);
            if (store.tool() == Tool::text) {
                QTest::keyClicks(view, QStringLiteral("Slide %1").arg(index));
                QTest::keyClick(view, Qt::Key_Return);
                return;
            }
            for (int step = 0; step < 12; ++step) {
                at += QPointF(x(random) / 40 - 10, y(random) / 40 - 6);
                send(QEvent::MouseMove, Qt::NoButton, Qt::LeftButton);
            }
            send(QEvent::MouseButtonRelease, Qt::LeftButton, Qt::NoButton);
        };
        // Paints every overlay, as the screen would be refreshed, and cuts
        // the ink region, as a desktop without a compositor needs.
        const auto refresh = [&] {
            QCoreApplication::processEvents();
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            [[maybe_unused]] const QRegion region = mask.region(store, now);
        };
        const auto round = [&](int first, int count) {
            for (int i = first; i < first + count; ++i) {
                drawStroke(i);
                if (i % 10 == 9)
                    refresh();
                if (i % 50 == 49) {
                    // Now and then seen halfway through their fade; then long
                    // enough for all of them to be gone.
                    const bool halfway = i % 200 == 199;
                    for (const double wait : {halfway ? 4.4 : 0.0, halfway ? 1.6 : 6.0}) {
                        now += wait;
                        Clock::setFixedNow(now);
                        if (store.isTimerRunning())
                            FadeTicker::tick(store);
                        refresh();
                    }
                    QVERIFY(store.items().empty());
                }
                if (i % 1000 == 999) {
                    QTest::keyClick(overlayWindows().front()->view(), Qt::Key_Escape);
                    refresh();
                    controller.start();
                }
                const QString problem = ModelInvariants::check(store);
                QVERIFY2(problem.isEmpty(), qPrintable(problem));
            }
        };

        const double beforeAnything = residentMiB();
        controller.start();
        // Fonts, glyph caches, the first windows: what any session allocates once.
        round(0, 500);
        const double start = residentMiB();
        round(500, strokes);
        controller.stop();
        now += 10;
        Clock::setFixedNow(now);
        if (store.isTimerRunning())
            FadeTicker::tick(store);
        refresh();
        const double end = residentMiB();

        QVERIFY(store.items().empty());
        QVERIFY(!store.current());
        QVERIFY(!controller.isShown());
        QCOMPARE(overlayWindowsAlive(), overlayWindows().size());
        qInfo("soak: %d strokes drawn and faded; resident memory %.1f MiB before the first "
              "session, %.1f MiB after warming up, %.1f MiB at the end (%+.1f MiB)",
              strokes, beforeAnything, start, end, end - start);
        // Under AddressSanitizer freed memory waits in quarantine: only the figures count.
        if (!underSanitizer())
            QVERIFY2(end - start < 20,
                     qPrintable(QStringLiteral("grew by %1 MiB").arg(end - start)));
    }
};

QTEST_MAIN(OverlaySoakTest)
#include "tst_overlaysoak.moc"
