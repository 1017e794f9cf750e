#include "WaylandBuffer.h"

#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

namespace {

// Memory only this process and the compositor see, gone with its last user.
int anonymousFile(size_t size) {
    const int fd = memfd_create("quillery-overlay", MFD_CLOEXEC);
    if (fd < 0)
        return -1;
    if (ftruncate(fd, off_t(size)) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

} // namespace

WaylandBuffer::WaylandBuffer(wl_shm* shm, QSize pixels, qreal scale) {
    const int stride = pixels.width() * 4;
    bytes = size_t(stride) * size_t(pixels.height());
    const int fd = bytes > 0 ? anonymousFile(bytes) : -1;
    if (fd < 0)
        return;
    memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) {
        memory = nullptr;
        close(fd);
        return;
    }
    wl_shm_pool* pool = wl_shm_create_pool(shm, fd, int(bytes));
    // ARGB8888 in the compositor's words is Qt's premultiplied ARGB32 on a
    // little-endian machine, and both premultiply.
    buffer = wl_shm_pool_create_buffer(pool, 0, pixels.width(), pixels.height(), stride,
                                       WL_SHM_FORMAT_ARGB8888);
    wl_shm_pool_destroy(pool);
    close(fd);
    static const wl_buffer_listener listener = {&WaylandBuffer::released};
    wl_buffer_add_listener(buffer, &listener, this);
    image_ = QImage(static_cast<uchar*>(memory), pixels.width(), pixels.height(), stride,
                    QImage::Format_ARGB32_Premultiplied);
    image_.setDevicePixelRatio(scale);
    image_.fill(Qt::transparent);
}

WaylandBuffer::~WaylandBuffer() {
    image_ = QImage();
    if (buffer)
        wl_buffer_destroy(buffer);
    if (memory)
        munmap(memory, bytes);
}

wl_buffer* WaylandBuffer::handOver() {
    busy = true;
    return buffer;
}

void WaylandBuffer::released(void* data, wl_buffer*) {
    auto* self = static_cast<WaylandBuffer*>(data);
    self->busy = false;
    if (self->whenReleased)
        self->whenReleased();
}
