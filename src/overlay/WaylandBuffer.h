#pragma once

#include <QImage>
#include <QRegion>
#include <functional>

struct wl_buffer;
struct wl_shm;

// One shared-memory picture of a whole surface that QPainter paints into and
// the compositor shows. The compositor reads it until it releases it; a
// surface keeps a few and paints into one that is free.
class WaylandBuffer {
public:
    // `pixels` in device pixels; the image paints in device-independent ones.
    WaylandBuffer(wl_shm* shm, QSize pixels, qreal scale);
    ~WaylandBuffer();
    WaylandBuffer(const WaylandBuffer&) = delete;
    WaylandBuffer& operator=(const WaylandBuffer&) = delete;

    bool isValid() const { return buffer != nullptr; }
    bool isBusy() const { return busy; }
    QSize pixelSize() const { return image_.size(); }
    QImage& image() { return image_; }
    // Hands the buffer to the compositor until it says it is done with it.
    wl_buffer* handOver();

    // What the other buffers were painted with since this one last was.
    QRegion stale;
    // The compositor has let go of it.
    std::function<void()> whenReleased;

private:
    static void released(void* data, wl_buffer* buffer);

    wl_buffer* buffer = nullptr;
    void* memory = nullptr;
    size_t bytes = 0;
    QImage image_;
    bool busy = false;
};
