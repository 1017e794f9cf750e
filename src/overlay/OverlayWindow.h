#pragma once

#include "OverlaySurface.h"
#include <QRegion>
#include <QTimer>

#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

class DrawingStore;
class InkMask;
class OverlayScene;
class OverlayView;
class QScreen;

// One borderless, see-through window covering one screen exactly, above
// everything (panels and full-screen windows included), on every desktop,
// with no taskbar or Alt-Tab entry. Its only content is an OverlayView. The
// controller configures and shows it.
class OverlayWindow : public QWidget, public OverlaySurface {
    Q_OBJECT
public:
    enum class Kind {
        // Bypasses the window manager: above everything on any X11 desktop.
        unmanaged,
        // A full-screen, always-above window the window manager stacks and
        // focuses: what a Wayland compositor (mutter) lets an XWayland window
        // have the keyboard with and give it back.
        managed,
    };

    OverlayWindow(QScreen* screen, DrawingStore& store, OverlayScene& scene,
                  Kind kind = Kind::unmanaged);
    ~OverlayWindow() override;

    OverlayView* view() const { return view_; }
    QRect outputGeometry() const override { return geometry(); }
    OverlayScene& scene() override;

    // Clicks pass through to the windows underneath (an empty input shape).
    void setClickThrough(bool on) override;
    bool isClickThrough() const;

    void orderFront() override;
    void orderOut() override;

    // Only while drawing may an overlay take the keyboard.
    bool canBecomeKey() const;
    // Brings the window up and gives its view the keyboard, without a click.
    void makeKey() override;
    bool hasKeyboard() const override;
    void updateCursor() override;

    // Without a compositing manager nothing blends the window over the
    // desktop, and every clear pixel of it would show black. Shaped, the
    // window shows only what is drawn on it; while drawing, the key window
    // then holds the pointer, since its shape alone would let the pen fall
    // through to the windows underneath wherever there is no ink yet.
    void setShaped(bool shaped);
    bool isShaped() const { return mask != nullptr; }
    // The part of the window on screen in shaped mode, in native pixels;
    // std::nullopt when all of it is.
    const std::optional<QRegion>& visibleRegion() const { return shown; }
    // Whether this window's view takes every pointer event on the display.
    bool holdsPointer() const;

protected:
    void changeEvent(QEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    bool event(QEvent* event) override;

private:
    void keyboardLost();
    void handKeyboardBack();
    void askForKeyboardAgain();
    void holdPointer();
    void releasePointer();
    void drawingChanged();
    // Cuts the window to what is drawn, in an order that never shows a clear
    // pixel: first to what stays, then paint, then out to what is new.
    void reshape(const std::function<void()>& paint);
    void showRegion(const std::optional<QRegion>& region);

    DrawingStore& store;
    OverlayView* view_;
    QRect screenGeometry;
    Kind kind;
    std::unique_ptr<InkMask> mask;
    std::optional<QRegion> shown;
    bool shapeOutdated = false;
    // Reshapes once per turn of the event loop at most, also when nothing repaints.
    QTimer reshapeTimer;
    // Checks, shortly after the window was made key, that it has the keyboard;
    // stopped once the window no longer takes keys, so that nothing wakes at rest.
    QTimer keyboardRetry;
    int keyboardAsks = 0;
    bool askingAgain = false;
    // Grabbing fails while another program holds the pointer (a menu): try again.
    QTimer pointerRetry;
    bool pointerWanted = false;
};
