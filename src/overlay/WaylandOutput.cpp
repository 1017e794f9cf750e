#include "WaylandOutput.h"

#include "xdg-output-unstable-v1-client-protocol.h"

#include <wayland-client.h>

WaylandOutput::WaylandOutput(wl_output* output, uint32_t globalName)
    : output(output), name(globalName) {
    static const wl_output_listener listener = {
        .geometry = &WaylandOutput::outputGeometry,
        .mode = &WaylandOutput::outputMode,
        .done = &WaylandOutput::outputDone,
        .scale = &WaylandOutput::outputScale,
        .name = [](void*, wl_output*, const char*) {},
        .description = [](void*, wl_output*, const char*) {},
    };
    wl_output_add_listener(output, &listener, this);
}

WaylandOutput::~WaylandOutput() {
    if (logical)
        zxdg_output_v1_destroy(logical);
    if (wl_output_get_version(output) >= WL_OUTPUT_RELEASE_SINCE_VERSION)
        wl_output_release(output);
    else
        wl_output_destroy(output);
}

void WaylandOutput::describeWith(zxdg_output_manager_v1* manager) {
    if (logical || !manager)
        return;
    static const zxdg_output_v1_listener listener = {
        &WaylandOutput::logicalPosition,
        &WaylandOutput::logicalSize,
        &WaylandOutput::logicalDone,
        [](void*, zxdg_output_v1*, const char*) {},
        [](void*, zxdg_output_v1*, const char*) {},
    };
    logical = zxdg_output_manager_v1_get_xdg_output(manager, output);
    zxdg_output_v1_add_listener(logical, &listener, this);
}

void WaylandOutput::outputGeometry(void* data, wl_output*, int32_t x, int32_t y, int32_t, int32_t,
                                   int32_t, const char*, const char*, int32_t transform) {
    auto* self = static_cast<WaylandOutput*>(data);
    self->transform = transform;
    if (!self->logical)
        self->geometry_.moveTopLeft({x, y});
}

void WaylandOutput::outputMode(void* data, wl_output*, uint32_t flags, int32_t width,
                               int32_t height, int32_t) {
    if (flags & WL_OUTPUT_MODE_CURRENT)
        static_cast<WaylandOutput*>(data)->modeSize = QSize(width, height);
}

void WaylandOutput::outputScale(void* data, wl_output*, int32_t factor) {
    static_cast<WaylandOutput*>(data)->scale_ = qMax(1, factor);
}

void WaylandOutput::outputDone(void* data, wl_output*) {
    auto* self = static_cast<WaylandOutput*>(data);
    if (!self->logical) {
        // Without xdg-output: the mode, turned as the output is, at its scale.
        const bool sideways = self->transform % 2 == 1;
        const QSize pixels = sideways ? self->modeSize.transposed() : self->modeSize;
        self->geometry_.setSize(pixels / self->scale_);
    }
    self->finishChange();
}

void WaylandOutput::logicalPosition(void* data, zxdg_output_v1*, int32_t x, int32_t y) {
    static_cast<WaylandOutput*>(data)->geometry_.moveTopLeft({x, y});
}

void WaylandOutput::logicalSize(void* data, zxdg_output_v1*, int32_t width, int32_t height) {
    static_cast<WaylandOutput*>(data)->geometry_.setSize({width, height});
}

// Since version 3 the output's own done event ends xdg-output's changes too.
void WaylandOutput::logicalDone(void* data, zxdg_output_v1* logical) {
    if (zxdg_output_v1_get_version(logical) < 3)
        static_cast<WaylandOutput*>(data)->finishChange();
}

void WaylandOutput::finishChange() {
    ready = true;
    if (changed)
        changed();
}
