#pragma once

#include <QObject>
#include <QTimer>
#include <vector>

class DrawingStore;
class OverlayWindow;
class QScreen;

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
    // Whether the windows are cut to the ink, for want of a compositing manager.
    bool isShaped() const { return shaped; }

private:
    explicit OverlayController(DrawingStore& store);

    void rebuildWindows();
    void storeChanged();
    void screensChanged();
    void watchScreen(QScreen* screen);
    void compositingChanged();

    // Whether anything must be on screen: drawing, or items left to show.
    bool shouldShow() const;
    void showWindows(bool visible);
    void updateCursors();
    OverlayWindow* windowUnderPointer() const;
    OverlayWindow* keyWindow() const;
    bool isOwnWindow(quint64 window) const;
    void rememberActiveWindow();
    void restoreActiveWindow();

    DrawingStore& store_;
    std::vector<OverlayWindow*> windows_;
    // The window that was active when the current or last session started (0: none).
    quint64 previousWindow = 0;
    bool isShown_ = false;
    bool shaped = false;
    // Screen changes come in bursts (a monitor added moves the others too):
    // one rebuild for the whole burst.
    QTimer screenChange;
};
