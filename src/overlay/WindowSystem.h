#pragma once

#include <QRegion>
#include <QtGlobal>
#include <functional>
#include <memory>
#include <optional>

// What the overlay needs from the desktop's window system beyond Qt: which
// window is active, handing the keyboard to our own unmanaged windows, and
// giving it back. Window ids are the system's own (X11 window ids); 0 is none.
class WindowSystem {
public:
    using WindowId = quint64;

    virtual ~WindowSystem() = default;

    // The system chosen at start-up (asking before that is a programming error).
    static WindowSystem& current();
    static void install(std::unique_ptr<WindowSystem> system);
    // Whether window is one of this program's own native windows.
    static bool isOwnWindow(WindowId window);

    // The window the desktop considers active, or 0.
    virtual WindowId activeWindow() = 0;
    // The window that holds the keyboard focus now, or 0.
    virtual WindowId focusedWindow() = 0;
    // Asks the desktop to activate window; false when it no longer exists.
    virtual bool activate(WindowId window) = 0;
    // Gives the keyboard to one of our own mapped windows, which no window
    // manager would do for us since it bypasses the window manager.
    virtual void giveFocus(WindowId window) = 0;
    // Whether window is an application's top-level window managed by the
    // window manager (not the root, nobody, or the window manager's own helper).
    virtual bool isApplicationWindow(WindowId window) = 0;
    // Lets the keyboard follow the pointer again, so no hidden or click-through
    // window of ours keeps swallowing keys.
    virtual void releaseFocus() = 0;

    // Whether a compositing manager blends our see-through windows over the
    // desktop. Without one, whatever is clear in them shows black.
    virtual bool isCompositing() = 0;
    // Calls changed on the main thread, from the event loop, after a
    // compositing manager started or stopped (possibly more than once per
    // change). One observer; a later call replaces it.
    virtual void watchCompositing(std::function<void()> changed) = 0;
    // Calls changed, like watchCompositing, after a system tray of the
    // window system's own kind (XEmbed on X11) started or stopped.
    virtual void watchSystemTray(std::function<void()> changed) = 0;
    // Limits what window shows of itself to region, in the window's native
    // pixels; std::nullopt shows all of it again.
    virtual void setVisibleRegion(WindowId window, const std::optional<QRegion>& region) = 0;
    // Has each pointer move, click and touch reach window once, not once per
    // input device (the master pointer and the physical device behind it).
    virtual void takeInputOncePerMove(WindowId window) = 0;

protected:
    WindowSystem() = default;
};
