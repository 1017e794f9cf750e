#include "Clock.h"
#include "DrawingStore.h"
#include "OverlayView.h"
#include "OverlayWindow.h"
#include "Renderer.h"
#include "Settings.h"
#include "TestSettings.h"

#include <QScreen>
#include <QtTest>

// What one overlay paints: the veil, items with their fade, the item in
// progress on top, the hint bar while drawing; and that it repaints when the
// drawing changes.
class OverlayViewTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 2000.0;
    std::unique_ptr<TestSettings> settings;
    std::unique_ptr<DrawingStore> store;
    std::unique_ptr<OverlayScene> scene;
    std::unique_ptr<OverlayWindow> window;

    QImage picture() const { return window->view()->grab().toImage(); }
    // The highest alpha anywhere in the picture outside `except`.
    static int mostAlphaOutside(const QImage& image, const QRect& except = {}) {
        int most = 0;
        for (int y = 0; y < image.height(); y += 3)
            for (int x = 0; x < image.width(); x += 3)
                if (!except.contains(x, y))
                    most = std::max(most, image.pixelColor(x, y).alpha());
        return most;
    }
    void commitStroke(QPointF from, QPointF to, int colorIndex) {
        store->setColorIndex(colorIndex);
        store->begin(from);
        store->finishStroke(to);
    }

private Q_SLOTS:
    void init() {
        settings = std::make_unique<TestSettings>();
        Clock::setFixedNow(t0);
        store = std::make_unique<DrawingStore>();
        store->setWidth(8);
        scene = std::make_unique<OverlayScene>(*store);
        window = std::make_unique<OverlayWindow>(QGuiApplication::primaryScreen(), *store, *scene);
    }
    void cleanup() {
        window.reset();
        scene.reset();
        store.reset();
        Clock::setFixedNow(std::nullopt);
    }

    void clearWhenNotDrawingAndAVeilWhileDrawing() {
        QCOMPARE(mostAlphaOutside(picture()), 0);
        store->setDrawing(true);
        const QImage drawing = picture();
        const QRect hintBar =
            Renderer::hudRect(QRectF(window->view()->rect()), store->tool(), store->colorIndex())
                .toAlignedRect();
        QVERIFY(!hintBar.isEmpty());
        // Black at alpha 0.01 everywhere but the hint bar.
        QCOMPARE(drawing.pixelColor(5, 700 % drawing.height()), QColor(0, 0, 0, 3));
        QCOMPARE(mostAlphaOutside(drawing, hintBar.adjusted(-2, -2, 2, 2)), 3);
        QVERIFY(drawing.pixelColor(hintBar.center()).alpha() > 100);

        Settings::shared().setHudVisible(false);
        QCOMPARE(mostAlphaOutside(picture()), 3);
    }

    // Settings live in memory: pointer events, paints and fade ticks never go
    // to the settings file, however long the stroke.
    void aLongStrokeNeverReadsTheSettingsFile() {
        store->setDrawing(true);
        window->show();
        commitStroke({10, 10}, {90, 90}, 1); // something that fades, so the delay matters
        const int reads = Settings::shared().fileReads();
        const auto send = [&](QEvent::Type type, QPointF at) {
            QMouseEvent event(type, at, at, at, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
            QCoreApplication::sendEvent(window->view(), &event);
        };
        send(QEvent::MouseButtonPress, {100, 100});
        for (int i = 1; i <= 1000; ++i) {
            send(QEvent::MouseMove, QPointF(100 + i % 300, 100 + i / 4));
            if (i % 50 == 0)
                QCoreApplication::processEvents();
        }
        send(QEvent::MouseButtonRelease, {400, 400});
        Clock::setFixedNow(t0 + 4.4);
        store->announceDisplayChange();
        QVERIFY(mostAlphaOutside(picture()) > 100);
        QCOMPARE(store->items().back().points.size(), size_t(1002));
        QCOMPARE(Settings::shared().fileReads(), reads);
    }

    void itemsFadeAndTheItemInProgressIsOnTop() {
        commitStroke({50, 100}, {350, 100}, 3); // blue, across
        Clock::setFixedNow(t0 + 4.4);           // halfway through its fade
        store->setColorIndex(0);
        store->begin({200, 20}); // red, down through the blue, not finished
        store->update({200, 180});
        QImage image = picture();
        const QColor crossing = image.pixelColor(200, 100);
        QVERIFY(crossing.red() > 200 && crossing.blue() < 60 && crossing.alpha() == 255);
        const QColor halfBlue = image.pixelColor(100, 100);
        QVERIFY(qAbs(halfBlue.alpha() - 128) <= 3);
        QVERIFY(halfBlue.blue() > halfBlue.red());

        // Faded out: invisible though the store still holds it, and it stays so.
        store->finishStroke({200, 180});
        Clock::setFixedNow(t0 + 4.0 + DrawingStore::fadeDuration);
        image = picture();
        QCOMPARE(image.pixelColor(100, 100).alpha(), 0);
        QCOMPARE(image.pixelColor(200, 150).alpha(), 255); // the newer red one
        Clock::setFixedNow(t0 + 60);
        QCOMPARE(picture().pixelColor(100, 100).alpha(), 0);
    }

    void repaintsWhenTheDrawingChanges() {
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        int paints = 0;
        struct PaintCounter : QObject {
            int& paints;
            explicit PaintCounter(int& paints) : paints(paints) {}
            bool eventFilter(QObject*, QEvent* event) override {
                paints += event->type() == QEvent::Paint;
                return false;
            }
        } counter(paints);
        window->view()->installEventFilter(&counter);
        QTest::qWait(20);
        paints = 0;
        QTest::qWait(50);
        QCOMPARE(paints, 0); // nothing changes, nothing is painted
        store->begin({10, 10});
        QTRY_VERIFY(paints > 0);
        window->view()->removeEventFilter(&counter);
    }
};

QTEST_MAIN(OverlayViewTest)
#include "tst_overlayview.moc"
