#include "WaylandOverlayHost.h"

#include "FrameStats.h"
#include "WaylandKeyboard.h"
#include "WaylandOutput.h"
#include "WaylandOverlaySurface.h"
#include "fractional-scale-v1-client-protocol.h"
#include "viewporter-client-protocol.h"
#include "wlr-layer-shell-unstable-v1-client-protocol.h"
#include "xdg-output-unstable-v1-client-protocol.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QtGlobal>
#include <QtMath>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <linux/input-event-codes.h>
#include <wayland-client.h>
#include <wayland-cursor.h>

namespace {

// Damage in buffer coordinates came with version 4.
constexpr uint32_t compositorVersion = 4;

bool is(const char* interface, const wl_interface& wanted) {
    return std::strcmp(interface, wanted.name) == 0;
}

template <typename T>
T* bind(wl_registry* registry, uint32_t name, const wl_interface& interface, uint32_t offered,
        uint32_t wanted) {
    return static_cast<T*>(wl_registry_bind(registry, name, &interface, std::min(offered, wanted)));
}

Qt::MouseButton qtButton(uint32_t button) {
    switch (button) {
    case BTN_LEFT:
        return Qt::LeftButton;
    case BTN_RIGHT:
        return Qt::RightButton;
    case BTN_MIDDLE:
        return Qt::MiddleButton;
    default:
        return Qt::ExtraButton1;
    }
}

// Cursor names as cursor themes spell them, best first.
std::vector<const char*> cursorNames(Qt::CursorShape shape) {
    if (shape == Qt::CrossCursor)
        return {"crosshair", "cross", "tcross", "left_ptr"};
    return {"default", "left_ptr"};
}

int cursorSize() {
    const char* size = std::getenv("XCURSOR_SIZE");
    const int parsed = size ? std::atoi(size) : 0;
    return parsed > 0 ? parsed : 24;
}

struct LayerShellProbe {
    bool found = false;
};

} // namespace

wl_display* WaylandOverlayHost::connectIfOffered() {
    wl_display* display = wl_display_connect(nullptr);
    if (!display)
        return nullptr;
    LayerShellProbe probe;
    static const wl_registry_listener listener = {
        [](void* data, wl_registry*, uint32_t, const char* interface, uint32_t) {
            if (is(interface, zwlr_layer_shell_v1_interface))
                static_cast<LayerShellProbe*>(data)->found = true;
        },
        [](void*, wl_registry*, uint32_t) {},
    };
    wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &listener, &probe);
    wl_display_roundtrip(display);
    wl_registry_destroy(registry);
    if (probe.found)
        return display;
    wl_display_disconnect(display);
    return nullptr;
}

std::unique_ptr<WaylandOverlayHost> WaylandOverlayHost::create(wl_display* display) {
    std::unique_ptr<WaylandOverlayHost> host(new WaylandOverlayHost(display));
    if (!host->compositor_ || !host->shm_ || !host->layerShell_)
        return nullptr;
    return host;
}

WaylandOverlayHost::WaylandOverlayHost(wl_display* display) : display(display) {
    static const wl_registry_listener listener = {&WaylandOverlayHost::global,
                                                  &WaylandOverlayHost::globalRemoved};
    registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &listener, this);
    // Globals, then what the outputs and the seat say of themselves.
    wl_display_roundtrip(display);
    wl_display_roundtrip(display);

    outputChange.setSingleShot(true);
    QObject::connect(&outputChange, &QTimer::timeout, this, &OverlayHost::outputsChanged);

    notifier = std::make_unique<QSocketNotifier>(wl_display_get_fd(display), QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, this,
                     &WaylandOverlayHost::dispatch);
    // Requests made anywhere in a turn of the event loop leave together
    // before it waits again.
    if (auto* dispatcher = QAbstractEventDispatcher::instance())
        QObject::connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, this,
                         &WaylandOverlayHost::flush);
}

