#pragma once

#include <QRect>
#include <functional>

struct wl_output;
struct zxdg_output_manager_v1;
struct zxdg_output_v1;

// One of the compositor's outputs: where it lies in the desktop's logical
// coordinates and how many device pixels it has per logical one.
class WaylandOutput {
public:
    WaylandOutput(wl_output* output, uint32_t globalName);
    ~WaylandOutput();
    WaylandOutput(const WaylandOutput&) = delete;
    WaylandOutput& operator=(const WaylandOutput&) = delete;

    // Asks for the logical geometry, which without it is guessed from the mode.
    void describeWith(zxdg_output_manager_v1* manager);

    wl_output* handle() const { return output; }
    uint32_t globalName() const { return name; }
    // Known once the compositor has described the output.
    bool isReady() const { return ready && !geometry_.isEmpty(); }
    QRect geometry() const { return geometry_; }
    int scale() const { return scale_; }

    // Called after each complete change of the description.
    std::function<void()> changed;

private:
    static void outputGeometry(void* data, wl_output*, int32_t x, int32_t y, int32_t, int32_t,
                               int32_t, const char*, const char*, int32_t transform);
    static void outputMode(void* data, wl_output*, uint32_t flags, int32_t width, int32_t height,
                           int32_t);
    static void outputDone(void* data, wl_output*);
    static void outputScale(void* data, wl_output*, int32_t factor);
    static void logicalPosition(void* data, zxdg_output_v1*, int32_t x, int32_t y);
    static void logicalSize(void* data, zxdg_output_v1*, int32_t width, int32_t height);
    static void logicalDone(void* data, zxdg_output_v1*);

    void finishChange();

    wl_output* output;
    uint32_t name;
    zxdg_output_v1* logical = nullptr;
    QRect geometry_;
    QSize modeSize;
    int transform = 0;
    int scale_ = 1;
    bool ready = false;
};
