#pragma once

#include <QObject>
#include <vector>

class DrawingStore;
class OverlayHost;
class OverlaySurface;

// Switches drawing mode on and off, and keeps one overlay surface per output
// (from the desktop's overlay host) shown while there is anything to show.
class OverlayController : public QObject {
    Q_OBJECT
public:
    static OverlayController& shared();

    DrawingStore& store() const { return store_; }
    OverlayHost& host() const { return host_; }
    void start();
    void stop();
    // The one toggle: the global shortcut, the tray menu and the command line.
    void toggle();

    const std::vector<OverlaySurface*>& surfaces() const { return surfaces_; }
    bool isShown() const { return isShown_; }

private:
    OverlayController(DrawingStore& store, OverlayHost& host);

    void rebuildSurfaces();
    void storeChanged();
    void outputsChanged();

    // Whether anything must be on screen: drawing, or items left to show.
    bool shouldShow() const;
    void showSurfaces(bool visible);
    void updateCursors();
    OverlaySurface* surfaceUnderPointer() const;
    void rememberActiveWindow();
    void restoreActiveWindow();

    DrawingStore& store_;
    OverlayHost& host_;
    std::vector<OverlaySurface*> surfaces_;
    // The window that was active when the current or last session started (0: none).
    quint64 previousWindow = 0;
    bool isShown_ = false;
};
