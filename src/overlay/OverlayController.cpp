#include "OverlayController.h"

#include "DrawingStore.h"
#include "Fatal.h"
#include "FrameStats.h"
#include "OverlayHost.h"
#include "OverlayScene.h"
#include "OverlaySurface.h"
#include "WindowSystem.h"

#include <QApplication>

OverlayController& OverlayController::shared() {
    // Lives as long as the process, like the store it draws.
    static OverlayController* const controller =
        new OverlayController(DrawingStore::shared(), OverlayHost::current());
    return *controller;
}

OverlayController::OverlayController(DrawingStore& store, OverlayHost& host)
    : store_(store), host_(host) {
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
        fatalError(QStringLiteral("OverlayController: no QApplication exists yet"));

    // Qt merges queued pointer moves into the last one; for ink every point
    // the pen went through matters, or quick strokes lose their corners.
    QCoreApplication::setAttribute(Qt::AA_CompressHighFrequencyEvents, false);

    connect(&store_, &DrawingStore::drawingStoreChanged, this, &OverlayController::storeChanged);
    connect(&host_, &OverlayHost::outputsChanged, this, &OverlayController::outputsChanged);
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

void OverlayController::showSurfaces(bool visible) {
    for (OverlaySurface* surface : surfaces_) {
        surface->setClickThrough(!store_.isDrawing());
        if (visible)
            surface->orderFront();
        else
            surface->orderOut();
    }
}

void OverlayController::updateCursors() {
    for (OverlaySurface* surface : surfaces_)
        surface->updateCursor();
}

void OverlayController::rebuildSurfaces() {
    surfaces_ = host_.rebuild(store_);
    isShown_ = false;
    for (OverlaySurface* surface : surfaces_)
        connect(&surface->scene(), &OverlayScene::stopRequested, this, &OverlayController::stop,
                Qt::UniqueConnection);
}

OverlaySurface* OverlayController::surfaceUnderPointer() const {
    const QPoint pointer = host_.pointerPosition();
    for (OverlaySurface* surface : surfaces_) {
        if (surface->outputGeometry().contains(pointer))
            return surface;
    }
    return surfaces_.front();
}

void OverlayController::start() {
    if (store_.isDrawing())
        return;
    FrameStats::shared().drawingStarted();
    rememberActiveWindow();
    rebuildSurfaces();
    if (surfaces_.empty())
        return;
    store_.setDrawing(true);
    showSurfaces(true);
    isShown_ = true;
    surfaceUnderPointer()->makeKey();
    updateCursors();
    store_.announceModeSwitch();
}

void OverlayController::stop() {
    if (!store_.isDrawing())
        return;
    store_.endSession();
    store_.setDrawing(false);
    const bool keep = shouldShow();
    showSurfaces(keep);
    isShown_ = keep;
    updateCursors();
    store_.announceModeSwitch();
    restoreActiveWindow();
}

void OverlayController::storeChanged() {
    const bool visible = shouldShow();
    if (visible == isShown_)
        return;
    showSurfaces(visible);
    isShown_ = visible;
}

void OverlayController::outputsChanged() {
    if (!isShown_)
        return;
    const bool wasDrawing = store_.isDrawing();
    rebuildSurfaces();
    const bool visible = shouldShow();
    showSurfaces(visible);
    isShown_ = visible;
    if (wasDrawing && !surfaces_.empty())
        surfaces_.front()->makeKey();
    store_.announceDisplayChange();
}

void OverlayController::rememberActiveWindow() {
    const quint64 active = WindowSystem::current().activeWindow();
    // With our own menu or settings in front, keep the window that was in
    // front before them.
    if (active == 0 || !WindowSystem::isOwnWindow(active))
        previousWindow = active;
}

void OverlayController::restoreActiveWindow() {
    WindowSystem& system = WindowSystem::current();
    // Our windows ignore keys from now on: never leave the keyboard in one,
    // even when the window to go back to has gone or refuses.
    if (WindowSystem::isOwnWindow(system.focusedWindow()))
        system.releaseFocus();
    if (previousWindow != 0)
        system.activate(previousWindow);
    previousWindow = 0;
}
