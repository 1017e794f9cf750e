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
struct wp_fractional_scale_v1;
struct wp_viewport;

// One output's overlay on a layer-shell desktop: a layer surface above
// everything, panels included, painted from its scene into shared-memory
// buffers at most once per frame of the compositor. It exists on screen only
// while there is something to show.
class WaylandOverlaySurface : public QObject, public OverlaySurface {
    Q_OBJECT
public:
    WaylandOverlaySurface(WaylandOverlayHost& host, WaylandOutput& output, DrawingStore& store);
    ~WaylandOverlaySurface() override;

    // None once the output has gone.
    const WaylandOutput* output() const { return output_; }
    wl_surface* handle() const { return surface; }
    // The output moved or changed size or scale.
    void outputChanged();
    void outputGone();

    QRect outputGeometry() const override;
    OverlayScene& scene() override { return scene_; }
    void orderFront() override;
    void orderOut() override;
    void setClickThrough(bool on) override;
    void makeKey() override;
    bool hasKeyboard() const override;
    void updateCursor() override;

    // Device pixels per logical pixel: the compositor's preferred fractional
    // scale where it says one, the output's integer scale otherwise.
    qreal scale() const;
    // Whether this surface is to take the keyboard while drawing.
    void setWantsKeyboard(bool wants);

private:
    static void configured(void* data, zwlr_layer_surface_v1*, uint32_t serial, uint32_t width,
                           uint32_t height);
    static void closed(void* data, zwlr_layer_surface_v1*);
    static void frameDone(void* data, wl_callback* callback, uint32_t);
    static void preferredScale(void* data, wp_fractional_scale_v1*, uint32_t scale);

    void map();
    void unmap();
    void applyInput();
    void sceneChanged(const QRegion& region);
    void paintPending();
    WaylandBuffer* freeBuffer();
    QSize pixelSize() const;
    void applyScale();

    WaylandOverlayHost& host;
    WaylandOutput* output_;
    QRect geometry;
    int scale_;
    DrawingStore& store;
    OverlayScene scene_;
    wl_surface* surface = nullptr;
    zwlr_layer_surface_v1* layer = nullptr;
    wl_callback* frame = nullptr;
    wp_fractional_scale_v1* fractional = nullptr;
    wp_viewport* viewport = nullptr;
    // In 120ths, as the compositor gives it; 0 until it does.
    uint32_t preferredScale120 = 0;
    std::vector<std::unique_ptr<WaylandBuffer>> buffers;
    QRegion pending;
    QSize size;
    bool configured_ = false;
    bool clickThrough = true;
    bool wantsKeyboard = false;
};
