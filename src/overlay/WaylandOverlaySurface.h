#pragma once

#include "OverlayScene.h"
#include "OverlaySurface.h"

#include <QObject>
#include <memory>
#include <vector>

class WaylandBuffer;
class WaylandOutput;
class WaylandOverlayHost;
struct wl_callback;
struct wl_surface;
struct zwlr_layer_surface_v1;

// One output's overlay on a layer-shell desktop: a layer surface above
// everything, panels included, painted from its scene into shared-memory
// buffers at most once per frame of the compositor. It exists on screen only
// while there is something to show.
class WaylandOverlaySurface : public QObject, public OverlaySurface {
    Q_OBJECT
public:
    WaylandOverlaySurface(WaylandOverlayHost& host, WaylandOutput& output, DrawingStore& store);
    ~WaylandOverlaySurface() override;

    const WaylandOutput& output() const { return output_; }
    wl_surface* handle() const { return surface; }
    // The output moved or changed size or scale.
    void outputChanged();

    QRect outputGeometry() const override;
    OverlayScene& scene() override { return scene_; }
    void orderFront() override;
    void orderOut() override;
    void setClickThrough(bool on) override;
    void makeKey() override;
    bool hasKeyboard() const override;
    void updateCursor() override;

    // Whether this surface is to take the keyboard while drawing.
    void setWantsKeyboard(bool wants);

private:
    static void configured(void* data, zwlr_layer_surface_v1*, uint32_t serial, uint32_t width,
                           uint32_t height);
    static void closed(void* data, zwlr_layer_surface_v1*);
    static void frameDone(void* data, wl_callback* callback, uint32_t);

    void map();
    void unmap();
    void applyInput();
    void sceneChanged(const QRegion& region);
    void paintPending();
    WaylandBuffer* freeBuffer();
    QSize pixelSize() const;

    WaylandOverlayHost& host;
    WaylandOutput& output_;
    DrawingStore& store;
    OverlayScene scene_;
    wl_surface* surface = nullptr;
    zwlr_layer_surface_v1* layer = nullptr;
    wl_callback* frame = nullptr;
    std::vector<std::unique_ptr<WaylandBuffer>> buffers;
    QRegion pending;
    QSize size;
    bool configured_ = false;
    bool clickThrough = true;
    bool wantsKeyboard = false;
};
