#include "HotKeyManager.h"
#include "OverlaySession.h"

#include <QScreen>
#include <QtTest>

// Drawing mode on a real X server with a window manager and another
// application: the windows the user gets, real pointer drags and keys,
// click-through while ink fades, and the keyboard given back. What of the
// keys needs a real keyboard and window: the layout's dead keys and Compose
// through the platform's input method, input methods only while typing,
// clicks ending a text. Every key's command is in tst_overlaykeymap.
class OverlayControllerTest : public QObject {
    Q_OBJECT

    static constexpr double t0 = 5000.0;
    OverlaySession session;
    OverlayController& controller = session.controller;
    DrawingStore& store = session.store;

    // Mapped or not, and taking clicks only while drawing.
    bool waitUntilMapped(bool mapped) {
        return QTest::qWaitFor([&] {
            return std::all_of(
                overlayWindows().begin(), overlayWindows().end(), [&](OverlayWindow* w) {
                    return XServer::isViewable(w->winId()) == mapped &&
                           (XServer::inputShapeRectangles(w->winId()) > 0) == store.isDrawing();
                });
        });
    }

    OverlayView* view() const { return overlayWindows().front()->view(); }
    // Drawing with the keyboard, typing a text.
    void startTyping(const QString& text) {
        controller.start();
        QTRY_VERIFY(session.hasKeyboard(overlayWindows().front()));
        store.setTool(Tool::text);
        QTest::mouseClick(view(), Qt::LeftButton, {}, QPoint(50, 60));
        QVERIFY(store.current() && store.current()->kind == Tool::text);
        store.appendText(text);
    }
    QString typed() const { return store.current() ? store.current()->text : QString(); }
    // As an input method asks.
    QVariant imQuery(Qt::InputMethodQuery query) const {
        QInputMethodQueryEvent event(query);
        QCoreApplication::sendEvent(view(), &event);
        return event.value(query);
    }

private Q_SLOTS:
    void initTestCase() {
        HotKeyManager::shared().onPress = [this] { controller.toggle(); };
        QVERIFY(HotKeyManager::shared().registerHotKey(HotKeyConfig::defaultShortcut()));
    }
    void init() { session.reset(t0); }
    void cleanup() { session.end(); }

    void startCoversEveryScreenAboveEverything() {
        controller.start();
        QVERIFY(store.isDrawing() && controller.isShown());
        const QList<QScreen*> screens = QGuiApplication::screens();
        QCOMPARE(overlayWindows().size(), size_t(screens.size()));
        QVERIFY(waitUntilMapped(true));
        for (size_t i = 0; i < overlayWindows().size(); ++i) {
            QCOMPARE(XServer::geometry(overlayWindows()[i]->winId()), screens[i]->geometry());
            QVERIFY(XServer::attributes(overlayWindows()[i]->winId())->override_redirect);
        }
        // The keyboard and a crosshair while drawing, the usual pointer afterwards.
        QTRY_VERIFY(session.hasKeyboard(overlayWindows().front()));
        QCOMPARE(view()->cursor().shape(), Qt::CrossCursor);
        QVERIFY(XDesktop::xdotool("key r"));
        QTRY_COMPARE(store.tool(), Tool::rect);
        controller.stop();
        QVERIFY(!controller.isShown());
        QVERIFY(waitUntilMapped(false));
        QCOMPARE(view()->cursor().shape(), Qt::ArrowCursor);
        QVERIFY(!view()->testAttribute(Qt::WA_SetCursor));
    }

    void pointerDragBecomesAStroke() {
        controller.start();
        QVERIFY(waitUntilMapped(true));
        // Every point the pointer went through counts, however fast it came:
        // a corner stays a corner.
        QVERIFY(XDesktop::drag({{600, 100}, {800, 100}, {800, 300}}, 0));
        QTRY_COMPARE(store.items().size(), size_t(1));
        QCOMPARE(store.items().back().points,
                 (std::vector<QPointF>{{600, 100}, {800, 100}, {800, 300}, {800, 300}}));
        QCOMPARE(store.items().back().finishedAt, std::optional<double>(t0));
    }