WaylandOverlayHost::~WaylandOverlayHost() {
    for (WaylandOverlaySurface* surface : surfaces)
        delete surface;
    for (WaylandOverlaySurface* surface : retired)
        delete surface;
    surfaces.clear();
    keyboard.reset();
    outputs.clear();
    if (cursorSurface)
        wl_surface_destroy(cursorSurface);
    if (cursorTheme)
        wl_cursor_theme_destroy(cursorTheme);
    if (pointer)
        wl_pointer_destroy(pointer);
    if (seat)
        wl_seat_destroy(seat);
    if (outputManager)
        zxdg_output_manager_v1_destroy(outputManager);
    if (fractionalScale_)
        wp_fractional_scale_manager_v1_destroy(fractionalScale_);
    if (viewporter_)
        wp_viewporter_destroy(viewporter_);
    if (layerShell_)
        zwlr_layer_shell_v1_destroy(layerShell_);
    if (shm_)
        wl_shm_destroy(shm_);
    if (compositor_)
        wl_compositor_destroy(compositor_);
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
}

// ---- the connection

// Reads what the compositor sent, without waiting when it sent nothing.
void WaylandOverlayHost::dispatch() {
    while (wl_display_prepare_read(display) != 0)
        wl_display_dispatch_pending(display);
    if (wl_display_read_events(display) < 0 || wl_display_dispatch_pending(display) < 0) {
        // The compositor is gone: nothing more to show on it.
        notifier->setEnabled(false);
        qWarning("quillery: lost the connection to the Wayland compositor");
        return;
    }
    flush();
}

void WaylandOverlayHost::flush() {
    wl_display_flush(display);
}

void WaylandOverlayHost::global(void* data, wl_registry* registry, uint32_t name,
                                const char* interface, uint32_t version) {
    auto* self = static_cast<WaylandOverlayHost*>(data);
    if (is(interface, wl_compositor_interface) && version >= compositorVersion) {
        self->compositor_ = bind<wl_compositor>(registry, name, wl_compositor_interface, version,
                                                compositorVersion);
    } else if (is(interface, wl_shm_interface)) {
        self->shm_ = bind<wl_shm>(registry, name, wl_shm_interface, version, 1);
    } else if (is(interface, zwlr_layer_shell_v1_interface)) {
        self->layerShell_ =
            bind<zwlr_layer_shell_v1>(registry, name, zwlr_layer_shell_v1_interface, version, 4);
    } else if (is(interface, zxdg_output_manager_v1_interface)) {
        self->outputManager = bind<zxdg_output_manager_v1>(
            registry, name, zxdg_output_manager_v1_interface, version, 3);
        for (const auto& output : self->outputs)
            output->describeWith(self->outputManager);
    } else if (is(interface, wp_fractional_scale_manager_v1_interface)) {
        self->fractionalScale_ = bind<wp_fractional_scale_manager_v1>(
            registry, name, wp_fractional_scale_manager_v1_interface, version, 1);
    } else if (is(interface, wp_viewporter_interface)) {
        self->viewporter_ =
            bind<wp_viewporter>(registry, name, wp_viewporter_interface, version, 1);
    } else if (is(interface, wl_output_interface)) {
        self->addOutput(name, version);
    } else if (is(interface, wl_seat_interface) && !self->seat) {
        self->seat = bind<wl_seat>(registry, name, wl_seat_interface, version, 5);
        static const wl_seat_listener listener = {&WaylandOverlayHost::seatCapabilities,
                                                  [](void*, wl_seat*, const char*) {}};
        wl_seat_add_listener(self->seat, &listener, self);
    }
}

void WaylandOverlayHost::addOutput(uint32_t name, uint32_t version) {
    auto* handle = bind<wl_output>(registry, name, wl_output_interface, version, 3);
    auto output = std::make_unique<WaylandOutput>(handle, name);
    output->describeWith(outputManager);
    WaylandOutput* added = output.get();
    output->changed = [this, added] {
        for (WaylandOverlaySurface* surface : surfaces)
            if (surface->output() == added)
                surface->outputChanged();
        outputChange.start();
    };
    outputs.push_back(std::move(output));
}

