#include "Backends.h"

#include "HotKeyManager.h"
#include "NullHotKeyBackend.h"
#include "NullOverlayHost.h"
#include "NullWindowSystem.h"
#include "OverlayHost.h"
#include "WaylandOverlayHost.h"
#include "WidgetOverlayHost.h"
#include "WindowSystem.h"
#include "X11HotKeyBackend.h"
#include "X11WindowSystem.h"
#include "XdgAutostartLoginItem.h"

#include <QGuiApplication>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

enum class HostKind { widgets, layerShell };
HostKind chosenHost = HostKind::widgets;

bool isSet(const char* name) {
    const char* value = std::getenv(name);
    return value && *value;
}

// Qt's own choice of platform for our windows, unless the user made one.
void keepQtOnX11() {
    if (!isSet("QT_QPA_PLATFORM"))
        setenv("QT_QPA_PLATFORM", "xcb", 1);
}

HostKind automaticHost() {
    if (!isSet("WAYLAND_DISPLAY"))
        return HostKind::widgets;
    if (WaylandOverlayHost::isOffered())
        return HostKind::layerShell;
    // No layer shell (GNOME): the overlay is an X11 window through XWayland.
    keepQtOnX11();
    return HostKind::widgets;
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
    const char* forced = std::getenv("QUILLERY_OVERLAY_HOST");
    if (!forced || !*forced) {
        chosenHost = automaticHost();
    } else if (std::strcmp(forced, "x11") == 0) {
        if (isSet("WAYLAND_DISPLAY"))
            keepQtOnX11();
        chosenHost = HostKind::widgets;
    } else if (std::strcmp(forced, "wayland") == 0 && WaylandOverlayHost::isOffered()) {
        chosenHost = HostKind::layerShell;
    } else {
        std::fprintf(stderr,
                     std::strcmp(forced, "wayland") == 0
                         ? "quillery: QUILLERY_OVERLAY_HOST=wayland, but no Wayland compositor "
                           "with layer-shell surfaces answers; choosing the overlay host "
                           "automatically.\n"
                         : "quillery: QUILLERY_OVERLAY_HOST is \"%s\", not x11 or wayland; "
                           "choosing the overlay host automatically.\n",
                     forced);
        chosenHost = automaticHost();
    }
}

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
    if (chosenHost == HostKind::layerShell) {
        if (auto host = WaylandOverlayHost::connect()) {
            OverlayHost::install(std::move(host));
            return;
        }
        std::fputs("quillery: the Wayland compositor went away; drawing through Qt's windows.\n",
                   stderr);
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
