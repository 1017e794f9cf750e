#pragma once

#include <memory>

class LoginItem;

// The one place that picks the platform's side of everything, once: the
// overlay host before the application object exists (it decides which
// platform Qt may use), the rest right after: the window system, the global
// shortcut and the login item. Each is an interface with one implementation
// per platform and a null one.
class Backends {
public:
    // Layer-shell surfaces on a Wayland desktop that offers them; X11 windows
    // otherwise, through XWayland on other Wayland desktops. The environment
    // variable QUILLERY_OVERLAY_HOST (x11, wayland) overrides the choice.
    // A choice that can't be had is said on stderr and the automatic one made.
    static void chooseOverlayHost();
    static void load();
    static std::unique_ptr<LoginItem> loginItem();
};
