#include "WaylandOverlaySurface.h"

#include "DrawingStore.h"
#include "FrameStats.h"
#include "WaylandBuffer.h"
#include "WaylandOutput.h"
#include "WaylandOverlayHost.h"
#include "fractional-scale-v1-client-protocol.h"
#include "viewporter-client-protocol.h"
#include "wlr-layer-shell-unstable-v1-client-protocol.h"

#include <QPainter>
#include <cmath>
#include <wayland-client.h>

namespace {

// One buffer on screen, one being painted, one the compositor may still hold.
constexpr size_t mostBuffers = 3;

} // namespace

WaylandOverlaySurface::WaylandOverlaySurface(WaylandOverlayHost& host, WaylandOutput& output,
                                             DrawingStore& store)
    : host(host), output_(&output), geometry(output.geometry()), scale_(output.scale()),
      store(store), scene_(store) {
    scene_.setGeometry(output.geometry());
    connect(&scene_, &OverlayScene::repaintNeeded, this, &WaylandOverlaySurface::sceneChanged);
    connect(&scene_, &OverlayScene::keyboardWanted, this, [this] {
        if (!hasKeyboard())
            makeKey();
    });
}

WaylandOverlaySurface::~WaylandOverlaySurface() {
    unmap();
}

QRect WaylandOverlaySurface::outputGeometry() const {
    return geometry;
}

void WaylandOverlaySurface::outputChanged() {
    geometry = output_->geometry();
    scale_ = output_->scale();
    scene_.setGeometry(geometry);
    if (surface)
        applyScale();
}

// The output is going: nothing shows on it from now on. The controller lets
// go of this surface when it takes the new list of surfaces.
void WaylandOverlaySurface::outputGone() {
    unmap();
    output_ = nullptr;
}

qreal WaylandOverlaySurface::scale() const {
    return preferredScale120 > 0 ? preferredScale120 / 120.0 : scale_;
}

QSize WaylandOverlaySurface::pixelSize() const {
    return QSize(int(std::lround(size.width() * scale())),
                 int(std::lround(size.height() * scale())));
}

// Buffers of the new size, painted whole with the next frame.
void WaylandOverlaySurface::applyScale() {
    if (viewport)
        wp_viewport_set_destination(viewport, size.isEmpty() ? -1 : size.width(),
                                    size.isEmpty() ? -1 : size.height());
    else
        wl_surface_set_buffer_scale(surface, scale_);
    if (!buffers.empty() && buffers.front()->pixelSize() == pixelSize())
        return;
    buffers.clear();
    if (configured_)
        sceneChanged(QRect(QPoint(), size));
}

void WaylandOverlaySurface::preferredScale(void* data, wp_fractional_scale_v1*, uint32_t scale) {
    auto* self = static_cast<WaylandOverlaySurface*>(data);
    if (scale == self->preferredScale120)
        return;
    self->preferredScale120 = scale;
    self->applyScale();
}

// ---- on screen or not

void WaylandOverlaySurface::orderFront() {
    if (!surface && output_)
        map();
}

void WaylandOverlaySurface::orderOut() {
    unmap();
}

// A layer surface shows once the compositor has said how large it is and the
// first buffer is attached; until then it only asks.
void WaylandOverlaySurface::map() {
    surface = wl_compositor_create_surface(host.compositor());
    layer = zwlr_layer_shell_v1_get_layer_surface(host.layerShell(), surface, output_->handle(),
                                                  ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY,
                                                  "quillery-overlay");
    static const zwlr_layer_surface_v1_listener listener = {
        &WaylandOverlaySurface::configured,
        &WaylandOverlaySurface::closed,
    };
    zwlr_layer_surface_v1_add_listener(layer, &listener, this);
    zwlr_layer_surface_v1_set_anchor(
        layer, ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP | ZWLR_LAYER_SURFACE_V1_ANCHOR_BOTTOM |
                   ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT | ZWLR_LAYER_SURFACE_V1_ANCHOR_RIGHT);
    // Over panels too, without pushing anything aside.
    zwlr_layer_surface_v1_set_exclusive_zone(layer, -1);
    if (host.fractionalScale()) {
        static const wp_fractional_scale_v1_listener scaleListener = {
            &WaylandOverlaySurface::preferredScale};
        fractional =
            wp_fractional_scale_manager_v1_get_fractional_scale(host.fractionalScale(), surface);
        wp_fractional_scale_v1_add_listener(fractional, &scaleListener, this);
        viewport = wp_viewporter_get_viewport(host.viewporter(), surface);
    }
    applyScale();
    applyInput();
    wl_surface_commit(surface);
}

void WaylandOverlaySurface::unmap() {
    if (frame)
        wl_callback_destroy(frame);
    if (viewport)
        wp_viewport_destroy(viewport);
    if (fractional)
        wp_fractional_scale_v1_destroy(fractional);
    if (layer)
        zwlr_layer_surface_v1_destroy(layer);
    if (surface)
        wl_surface_destroy(surface);
    frame = nullptr;
    viewport = nullptr;
    fractional = nullptr;
    preferredScale120 = 0;
    layer = nullptr;
    surface = nullptr;
    configured_ = false;
    // Nothing shows: the memory goes back.
    buffers.clear();
    pending = QRegion();
}

