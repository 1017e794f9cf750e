#pragma once

#include <QRect>

class OverlayScene;

// One output's overlay as the controller drives it, whatever the desktop
// makes it of: a see-through window above everything, showing its scene.
class OverlaySurface {
public:
    virtual ~OverlaySurface() = default;

    // Where the output lies on the virtual desktop.
    virtual QRect outputGeometry() const = 0;
    virtual OverlayScene& scene() = 0;

    virtual void orderFront() = 0;
    virtual void orderOut() = 0;
    // Clicks and keys pass through to the windows underneath.
    virtual void setClickThrough(bool on) = 0;
    // Takes the keyboard, without a click; only while drawing.
    virtual void makeKey() = 0;
    virtual bool hasKeyboard() const = 0;
    // The scene's cursor over this surface.
    virtual void updateCursor() = 0;
};
