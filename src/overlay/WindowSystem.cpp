#include "WindowSystem.h"

#include "BackendSlot.h"

#include <QGuiApplication>
#include <QWindow>
#include <algorithm>

WindowSystem& WindowSystem::current() {
    return BackendSlot<WindowSystem>::current("window system");
}

bool WindowSystem::isOwnWindow(WindowId window) {
    const QWindowList ours = QGuiApplication::allWindows();
    return std::any_of(ours.begin(), ours.end(), [window](const QWindow* each) {
        return each->handle() && each->winId() == window;
    });
}

void WindowSystem::install(std::unique_ptr<WindowSystem> system) {
    BackendSlot<WindowSystem>::install(std::move(system));
}