void WaylandOverlayHost::globalRemoved(void* data, wl_registry*, uint32_t name) {
    auto* self = static_cast<WaylandOverlayHost*>(data);
    const auto gone =
        std::find_if(self->outputs.begin(), self->outputs.end(),
                     [name](const auto& output) { return output->globalName() == name; });
    if (gone == self->outputs.end())
        return;
    // Its surface goes off screen first: it refers to the output.
    for (auto it = self->surfaces.begin(); it != self->surfaces.end();) {
        if ((*it)->output() == gone->get()) {
            if (self->pointerSurface == *it)
                self->pointerSurface = nullptr;
            (*it)->outputGone();
            self->retired.push_back(*it);
            it = self->surfaces.erase(it);
        } else {
            ++it;
        }
    }
    self->outputs.erase(gone);
    self->outputChange.start();
}

// ---- surfaces

std::vector<OverlaySurface*> WaylandOverlayHost::rebuild(DrawingStore& store) {
    // A surface lives as long as its output: its scene and the layers cached
    // for it are there for the next drawing session.
    for (WaylandOverlaySurface* surface : retired)
        surface->deleteLater();
    retired.clear();
    std::vector<OverlaySurface*> result;
    for (const auto& output : outputs) {
        if (!output->isReady())
            continue;
        auto known = std::find_if(surfaces.begin(), surfaces.end(),
                                  [&](auto* surface) { return surface->output() == output.get(); });
        if (known == surfaces.end()) {
            surfaces.push_back(new WaylandOverlaySurface(*this, *output, store));
            known = surfaces.end() - 1;
        }
        result.push_back(*known);
    }
    return result;
}

WaylandOverlaySurface* WaylandOverlayHost::surfaceFor(wl_surface* handle) const {
    if (!handle)
        return nullptr;
    const auto found = std::find_if(surfaces.begin(), surfaces.end(), [handle](auto* surface) {
        return surface->handle() == handle;
    });
    return found == surfaces.end() ? nullptr : *found;
}

// ---- keyboard

wl_surface* WaylandOverlayHost::keyboardFocus() const {
    return keyboard ? keyboard->focus() : nullptr;
}

void WaylandOverlayHost::giveKeyboardTo(WaylandOverlaySurface* chosen) {
    for (WaylandOverlaySurface* surface : surfaces)
        surface->setWantsKeyboard(surface == chosen);
}

void WaylandOverlayHost::keyPressed(const KeyPress& press) {
    if (WaylandOverlaySurface* surface = surfaceFor(keyboardFocus()))
        surface->scene().keyPressed(press);
}

// ---- pointer

void WaylandOverlayHost::seatCapabilities(void* data, wl_seat* seat, uint32_t capabilities) {
    auto* self = static_cast<WaylandOverlayHost*>(data);
    const bool hasPointer = capabilities & WL_SEAT_CAPABILITY_POINTER;
    if (hasPointer && !self->pointer) {
        self->pointer = wl_seat_get_pointer(seat);
        // Designated, so that events added to later versions of the protocol
        // (which are never sent at the version bound) stay null.
        static const wl_pointer_listener listener = {
            .enter = &WaylandOverlayHost::pointerEnter,
            .leave = &WaylandOverlayHost::pointerLeave,
            .motion = &WaylandOverlayHost::pointerMotion,
            .button = &WaylandOverlayHost::pointerButton,
            .axis = [](void*, wl_pointer*, uint32_t, uint32_t, wl_fixed_t) {},
            .frame = [](void*, wl_pointer*) {},
            .axis_source = [](void*, wl_pointer*, uint32_t) {},
            .axis_stop = [](void*, wl_pointer*, uint32_t, uint32_t) {},
            .axis_discrete = [](void*, wl_pointer*, uint32_t, int32_t) {},
            .axis_value120 = [](void*, wl_pointer*, uint32_t, int32_t) {},
        };
        wl_pointer_add_listener(self->pointer, &listener, self);
    } else if (!hasPointer && self->pointer) {
        wl_pointer_destroy(self->pointer);
        self->pointer = nullptr;
        self->pointerSurface = nullptr;
    }
    const bool hasKeyboard = capabilities & WL_SEAT_CAPABILITY_KEYBOARD;
    if (hasKeyboard && !self->keyboard) {
        self->keyboard = std::make_unique<WaylandKeyboard>(wl_seat_get_keyboard(seat));
        QObject::connect(self->keyboard.get(), &WaylandKeyboard::pressed, self,
                         &WaylandOverlayHost::keyPressed);
    } else if (!hasKeyboard) {
        self->keyboard.reset();
    }
}

