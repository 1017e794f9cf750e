#include "Backends.h"

#include "HotKeyManager.h"
#include "NullHotKeyBackend.h"
#include "NullOverlayHost.h"
#include "NullWindowSystem.h"
#include "OverlayHost.h"
#include "OverlayWindow.h"
#include "PortalHotKeyBackend.h"
#include "WaylandOverlayHost.h"
#include "WidgetOverlayHost.h"
#include "WindowSystem.h"
#include "X11HotKeyBackend.h"
#include "X11WindowSystem.h"
#include "XdgAutostartLoginItem.h"

#include <QDBusConnection>
#include <QGuiApplication>
#include <cstdio>
#include <utility>

namespace {

// The compositor's connection, kept from the choice of host for the host,
// where it offers layer-shell surfaces.
wl_display* layerShellDisplay = nullptr;

bool isSet(const char* name) {
    return !qEnvironmentVariableIsEmpty(name);
}

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

void Backends::chooseOverlayHost() {
    const QByteArray forced = qgetenv("QUILLERY_OVERLAY_HOST");
    const bool wantsX11 = forced == "x11";
    const bool wantsWayland = forced == "wayland";
    if (!forced.isEmpty() && !wantsX11 && !wantsWayland)
        std::fprintf(stderr,
                     "quillery: QUILLERY_OVERLAY_HOST is \"%s\", not x11 or wayland; "
                     "choosing the overlay host automatically.\n",
                     forced.constData());
    if (wantsWayland || (!wantsX11 && isSet("WAYLAND_DISPLAY")))
        layerShellDisplay = WaylandOverlayHost::connectIfOffered();
    if (wantsWayland && !layerShellDisplay)
        std::fputs("quillery: QUILLERY_OVERLAY_HOST=wayland, but no Wayland compositor with "
                   "layer-shell surfaces answers; choosing the overlay host automatically.\n",
                   stderr);
    // No layer shell on a Wayland session (GNOME): the overlay is an X11
    // window through XWayland, and Qt's own windows go the same way unless
    // the user chose Qt's platform.
    if (!layerShellDisplay && isSet("WAYLAND_DISPLAY") && !isSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
}

void Backends::load() {
    xcb_connection_t* x11 = x11Connection();
    if (x11)
        WindowSystem::install(std::make_unique<X11WindowSystem>(x11));
    else
        WindowSystem::install(std::make_unique<NullWindowSystem>());
    // On Wayland an X11 grab would fire only while some XWayland window has
    // the keyboard: the desktop's portal is asked instead.
    if (isSet("WAYLAND_DISPLAY"))
        HotKeyManager::shared().setBackend(std::make_unique<PortalHotKeyBackend>(
            QDBusConnection::sessionBus(), HotKeyManager::pressed, HotKeyManager::changed));
    else if (x11)
        HotKeyManager::shared().setBackend(
            std::make_unique<X11HotKeyBackend>(x11, HotKeyManager::pressed));
    else
        HotKeyManager::shared().setBackend(std::make_unique<NullHotKeyBackend>());
    if (layerShellDisplay) {
        if (auto host = WaylandOverlayHost::create(std::exchange(layerShellDisplay, nullptr))) {
            OverlayHost::install(std::move(host));
            return;
        }
        std::fputs("quillery: the Wayland compositor lacks what the overlay needs; drawing "
                   "through Qt's windows.\n",
                   stderr);
    }
    // Qt windows serve any Qt platform that can show them. Through XWayland
    // the compositor gives the keyboard only to windows it manages.
    if (guiApplication())
        OverlayHost::install(std::make_unique<WidgetOverlayHost>(
            x11 && isSet("WAYLAND_DISPLAY") ? OverlayWindow::Kind::managed
                                            : OverlayWindow::Kind::unmanaged));
    else
        OverlayHost::install(std::make_unique<NullOverlayHost>());
}

// Every desktop Quillery runs on reads XDG autostart entries.
std::unique_ptr<LoginItem> Backends::loginItem() {
    return std::make_unique<XdgAutostartLoginItem>();
}
