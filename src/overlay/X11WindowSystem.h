#pragma once

#include "WindowSystem.h"

#include <xcb/xcb.h>

// EWMH and plain X11 focus handling on Qt's own xcb connection, so that our
// requests are ordered after Qt's (a window Qt has just mapped is viewable
// by the time we focus it).
class X11WindowSystem : public WindowSystem {
public:
    explicit X11WindowSystem(xcb_connection_t* connection);

    WindowId activeWindow() override;
    WindowId focusedWindow() override;
    bool activate(WindowId window) override;
    void giveFocus(WindowId window) override;
    bool isApplicationWindow(WindowId window) override;
    void releaseFocus() override;

private:
    xcb_atom_t atom(const char* name) const;
    bool windowManagerSupports(xcb_atom_t feature) const;
    // Whether window exists, and whether it is viewable (mapped with all its ancestors).
    bool exists(xcb_window_t window, bool* viewable) const;

    xcb_connection_t* connection;
    xcb_window_t root;
    xcb_atom_t netActiveWindow;
    xcb_atom_t netSupported;
    xcb_atom_t wmState;
};