void WaylandOverlayHost::pointerEnter(void* data, wl_pointer*, uint32_t serial, wl_surface* surface,
                                      wl_fixed_t x, wl_fixed_t y) {
    auto* self = static_cast<WaylandOverlayHost*>(data);
    self->pointerSurface = self->surfaceFor(surface);
    self->pointerSerial = serial;
    if (!self->pointerSurface)
        return;
    self->pointer_ = QPointF(self->pointerSurface->outputGeometry().topLeft()) +
                     QPointF(wl_fixed_to_double(x), wl_fixed_to_double(y));
    self->updateCursor(*self->pointerSurface);
}

void WaylandOverlayHost::pointerLeave(void* data, wl_pointer*, uint32_t, wl_surface*) {
    static_cast<WaylandOverlayHost*>(data)->pointerSurface = nullptr;
}

// While a button is held the compositor keeps sending motion to the surface it
// was pressed on, past its edges: the points go on in desktop coordinates, and
// the other outputs' scenes show the part of the stroke that lies on them.
void WaylandOverlayHost::pointerMotion(void* data, wl_pointer*, uint32_t, wl_fixed_t x,
                                       wl_fixed_t y) {
    auto* self = static_cast<WaylandOverlayHost*>(data);
    if (!self->pointerSurface)
        return;
    FrameStats::shared().pointerEventArrived();
    self->pointer_ = QPointF(self->pointerSurface->outputGeometry().topLeft()) +
                     QPointF(wl_fixed_to_double(x), wl_fixed_to_double(y));
    self->pointerSurface->scene().pointerMoved(self->pointer_, self->buttons);
}

void WaylandOverlayHost::pointerButton(void* data, wl_pointer*, uint32_t, uint32_t, uint32_t button,
                                       uint32_t state) {
    auto* self = static_cast<WaylandOverlayHost*>(data);
    if (!self->pointerSurface)
        return;
    FrameStats::shared().pointerEventArrived();
    const Qt::MouseButton which = qtButton(button);
    OverlayScene& scene = self->pointerSurface->scene();
    if (state == WL_POINTER_BUTTON_STATE_PRESSED) {
        self->buttons |= which;
        scene.pointerPressed(self->pointer_, which);
    } else {
        self->buttons &= ~which;
        scene.pointerReleased(self->pointer_, which);
    }
}

void WaylandOverlayHost::updateCursor(WaylandOverlaySurface& surface) {
    if (pointerSurface == &surface)
        setCursor(surface.scene().cursor());
}

void WaylandOverlayHost::setCursor(Qt::CursorShape shape) {
    if (!pointer || !pointerSurface)
        return;
    const int scale = qMax(1, qCeil(pointerSurface->scale()));
    if (!cursorTheme || cursorScale != scale) {
        if (cursorTheme)
            wl_cursor_theme_destroy(cursorTheme);
        cursorTheme =
            wl_cursor_theme_load(std::getenv("XCURSOR_THEME"), cursorSize() * scale, shm_);
        cursorScale = scale;
    }
    wl_cursor* cursor = nullptr;
    for (const char* name : cursorNames(shape))
        if (!cursor && cursorTheme)
            cursor = wl_cursor_theme_get_cursor(cursorTheme, name);
    if (!cursor) {
        // No theme at all: the compositor's own cursor rather than none.
        return;
    }
    wl_cursor_image* image = cursor->images[0];
    if (!cursorSurface)
        cursorSurface = wl_compositor_create_surface(compositor_);
    wl_surface_set_buffer_scale(cursorSurface, scale);
    wl_surface_attach(cursorSurface, wl_cursor_image_get_buffer(image), 0, 0);
    wl_surface_damage(cursorSurface, 0, 0, int(image->width), int(image->height));
    wl_surface_commit(cursorSurface);
    wl_pointer_set_cursor(pointer, pointerSerial, cursorSurface, int(image->hotspot_x) / scale,
                          int(image->hotspot_y) / scale);
}
