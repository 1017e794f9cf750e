#pragma once

#include "OverlayHost.h"
#include "OverlayWindow.h"

#include <QTimer>
#include <map>

class OverlayScene;
class QScreen;

// Overlay surfaces as Qt widget windows, one per QScreen: the X11 host, and
// what any other Qt platform (offscreen in tests) gets. Without a compositing
// manager the windows are cut to their ink, switched live when one starts or
// stops.
class WidgetOverlayHost : public OverlayHost {
    Q_OBJECT
public:
    explicit WidgetOverlayHost(OverlayWindow::Kind kind = OverlayWindow::Kind::unmanaged);

    std::vector<OverlaySurface*> rebuild(DrawingStore& store) override;
    QPoint pointerPosition() const override;
    QString name() const override { return QStringLiteral("x11"); }
    bool drawsTranslucent() const override { return !shaped; }

    const std::vector<OverlayWindow*>& windows() const { return windows_; }
    // Whether the windows are cut to the ink, for want of a compositing manager.
    bool isShaped() const { return shaped; }

private:
    void watchScreen(QScreen* screen);
    // Whether there is one window per screen, in order, covering it.
    bool windowsFit(const QList<QScreen*>& screens) const;
    void replaceWindows(const QList<QScreen*>& screens, DrawingStore& store);
    void compositingChanged();
    // Whether windows must be cut to their ink now; true if that changed.
    bool askWhetherShaped();
    OverlayScene& sceneFor(QScreen* screen, DrawingStore& store);

    // One window per screen, kept from one drawing session to the next while
    // the screens stay as they are.
    std::vector<OverlayWindow*> windows_;
    // One scene per screen, with its painted layers.
    std::map<QScreen*, OverlayScene*> scenes;
    OverlayWindow::Kind kind;
    bool shaped = false;
    // Screen changes come in bursts (a monitor added moves the others too):
    // one signal for the whole burst.
    QTimer screenChange;
};