    // Started and stopped with the shortcut over another application: the
    // overlay takes the keys and the clicks; afterwards the ink lets clicks
    // through and the application has the keyboard again.
    void overAnotherApplication() {
        PeerApp peer({200, 200, 500, 400});
        QVERIFY(peer.waitUntilActive());
        QVERIFY(XDesktop::xdotool("mousemove 900 700"));
        QVERIFY(XDesktop::xdotool("key ctrl+alt+d"));
        QTRY_VERIFY(store.isDrawing());
        QTRY_VERIFY(session.hasKeyboard(overlayWindows().front()));
        QVERIFY(XDesktop::xdotool("key h bracketright"));
        QTRY_COMPARE(store.width(), 7.0);
        QVERIFY(XDesktop::drag({{300, 300}, {400, 350}}));
        QTRY_COMPARE(store.items().size(), size_t(1));
        QCOMPARE(store.items().front().kind, Tool::highlighter);
        QVERIFY(!peer.tookLine("press") && !peer.tookLine("key"));

        QVERIFY(XDesktop::xdotool("key ctrl+alt+d"));
        QTRY_VERIFY(!store.isDrawing());
        QVERIFY(controller.isShown());
        QVERIFY(waitUntilMapped(true));
        QTRY_COMPARE(XServer::inputFocus(), peer.window);
        QCOMPARE(XDesktop::activeWindow(), peer.window);
        QVERIFY(XDesktop::xdotool("key k"));
        QVERIFY(peer.waitForLine("key k"));
        // Right over the ink, the click reaches the application underneath.
        QVERIFY(XDesktop::xdotool("mousemove 350 325 click 1"));
        QVERIFY(peer.waitForLine("press 350 325"));
        // The overlay doesn't take the keyboard back from the application.
        QVERIFY(!QTest::qWaitFor([&] { return XServer::inputFocus() != peer.window; }, 1000));

        // When the last item has faded, the windows leave the screen.
        Clock::setFixedNow(t0 + 10);
        QTRY_VERIFY(store.items().empty() && !controller.isShown());
        QVERIFY(waitUntilMapped(false));
    }

    // An international layout's dead key and a Compose key, then the keypad's Enter.
    void deadKeysComposeAndKeypadEnterFromTheKeyboard() {
        QVERIFY(RunningQuillery::run(
            "setxkbmap", {"-layout", "us", "-variant", "intl", "-option", "compose:menu"}));
        startTyping(QStringLiteral("ab"));
        QVERIFY(XDesktop::xdotool("key dead_acute e Multi_key o c"));
        QTRY_COMPARE(typed(), QStringLiteral("abé©"));
        QVERIFY(XDesktop::xdotool("key KP_Enter"));
        QTRY_VERIFY(!store.current());
        QCOMPARE(store.items().back().text, QStringLiteral("abé©"));
        QVERIFY(RunningQuillery::run("setxkbmap", {"-layout", "us"}));
    }

    // While drawing, letters are commands; what an input method composes is typed.
    void inputMethodsHelpOnlyWhileTyping() {
        startTyping(QStringLiteral("ab"));
        QVERIFY(imQuery(Qt::ImEnabled).toBool());
        QInputMethodEvent composed;
        composed.setCommitString(QStringLiteral("é"));
        QCoreApplication::sendEvent(view(), &composed);
        QCOMPARE(typed(), QStringLiteral("abé"));
        QVERIFY(XDesktop::xdotool("key Return"));
        QTRY_VERIFY(!imQuery(Qt::ImEnabled).toBool());
    }

    void clicksWhileTyping() {
        startTyping(QStringLiteral("one"));
        // Another click with the text tool commits and starts a new text there.
        QTest::mouseClick(view(), Qt::LeftButton, {}, QPoint(200, 210));
        QCOMPARE(store.items().back().text, QStringLiteral("one"));
        QCOMPARE(store.current()->points.front(), QPointF(200, 210));
        store.appendText(QStringLiteral("two"));
        // With another tool, the click commits the text and starts a stroke.
        store.setTool(Tool::rect);
        QTest::mousePress(view(), Qt::LeftButton, {}, QPoint(300, 300));
        QCOMPARE(store.items().back().text, QStringLiteral("two"));
        QTest::mouseRelease(view(), Qt::LeftButton, {}, QPoint(340, 330));
        QCOMPARE(store.items().back().points,
                 (std::vector<QPointF>{QPointF(300, 300), QPointF(340, 330)}));
    }
};

QTEST_MAIN(OverlayControllerTest)
#include "tst_overlaycontroller.moc"
