#include "OverlayController.h"

#include "DrawingStore.h"
#include "Fatal.h"
#include "OverlayView.h"
#include "OverlayWindow.h"
#include "WindowSystem.h"

#include <QApplication>
#include <QCursor>
#include <QScreen>
#include <QWindow>
#include <algorithm>

OverlayController& OverlayController::shared() {
    // Lives as long as the process, like the store it draws.
    static OverlayController* const controller = new OverlayController(DrawingStore::shared());
    return *controller;
}

OverlayController::OverlayController(DrawingStore& store) : store_(store) {
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
        fatalError(QStringLiteral("OverlayController: no QApplication exists yet"));

    // Qt merges queued pointer moves into the last one; for ink every point
    // the pen went through matters, or quick strokes lose their corners.
    QCoreApplication::setAttribute(Qt::AA_CompressHighFrequencyEvents, false);

    connect(&store_, &DrawingStore::drawingStoreChanged, this, &OverlayController::storeChanged);

    screenChange.setSingleShot(true);
    screenChange.setInterval(0);
    connect(&screenChange, &QTimer::timeout, this, &OverlayController::screensChanged);
    connect(qApp, &QGuiApplication::screenAdded, this, [this](QScreen* screen) {
        watchScreen(screen);
        screenChange.start();
    });
    connect(qApp, &QGuiApplication::screenRemoved, &screenChange, qOverload<>(&QTimer::start));
    connect(qApp, &QGuiApplication::primaryScreenChanged, &screenChange,
            qOverload<>(&QTimer::start));
    for (QScreen* screen : QGuiApplication::screens())
        watchScreen(screen);

    shaped = !WindowSystem::current().isCompositing();
    WindowSystem::current().watchCompositing([this] { compositingChanged(); });
}

void OverlayController::watchScreen(QScreen* screen) {
    connect(screen, &QScreen::geometryChanged, &screenChange, qOverload<>(&QTimer::start));
}

void OverlayController::toggle() {
    if (store_.isDrawing())
        stop();
    else
        start();
}

bool OverlayController::shouldShow() const {
    return store_.isDrawing() || !store_.items().empty() || store_.current().has_value();
}

void OverlayController::showWindows(bool visible) {
    for (OverlayWindow* window : windows_) {
        window->setClickThrough(!store_.isDrawing());
        if (visible)
            window->orderFront();
        else
            window->orderOut();
    }
}

void OverlayController::updateCursors() {
    for (OverlayWindow* window : windows_)
        window->view()->updateCursor();
}

void OverlayController::rebuildWindows() {
    for (OverlayWindow* window : windows_) {
        window->orderOut();
        // Deleted later: one of them may still be inside an event handler.
        window->deleteLater();
    }
    windows_.clear();
    isShown_ = false;
    // Asked afresh: a compositing manager may have come or gone unannounced
    // (a server without XFixes).
    shaped = !WindowSystem::current().isCompositing();
    for (QScreen* screen : QGuiApplication::screens()) {
        auto* window = new OverlayWindow(screen, store_);
        window->setShaped(shaped);
        windows_.push_back(window);
    }
}

void OverlayController::compositingChanged() {
    const bool nowShaped = !WindowSystem::current().isCompositing();
    if (nowShaped == shaped)
        return;
    shaped = nowShaped;
    for (OverlayWindow* window : windows_)
        window->setShaped(shaped);
    // Cut to its ink, the key window must hold the pointer to keep the pen.
    if (shaped && store_.isDrawing() && isShown_ && !windows_.empty())
        keyWindow()->makeKey();
}

OverlayWindow* OverlayController::windowUnderPointer() const {
    const QPoint pointer = QCursor::pos();
    for (OverlayWindow* window : windows_) {
        if (window->geometry().contains(pointer))
            return window;
    }
    return windows_.front();
}

OverlayWindow* OverlayController::keyWindow() const {
    for (OverlayWindow* window : windows_) {
        if (window->view()->hasFocus())
            return window;
    }
    return windowUnderPointer();
}

void OverlayController::start() {
    if (store_.isDrawing())
        return;
    rememberActiveWindow();
    rebuildWindows();
    if (windows_.empty())
        return;
    store_.setDrawing(true);
    showWindows(true);
    isShown_ = true;
    windowUnderPointer()->makeKey();
    updateCursors();
    store_.announceModeSwitch();
}

void OverlayController::stop() {
    if (!store_.isDrawing())
        return;
    store_.endSession();
    store_.setDrawing(false);
    const bool keep = shouldShow();
    showWindows(keep);
    isShown_ = keep;
    updateCursors();
    store_.announceModeSwitch();
    restoreActiveWindow();
}

void OverlayController::storeChanged() {
    const bool visible = shouldShow();
    if (visible == isShown_)
        return;
    showWindows(visible);
    isShown_ = visible;
}

void OverlayController::screensChanged() {
    if (!isShown_)
        return;
    const bool wasDrawing = store_.isDrawing();
    rebuildWindows();
    const bool visible = shouldShow();
    showWindows(visible);
    isShown_ = visible;
    if (wasDrawing && !windows_.empty())
        windows_.front()->makeKey();
    store_.announceDisplayChange();
}

bool OverlayController::isOwnWindow(quint64 id) const {
    const QWindowList ours = QGuiApplication::allWindows();
    return std::any_of(ours.begin(), ours.end(), [id](const QWindow* window) {
        return window->handle() && window->winId() == id;
    });
}

void OverlayController::rememberActiveWindow() {
    const quint64 active = WindowSystem::current().activeWindow();
    // With our own menu or settings in front, keep the window that was in
    // front before them.
    if (active == 0 || !isOwnWindow(active))
        previousWindow = active;
}

void OverlayController::restoreActiveWindow() {
    WindowSystem& system = WindowSystem::current();
    // Our windows ignore keys from now on: never leave the keyboard in one,
    // even when the window to go back to has gone or refuses.
    if (isOwnWindow(system.focusedWindow()))
        system.releaseFocus();
    if (previousWindow != 0)
        system.activate(previousWindow);
    previousWindow = 0;
}
