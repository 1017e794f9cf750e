#pragma once

#include <QObject>
#include <vector>

class DrawingStore;
class OverlayWindow;

// Owns one overlay window per screen and switches drawing mode on and off.
class OverlayController : public QObject {
    Q_OBJECT
public:
    static OverlayController& shared();

    DrawingStore& store() const { return store_; }
    void start();
    void stop();
    // The toggle used by the global shortcut and the tray menu.
    void toggle();

    const std::vector<OverlayWindow*>& windows() const { return windows_; }
    bool isShown() const { return isShown_; }

private:
    explicit OverlayController(DrawingStore& store);
    // (the rest is the overlay's own)
    DrawingStore& store_;
    std::vector<OverlayWindow*> windows_;
    bool isShown_ = false;
};
