#pragma once

#include "WindowSystem.h"

#include <QAbstractNativeEventFilter>
#include <xcb/xcb.h>

// EWMH and plain X11 focus handling on Qt's own xcb connection, so that our
// requests are ordered after Qt's (a window Qt has just mapped is viewable
// by the time we focus it). Compositing managers announce themselves by
// owning the _NET_WM_CM_S<screen> selection; XFixes reports its changes.
class X11WindowSystem : public WindowSystem, private QAbstractNativeEventFilter {
public:
    explicit X11WindowSystem(xcb_connection_t* connection);
    ~X11WindowSystem() override;

    WindowId activeWindow() override;
    WindowId focusedWindow() override;
    bool activate(WindowId window) override;
    void giveFocus(WindowId window) override;
    bool isApplicationWindow(WindowId window) override;
    void releaseFocus() override;
    bool isCompositing() override;
    void watchCompositing(std::function<void()> changed) override;
    void watchSystemTray(std::function<void()> changed) override;
    void setVisibleRegion(WindowId window, const std::optional<QRegion>& region) override;
    void takeInputOncePerMove(WindowId window) override;

private:
    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

    xcb_atom_t atom(const char* name) const;
    bool windowManagerSupports(xcb_atom_t feature) const;
    // Whether window exists, and whether it is viewable (mapped with all its ancestors).
    bool exists(xcb_window_t window, bool* viewable) const;
    bool hasExtension(xcb_extension_t* extension) const;
    void watchSelection(xcb_atom_t selection);

    xcb_connection_t* connection;
    int screenNumber;
    xcb_window_t root;
    xcb_atom_t netActiveWindow;
    xcb_atom_t netSupported;
    xcb_atom_t wmState;
    xcb_atom_t compositorSelection;
    xcb_atom_t traySelection;
    // The first event number of XFixes on this connection; 0 without XFixes.
    uint8_t xfixesFirstEvent = 0;
    bool filterInstalled = false;
    std::function<void()> compositingChanged;
    std::function<void()> trayChanged;
};
