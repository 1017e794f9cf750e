#include "Clock.h"
#include "DrawingStore.h"
#include "HotKeyManager.h"
#include "NotificationCounter.h"
#include "OverlayController.h"
#include "OverlayView.h"
#include "OverlayWindow.h"
#include "OverlayWindows.h"
#include "Settings.h"
#include "TestSettings.h"
#include "XTestTools.h"

#include <QScreen>
#include <QtTest>

// Drawing mode on a real X server with a window manager: the windows the user
// gets, real pointer drags and keys, click-through, fading out, and focus
// going back to the application that had it.
class OverlayControllerTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 5000.0;

    OverlayController& controller = OverlayController::shared();
    DrawingStore& store = controller.store();
    std::unique_ptr<TestSettings> settings;

    static WId id(const OverlayWindow* window) { return window->winId(); }

    bool waitUntilMapped(bool mapped) {
        return QTest::qWaitFor([&] {
            return std::all_of(
                overlayWindows().begin(), overlayWindows().end(),
                [&](OverlayWindow* w) { return XServer::isViewable(id(w)) == mapped; });
        });
    }
    bool waitForKeyboard(const OverlayWindow* window) {
        return QTest::qWaitFor(
            [&] { return XServer::inputFocus() == id(window) && window->view()->hasFocus(); });
    }
    // Lets the fade timer run at a moment after every item has faded.
    void fadeEverythingOut() { Clock::setFixedNow(t0 + 4.0 + DrawingStore::fadeDuration + 1); }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(XServer::connection());
        settings = std::make_unique<TestSettings>();
    }
    void init() {
        Clock::setFixedNow(t0);
        store.setTool(Tool::pen);
        store.setColorIndex(0);
    }
    void cleanup() {
        controller.stop();
        store.clear();
        QVERIFY(!controller.isShown());
        Clock::setFixedNow(std::nullopt);
        XServer::waitForWindowManager();
    }

    void startCoversTheScreenAboveEverything() {
        NotificationCounter changes(drawingStoreChanged);
        NotificationCounter states(drawingStateChanged);
        controller.start();
        QVERIFY(store.isDrawing());
        QVERIFY(controller.isShown());
        QCOMPARE(changes.take(), 1);
        QCOMPARE(states.take(), 1);
        const QList<QScreen*> screens = QGuiApplication::screens();
        QCOMPARE(overlayWindows().size(), size_t(screens.size()));
        QVERIFY(waitUntilMapped(true));
        for (size_t i = 0; i < overlayWindows().size(); ++i) {
            OverlayWindow* window = overlayWindows()[i];
            QCOMPARE(XServer::geometry(id(window)), screens[i]->geometry());
            QVERIFY(XServer::bypassesWindowManager(id(window)));
            QVERIFY(XServer::inputShapeRectangles(id(window)) > 0);
            QCOMPARE(window->view()->cursor().shape(), Qt::CrossCursor);
        }

        // A second start changes nothing: same windows, nothing announced.
        const auto windows = overlayWindows();
        controller.start();
        QCOMPARE(overlayWindows(), windows);
        QCOMPARE(changes.count + states.count, 0);

        controller.stop();
        QVERIFY(!store.isDrawing());
        QVERIFY(!controller.isShown());
        QVERIFY(waitUntilMapped(false));
        QCOMPARE(changes.take(), 1);
        QCOMPARE(states.take(), 1);
        // And a second stop does nothing either.
        controller.stop();
        QCOMPARE(changes.count + states.count, 0);
    }

    void pointerDragBecomesAStroke() {
        controller.start();
        QVERIFY(waitUntilMapped(true));
        NotificationCounter changes(drawingStoreChanged);
        QVERIFY(XInput::drag({{100, 120}, {160, 170}, {230, 240}, {300, 260}}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        const Item& stroke = store.items().front();
        QCOMPARE(stroke.kind, Tool::pen);
        QCOMPARE(stroke.points.front(), QPointF(100, 120));
        QCOMPARE(stroke.points.back(), QPointF(300, 260));
        QVERIFY(stroke.points.size() >= 2);
        QCOMPARE(stroke.finishedAt, std::optional<double>(t0));
        QVERIFY(changes.count >= 3);

        // Every point the pointer went through counts, however fast it came:
        // a corner stays a corner.
        QVERIFY(XInput::drag({{600, 100}, {800, 100}, {800, 300}}));
        QTRY_COMPARE(store.items().size(), size_t(2));
        QCOMPARE(store.items().back().points,
                 (std::vector<QPointF>{{600, 100}, {800, 100}, {800, 300}, {800, 300}}));
        store.undo();

        // A rectangle, chosen with a real key press.
        QVERIFY(XInput::key(QStringLiteral("r")));
        QTRY_COMPARE(store.tool(), Tool::rect);
        QVERIFY(XInput::drag({{400, 300}, {450, 330}, {520, 380}}));
        QTRY_COMPARE(store.items().size(), size_t(2));
        QCOMPARE(store.items().back().points,
                 (std::vector<QPointF>{QPointF(400, 300), QPointF(520, 380)}));
    }

    void windowUnderThePointerGetsTheKeys() {
        PeerApp peer({50, 50, 400, 300}, Qt::darkGreen);
        QVERIFY(peer.waitUntilActive());
        QVERIFY(XInput::moveTo({900, 700}));
        controller.start();
        OverlayWindow* window = overlayWindows().front();
        QVERIFY(waitForKeyboard(window));
        // Keys typed now reach the overlay, not the application underneath.
        QVERIFY(XInput::key(QStringLiteral("e")));
        QTRY_COMPARE(store.tool(), Tool::ellipse);
        QVERIFY(XInput::key(QStringLiteral("bracketright")));
        QTRY_COMPARE(store.width(), 5.0);
        QVERIFY(XInput::key(QStringLiteral("Escape")));
        QTRY_VERIFY(!store.isDrawing());
        QVERIFY(peer.takeLines().filter(QStringLiteral("key ")).isEmpty());
    }

    void staysAboveWindowsRaisedWhileDrawing() {
        PeerApp peer({100, 100, 600, 400}, Qt::darkCyan);
        QVERIFY(peer.waitUntilActive());
        controller.start();
        QVERIFY(waitUntilMapped(true));
        QVERIFY(waitForKeyboard(overlayWindows().front()));
        // Another application comes to the front by itself.
        const QString window = QString::number(peer.window);
        QVERIFY(XServer::run(QStringLiteral("xdotool"), {QStringLiteral("windowraise"), window}));
        QVERIFY(XServer::run(QStringLiteral("xdotool"),
                             {QStringLiteral("set_window"), QStringLiteral("--urgency"),
                              QStringLiteral("1"), window}));
        QVERIFY(XInput::click({300, 300}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        QVERIFY(peer.takeLines().filter(QStringLiteral("press")).isEmpty());
    }

    void keyboardComesBackFromTheWindowManagerButNotFromAnApplication() {
        PeerApp peer({100, 100, 300, 200}, Qt::darkYellow);
        QVERIFY(peer.waitUntilActive());
        controller.start();
        OverlayWindow* window = overlayWindows().front();
        QVERIFY(waitForKeyboard(window));
        // The window manager hands the keyboard to a window of its own, as
        // when another of our windows has just gone.
        const WId windowManager = XServer::windowManagerWindow();
        QVERIFY(windowManager != 0);
        XServer::setInputFocus(windowManager);
        QTRY_COMPARE(XServer::inputFocus(), window->winId());
        QVERIFY(XInput::key(QStringLiteral("h")));
        QTRY_COMPARE(store.tool(), Tool::highlighter);

        // The user switches to an application: it keeps the keyboard.
        QVERIFY(peer.waitUntilActive());
        QTest::qWait(600); // longer than Qt waits before it reports the loss
        QCOMPARE(XServer::inputFocus(), peer.window);
        QVERIFY(XInput::key(QStringLiteral("p")));
        QVERIFY(peer.waitForLine(QStringLiteral("key p")));
        QCOMPARE(store.tool(), Tool::highlighter);
    }

    void theShortcutStillWorksWhileTheOverlayHasTheKeys() {
        HotKeyManager& hotKey = HotKeyManager::shared();
        hotKey.onPress = [this] { controller.toggle(); };
        QVERIFY(hotKey.registerHotKey(HotKeyConfig::defaultShortcut()));
        QVERIFY(XInput::key(QStringLiteral("ctrl+alt+d")));
        QTRY_VERIFY(store.isDrawing());
        QVERIFY(waitForKeyboard(overlayWindows().front()));
        QVERIFY(XInput::key(QStringLiteral("a")));
        QTRY_COMPARE(store.tool(), Tool::arrow);
        QVERIFY(XInput::key(QStringLiteral("ctrl+alt+d")));
        QTRY_VERIFY(!store.isDrawing());
        hotKey.unregister();
        hotKey.onPress = nullptr;
    }

    void previousWindowIsActiveAgainAfterStop() {
        auto peer = std::make_unique<PeerApp>(QRect(100, 100, 300, 200), Qt::darkBlue);
        QVERIFY(peer->waitUntilActive());
        QVERIFY(peer->waitForLine(QStringLiteral("focus in")));
        controller.start();
        QVERIFY(waitForKeyboard(overlayWindows().front()));
        // Ink left on screen keeps the overlay mapped, so nothing but the
        // controller gives the keyboard back.
        store.begin({10, 10});
        store.finishStroke({50, 50});
        controller.stop();
        QVERIFY(controller.isShown());
        QTRY_COMPARE(XServer::activeWindow(), peer->window);
        QTRY_COMPARE(XServer::inputFocus(), peer->window);
        QVERIFY(XInput::key(QStringLiteral("k")));
        QVERIFY(peer->waitForLine(QStringLiteral("key k")));
        // A second stop activates nothing.
        controller.stop();
        QCOMPARE(XServer::activeWindow(), peer->window);

        // When that window has gone by the time drawing stops, our windows
        // don't keep the keyboard either.
        controller.start();
        QVERIFY(waitForKeyboard(overlayWindows().front()));
        const WId gone = peer->window;
        peer.reset();
        QTRY_VERIFY(!XServer::exists(gone));
        controller.stop();
        QVERIFY(controller.isShown());
        for (OverlayWindow* window : overlayWindows())
            QVERIFY(XServer::inputFocus() != id(window));
    }

    void clicksPassThroughWhileItemsFade() {
        PeerApp peer({200, 200, 500, 400}, Qt::darkRed);
        QVERIFY(peer.waitUntilActive());
        controller.start();
        QVERIFY(waitUntilMapped(true));
        // While drawing, the overlay takes the click.
        QVERIFY(XInput::drag({{300, 300}, {400, 350}}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        QVERIFY(XInput::click({600, 500}));
        QTRY_COMPARE(store.items().size(), size_t(2)); // a dot
        QVERIFY(peer.takeLines().filter(QStringLiteral("press")).isEmpty());

        controller.stop();
        QVERIFY(controller.isShown());
        for (OverlayWindow* window : overlayWindows()) {
            QVERIFY(window->isVisible());
            QVERIFY(XServer::isViewable(id(window)));
            QCOMPARE(XServer::inputShapeRectangles(id(window)), 0);
            QCOMPARE(window->view()->cursor().shape(), Qt::ArrowCursor);
        }
        // Right over the ink, the click reaches the application underneath.
        QVERIFY(XInput::click({350, 325}));
        QVERIFY(peer.waitForLine(QStringLiteral("press 350 325")));
        QCOMPARE(store.items().size(), size_t(2));

        // When the last item has faded, the windows leave the screen.
        fadeEverythingOut();
        QTRY_VERIFY(store.items().empty());
        QTRY_VERIFY(!controller.isShown());
        QVERIFY(waitUntilMapped(false));
        for (OverlayWindow* window : overlayWindows())
            QVERIFY(!window->isVisible());
    }

    void startWhileFadingTakesTheMouseAgain() {
        controller.start();
        QVERIFY(XInput::drag({{100, 100}, {200, 200}}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        controller.stop();
        QVERIFY(controller.isShown());
        const auto fadingWindows = overlayWindows();
        controller.start();
        // New windows, taking the mouse, with the old items still there.
        QVERIFY(overlayWindows() != fadingWindows);
        QCOMPARE(store.items().size(), size_t(1));
        QVERIFY(waitUntilMapped(true));
        for (OverlayWindow* window : overlayWindows())
            QVERIFY(XServer::inputShapeRectangles(id(window)) > 0);
        QVERIFY(XInput::drag({{500, 100}, {600, 200}}));
        QTRY_COMPARE(store.items().size(), size_t(2));
        // The old windows are gone, not merely hidden.
        QTRY_COMPARE(findOverlayWindows(), overlayWindows().size());
    }

private:
    static size_t findOverlayWindows() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        size_t count = 0;
        for (QWidget* widget : QApplication::topLevelWidgets())
            count += qobject_cast<OverlayWindow*>(widget) != nullptr;
        return count;
    }
};

QTEST_MAIN(OverlayControllerTest)
#include "tst_overlaycontroller.moc"
