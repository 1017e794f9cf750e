#pragma once

#include "Clock.h"
#include "DrawingStore.h"
#include "OverlayController.h"
#include "OverlayView.h"
#include "OverlayWindow.h"
#include "TestSettings.h"
#include "WidgetOverlayHost.h"
#include "XTestSupport.h"

#include <QtTest>

// The overlay's windows, where the overlay is drawn with Qt windows.
inline const std::vector<OverlayWindow*>& overlayWindows() {
    return dynamic_cast<WidgetOverlayHost&>(OverlayController::shared().host()).windows();
}

// What the X11 overlay tests share: the one drawing session, with settings of
// its own and a clock that stands still, and its windows as the server has them.
struct OverlaySession {
    OverlayController& controller = OverlayController::shared();
    DrawingStore& store = controller.store();
    TestSettings settings;

    // For init(): a red pen, 6 wide.
    void reset(double now) {
        Clock::setFixedNow(now);
        store.setTool(Tool::pen);
        store.setColorIndex(0);
        store.setWidth(6);
    }
    // For cleanup(): nothing left on screen or alive, and the keyboard wherever
    // the window manager puts it.
    void end() {
        controller.stop();
        store.clear();
        Clock::setFixedNow(std::nullopt);
        QTRY_VERIFY(!controller.isShown());
        QTRY_COMPARE(windowsAlive(), overlayWindows().size());
        XServer::waitForWindowManager();
    }

    static WidgetOverlayHost& host() {
        return dynamic_cast<WidgetOverlayHost&>(OverlayController::shared().host());
    }
    // The X server's input focus on the window, not merely on nobody (where
    // keys would follow the pointer), and Qt's on its view.
    static bool hasKeyboard(const OverlayWindow* window) {
        return XServer::inputFocus() == window->winId() && window->view()->hasFocus();
    }
    static QList<QRect> windowRects() {
        QList<QRect> rects;
        for (OverlayWindow* window : overlayWindows())
            rects << XServer::geometry(window->winId());
        return rects;
    }
    // Windows replaced are deleted, not merely hidden.
    static size_t windowsAlive() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        const QWidgetList all = QApplication::topLevelWidgets();
        return std::count_if(all.begin(), all.end(),
                             [](QWidget* w) { return qobject_cast<OverlayWindow*>(w); });
    }
};
