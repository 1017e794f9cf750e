#include "Clock.h"
#include "DrawingStore.h"
#include "OverlayView.h"
#include "OverlayWindow.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QScreen>
#include <QtTest>

// One overlay window repaints whenever what it shows changes. (What it paints
// is the scene's, which the session walk checks pixel for pixel.)
class OverlayViewTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 2000.0;
    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<DrawingStore> store;
    std::unique_ptr<OverlayScene> scene;
    std::unique_ptr<OverlayWindow> window;

    struct PaintCounter : QObject {
        int paints = 0;
        bool eventFilter(QObject*, QEvent* event) override {
            paints += event->type() == QEvent::Paint;
            return false;
        }
    };

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();
        Clock::setFixedNow(t0);
        store = std::make_unique<DrawingStore>();
        scene = std::make_unique<OverlayScene>(*store);
        window = std::make_unique<OverlayWindow>(QGuiApplication::primaryScreen(), *store, *scene);
    }
    void cleanup() {
        window.reset();
        scene.reset();
        store.reset();
        Clock::setFixedNow(std::nullopt);
    }

    // Settings edited in the settings window or the file change what shows
    // without the drawing changing.
    void repaintsWhenWhatItShowsChanges() {
        store->setDrawing(true);
        store->begin({50, 100});
        store->finishStroke({350, 100});
        Clock::setFixedNow(t0 + 4.4); // halfway through its fade, which ticks paint no further
        store->announceDisplayChange();
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        PaintCounter counter;
        window->view()->installEventFilter(&counter);
        for (const auto& change : std::initializer_list<std::function<void()>>{
                 [&] {
                     store->begin({10, 10});
                 },
                 [&] { Settings::shared().setFadeSeconds(0); },
                 [&] { Settings::shared().setHudVisible(false); }}) {
            QCoreApplication::processEvents();
            counter.paints = 0;
            change();
            QTRY_VERIFY(counter.paints > 0);
        }
    }
};

QTEST_MAIN(OverlayViewTest)
#include "tst_overlayview.moc"