void WaylandOverlaySurface::configured(void* data, zwlr_layer_surface_v1* layer, uint32_t serial,
                                       uint32_t width, uint32_t height) {
    auto* self = static_cast<WaylandOverlaySurface*>(data);
    zwlr_layer_surface_v1_ack_configure(layer, serial);
    self->size = QSize{int(width), int(height)};
    self->configured_ = true;
    self->applyScale();
    self->sceneChanged(QRect(QPoint(), self->size));
}

// The compositor took the surface away (its output is going): make a new one
// if there is still something to show when asked to.
void WaylandOverlaySurface::closed(void* data, zwlr_layer_surface_v1*) {
    static_cast<WaylandOverlaySurface*>(data)->unmap();
}

// ---- input

void WaylandOverlaySurface::setClickThrough(bool on) {
    if (on)
        wantsKeyboard = false;
    clickThrough = on;
    if (!surface)
        return;
    applyInput();
    wl_surface_commit(surface);
}

void WaylandOverlaySurface::setWantsKeyboard(bool wants) {
    if (wants == wantsKeyboard)
        return;
    wantsKeyboard = wants;
    if (!surface)
        return;
    applyInput();
    wl_surface_commit(surface);
}

// Click-through: an empty input region and no keyboard, so that clicks and
// keys go to the windows below while the ink fades.
void WaylandOverlaySurface::applyInput() {
    const bool takesKeyboard = wantsKeyboard && !clickThrough;
    zwlr_layer_surface_v1_set_keyboard_interactivity(
        layer, takesKeyboard ? ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_EXCLUSIVE
                             : ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_NONE);
    if (clickThrough) {
        wl_region* nowhere = wl_compositor_create_region(host.compositor());
        wl_surface_set_input_region(surface, nowhere);
        wl_region_destroy(nowhere);
    } else {
        wl_surface_set_input_region(surface, nullptr);
    }
}

void WaylandOverlaySurface::makeKey() {
    if (!store.isDrawing())
        return;
    orderFront();
    host.giveKeyboardTo(this);
}

bool WaylandOverlaySurface::hasKeyboard() const {
    return surface && host.keyboardFocus() == surface;
}

void WaylandOverlaySurface::updateCursor() {
    host.updateCursor(*this);
}

// ---- painting

void WaylandOverlaySurface::sceneChanged(const QRegion& region) {
    pending += region;
    paintPending();
}

WaylandBuffer* WaylandOverlaySurface::freeBuffer() {
    for (const auto& buffer : buffers)
        if (!buffer->isBusy())
            return buffer.get();
    if (buffers.size() >= mostBuffers)
        return nullptr;
    auto buffer = std::make_unique<WaylandBuffer>(host.shm(), pixelSize(), scale());
    if (!buffer->isValid())
        return nullptr;
    buffer->stale = QRect(QPoint(), size);
    // A frame that waited for a buffer goes out as soon as one is free.
    buffer->whenReleased = [this] { paintPending(); };
    buffers.push_back(std::move(buffer));
    return buffers.back().get();
}

// At most one commit per frame callback: changes that come sooner gather in
// `pending` and go out together with the next frame.
void WaylandOverlaySurface::paintPending() {
    if (!configured_ || frame || pending.isEmpty())
        return;
    WaylandBuffer* buffer = freeBuffer();
    if (!buffer)
        return;
    const QRegion region = (pending + buffer->stale) & QRect(QPoint(), size);
    {
        QPainter painter(&buffer->image());
        scene_.paint(painter, region);
    }
    for (const auto& other : buffers)
        if (other.get() != buffer)
            other->stale += region;
    buffer->stale = QRegion();
    pending = QRegion();

    wl_surface_attach(surface, buffer->handOver(), 0, 0);
    const qreal factor = scale();
    for (const QRect& rect : region) {
        const QRect pixels = QRectF(rect.x() * factor, rect.y() * factor, rect.width() * factor,
                                    rect.height() * factor)
                                 .toAlignedRect();
        wl_surface_damage_buffer(surface, pixels.x(), pixels.y(), pixels.width(), pixels.height());
    }
    static const wl_callback_listener listener = {&WaylandOverlaySurface::frameDone};
    frame = wl_surface_frame(surface);
    wl_callback_add_listener(frame, &listener, this);
    wl_surface_commit(surface);
    FrameStats::shared().framePainted();
}

void WaylandOverlaySurface::frameDone(void* data, wl_callback* callback, uint32_t) {
    auto* self = static_cast<WaylandOverlaySurface*>(data);
    wl_callback_destroy(callback);
    self->frame = nullptr;
    self->paintPending();
}
