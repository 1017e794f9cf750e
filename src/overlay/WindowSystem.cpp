#include "WindowSystem.h"

#include "NullWindowSystem.h"
#include "X11WindowSystem.h"

#include <QGuiApplication>

WindowSystem& WindowSystem::current() {
    static const std::unique_ptr<WindowSystem> system = create();
    return *system;
}

std::unique_ptr<WindowSystem> WindowSystem::create() {
    if (auto* x11 =
            qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr) {
        if (x11->connection())
            return std::make_unique<X11WindowSystem>(x11->connection());
    }
    return std::make_unique<NullWindowSystem>();
}
