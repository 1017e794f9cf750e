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

xcb_connection_t* x11Connection() {
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
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
    if (qGuiApp)
        OverlayHost::install(std::make_unique<WidgetOverlayHost>());
    else
        OverlayHost::install(std::make_unique<NullOverlayHost>());
}

// Every desktop Quillery runs on reads XDG autostart entries.
std::unique_ptr<LoginItem> Backends::loginItem() {
    return std::make_unique<XdgAutostartLoginItem>();
}
