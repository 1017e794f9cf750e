#include "WidgetOverlayHost.h"

#include "DrawingStore.h"
#include "OverlayScene.h"
#include "OverlayWindow.h"
#include "WindowSystem.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <algorithm>

WidgetOverlayHost::WidgetOverlayHost(OverlayWindow::Kind kind) : kind(kind) {
    screenChange.setSingleShot(true);
    screenChange.setInterval(0);
    connect(&screenChange, &QTimer::timeout, this, &OverlayHost::outputsChanged);
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

void WidgetOverlayHost::watchScreen(QScreen* screen) {
    connect(screen, &QScreen::geometryChanged, &screenChange, qOverload<>(&QTimer::start));
}

std::vector<OverlaySurface*> WidgetOverlayHost::rebuild(DrawingStore& store) {
    // Asked afresh: a compositing manager may have come or gone unannounced
    // (a server without XFixes).
    askWhetherShaped();
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (!windowsFit(screens))
        replaceWindows(screens, store);
    std::vector<OverlaySurface*> surfaces;
    for (OverlayWindow* window : windows_) {
        window->setShaped(shaped);
        surfaces.push_back(window);
    }
    return surfaces;
}

bool WidgetOverlayHost::windowsFit(const QList<QScreen*>& screens) const {
    return std::ranges::equal(windows_, screens, [](OverlayWindow* window, QScreen* screen) {
        return window->screen() == screen && window->geometry() == screen->geometry();
    });
}

void WidgetOverlayHost::replaceWindows(const QList<QScreen*>& screens, DrawingStore& store) {
    for (OverlayWindow* window : windows_) {
        window->orderOut();
        // Deleted later: one of them may still be inside an event handler.
        window->deleteLater();
    }
    windows_.clear();
    std::erase_if(scenes, [&screens](const auto& entry) {
        if (screens.contains(entry.first))
            return false;
        entry.second->deleteLater(); // after the windows that show it
        return true;
    });
    for (QScreen* screen : screens)
        windows_.push_back(new OverlayWindow(screen, store, sceneFor(screen, store), kind));
}

OverlayScene& WidgetOverlayHost::sceneFor(QScreen* screen, DrawingStore& store) {
    OverlayScene*& scene = scenes[screen];
    if (!scene)
        scene = new OverlayScene(store, this);
    return *scene;
}

QPoint WidgetOverlayHost::pointerPosition() const {
    return QCursor::pos();
}

bool WidgetOverlayHost::askWhetherShaped() {
    const bool nowShaped = !WindowSystem::current().isCompositing();
    if (nowShaped == shaped)
        return false;
    shaped = nowShaped;
    emit translucencyChanged();
    return true;
}

void WidgetOverlayHost::compositingChanged() {
    if (!askWhetherShaped())
        return;
    for (OverlayWindow* window : windows_)
        window->setShaped(shaped);
    // Cut to its ink, the key window must hold the pointer to keep the pen.
    if (!shaped || windows_.empty())
        return;
    OverlayWindow* key = windows_.front();
    for (OverlayWindow* window : windows_)
        if (window->geometry().contains(pointerPosition()))
            key = window;
    for (OverlayWindow* window : windows_)
        if (window->hasKeyboard())
            key = window;
    if (key->canBecomeKey() && key->isVisible())
        key->makeKey();
}
