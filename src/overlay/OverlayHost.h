#pragma once

#include <QObject>
#include <QPoint>
#include <memory>
#include <vector>

class DrawingStore;
class OverlaySurface;

// What kind of overlay surfaces the desktop gives, one per output: Qt
// windows on X11, layer surfaces on Wayland, none at all without a display.
// One host exists per process, chosen at start-up.
class OverlayHost : public QObject {
    Q_OBJECT
public:
    static OverlayHost& current();
    static void install(std::unique_ptr<OverlayHost> host);

    // One surface per output for the store's drawing: those of outputs that
    // stay as they were are kept, the others let go (later: one of them may
    // be handling an event).
    virtual std::vector<OverlaySurface*> rebuild(DrawingStore& store) = 0;
    // Where the pointer is on the virtual desktop.
    virtual QPoint pointerPosition() const = 0;
    // What `quillery --status` calls this host.
    virtual QString name() const = 0;
    // Whether ink shows translucent (highlighter, fading): not where windows
    // can only be cut to their ink, for want of a compositor.
    virtual bool drawsTranslucent() const { return true; }

signals:
    void translucencyChanged();
    // Outputs were added, removed or moved (a burst of changes comes as one).
    void outputsChanged();
};
