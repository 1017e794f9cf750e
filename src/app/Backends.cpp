#include "Backends.h"

#include "HotKeyManager.h"
#include "NullHotKeyBackend.h"
#include "NullOverlayHost.h"
#include "NullWindowSystem.h"
#include "OverlayHost.h"
#include "WidgetOverlayHost.h"
#include "WindowSystem.h"
#include "X11HotKeyBackend.h"
#include "X11WindowSystem.h"
#include "XdgAutostartLoginItem.h"

#include <QGuiApplication>

namespace {

// A GUI application, if that is what runs (a plain QCoreApplication in some tests).
QGuiApplication* guiApplication() {
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance());
}

xcb_connection_t* x11Connection() {
    QGuiApplication* gui = guiApplication();
    auto* x11 = gui ? gui->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection() || xcb_connection_has_error(x11->connection()))
        return nullptr;
    return x11->connection();
}

} // namespace

void Backends::load() {
    xcb_connection_t* x11 = x11Connection();
    if (x11) {
        WindowSystem::install(std::make_unique<X11WindowSystem>(x11));
        HotKeyManager::shared().setBackend(
            std::make_unique<X11HotKeyBackend>(x11, HotKeyManager::pressed));
    } else {
        WindowSystem::install(std::make_unique<NullWindowSystem>());
        HotKeyManager::shared().setBackend(std::make_unique<NullHotKeyBackend>());
    }
    // Qt windows serve any Qt platform that can show them.
    if (guiApplication())
        OverlayHost::install(std::make_unique<WidgetOverlayHost>());
    else
        OverlayHost::install(std::make_unique<NullOverlayHost>());
}

// Every desktop Quillery runs on reads XDG autostart entries.
std::unique_ptr<LoginItem> Backends::loginItem() {
    return std::make_unique<XdgAutostartLoginItem>();
}
