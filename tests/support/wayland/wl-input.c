// The tests' window, which counts its presses, and pointer on a wlroots
// compositor: one virtual pointer for the whole test, as sway 1.7 with XWayland
// crashes when they come and go quickly, and the seat has a pointer only while
// one exists. Prints "ready" once the window shows, then answers
// each command line with "ok" once the compositor has handled it, or "error: <why>":
//   move X Y W H  the pointer to X,Y of the W x H box around all outputs
//   down, up      the left button pressed, released
//   clicks, keys  "ok N": the button or key presses that window received so far
#define _GNU_SOURCE // memfd_create
#include <linux/input-event-codes.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>
#include <wayland-client.h>

#include "wlr-virtual-pointer-unstable-v1-client-protocol.h"
#include "xdg-shell-client-protocol.h"

static struct wl_seat* seat;
static struct zwlr_virtual_pointer_manager_v1* pointer_manager;
static struct wl_compositor* compositor;
static struct wl_shm* shm;
static struct xdg_wm_base* wm_base;
static uint32_t seat_capabilities;

static struct {
    struct wl_surface* surface;
    struct wl_buffer* buffer;
    struct wl_pointer* pointer;
    struct wl_keyboard* keyboard;
    int32_t width, height, next_width, next_height;
    bool configured;
    unsigned presses, keys;
} window;

// A dispatcher rather than listeners, which would need a handler for every
// event. Presses are all that matter, buttons and keys alike (pressed is 1),
// and only this process's one surface can have the pointer and the keyboard.
static int count_presses(const void* counter, void* proxy, uint32_t opcode,
                         const struct wl_message* event, union wl_argument* args) {
    (void)proxy, (void)opcode;
    if (strcmp(event->name, "keymap") == 0)
        close(args[1].h);
    else if (strcmp(event->name, "button") == 0 || strcmp(event->name, "key") == 0)
        *(unsigned*)counter += args[3].u == 1;
    return 0;
}

// Asking the seat for a pointer it lacks is a protocol error, and it has one
// only once the compositor has handled our virtual pointer.
static void watch_pointer(void) {
    if (window.surface && !window.pointer && (seat_capabilities & WL_SEAT_CAPABILITY_POINTER)) {
        window.pointer = wl_seat_get_pointer(seat);
        wl_proxy_add_dispatcher((struct wl_proxy*)window.pointer, count_presses, &window.presses,
                                NULL);
    }
    if (window.surface && !window.keyboard && (seat_capabilities & WL_SEAT_CAPABILITY_KEYBOARD)) {
        window.keyboard = wl_seat_get_keyboard(seat);
        wl_proxy_add_dispatcher((struct wl_proxy*)window.keyboard, count_presses, &window.keys,
                                NULL);
    }
}

static void seat_caps(void* data, struct wl_seat* wl_seat, uint32_t capabilities) {
    (void)data, (void)wl_seat;
    seat_capabilities = capabilities;
    watch_pointer();
}

static const struct wl_seat_listener seat_listener = {.capabilities = seat_caps};

static void ping(void* data, struct xdg_wm_base* base, uint32_t serial) {
    (void)data;
    xdg_wm_base_pong(base, serial);
}

static const struct xdg_wm_base_listener wm_base_listener = {ping};

static void global(void* data, struct wl_registry* registry, uint32_t name, const char* interface,
                   uint32_t version) {
    (void)data, (void)version;
    if (strcmp(interface, wl_seat_interface.name) == 0 && !seat) {
        seat = wl_registry_bind(registry, name, &wl_seat_interface, 1);
        wl_seat_add_listener(seat, &seat_listener, NULL);
    } else if (strcmp(interface, wl_compositor_interface.name) == 0) {
        compositor = wl_registry_bind(registry, name, &wl_compositor_interface, 1);
    } else if (strcmp(interface, wl_shm_interface.name) == 0) {
        shm = wl_registry_bind(registry, name, &wl_shm_interface, 1);
    } else if (strcmp(interface, xdg_wm_base_interface.name) == 0) {
        wm_base = wl_registry_bind(registry, name, &xdg_wm_base_interface, 1);
        xdg_wm_base_add_listener(wm_base, &wm_base_listener, NULL);
    } else if (strcmp(interface, zwlr_virtual_pointer_manager_v1_interface.name) == 0) {
        pointer_manager =
            wl_registry_bind(registry, name, &zwlr_virtual_pointer_manager_v1_interface, 1);
    }
}

static void global_remove(void* data, struct wl_registry* registry, uint32_t name) {
    (void)data, (void)registry, (void)name;
}

static const struct wl_registry_listener registry_listener = {global, global_remove};

static uint32_t now_ms(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (uint32_t)(ts.tv_sec * 1000 + ts.tv_nsec / 1000000);
}

static struct wl_buffer* solid_buffer(int32_t width, int32_t height) {
    size_t size = (size_t)width * (size_t)height * 4;
    int fd = memfd_create("wl-input", MFD_CLOEXEC);
    uint32_t* pixels = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, (off_t)size) == 0)
        pixels = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (pixels == MAP_FAILED)
        abort();
    memset(pixels, 0x66, size); // grey
    munmap(pixels, size);
    struct wl_shm_pool* pool = wl_shm_create_pool(shm, fd, (int32_t)size);
    struct wl_buffer* buffer =
        wl_shm_pool_create_buffer(pool, 0, width, height, width * 4, WL_SHM_FORMAT_XRGB8888);
    wl_shm_pool_destroy(pool);
    close(fd);
    return buffer;
}

static int toplevel_event(const void* data, void* toplevel, uint32_t opcode,
                          const struct wl_message* event, union wl_argument* args) {
    (void)data, (void)toplevel, (void)opcode;
    if (strcmp(event->name, "configure") == 0) {
        window.next_width = args[0].i > 0 ? args[0].i : 640;
        window.next_height = args[1].i > 0 ? args[1].i : 480;
    }
    return 0;
}

static void surface_configure(void* data, struct xdg_surface* xdg, uint32_t serial) {
    (void)data;
    xdg_surface_ack_configure(xdg, serial);
    if (!window.buffer || window.width != window.next_width ||
        window.height != window.next_height) {
        // Allowed while the compositor still shows it: its memory never changes.
        if (window.buffer)
            wl_buffer_destroy(window.buffer);
        window.width = window.next_width;
        window.height = window.next_height;
        window.buffer = solid_buffer(window.width, window.height);
        wl_surface_attach(window.surface, window.buffer, 0, 0);
        wl_surface_damage(window.surface, 0, 0, window.width, window.height);
    }
    wl_surface_commit(window.surface);
    window.configured = true;
}

static const struct xdg_surface_listener surface_listener = {surface_configure};

// Sway tiles the window only once it shows, with a second configure, and
// places it when the client has answered that one: answer until the
// compositor asks nothing more, so that clicks find the window where it stays.
static const char* open_window(struct wl_display* display) {
    window.surface = wl_compositor_create_surface(compositor);
    struct xdg_surface* xdg = xdg_wm_base_get_xdg_surface(wm_base, window.surface);
    xdg_surface_add_listener(xdg, &surface_listener, NULL);
    struct xdg_toplevel* toplevel = xdg_surface_get_toplevel(xdg);
    wl_proxy_add_dispatcher((struct wl_proxy*)toplevel, toplevel_event, NULL, NULL);
    xdg_toplevel_set_title(toplevel, "wl-input");
    // Floating desktops (mutter) otherwise give it a corner of the screen.
    xdg_toplevel_set_maximized(toplevel);
    wl_surface_commit(window.surface);
    watch_pointer();
    do {
        window.configured = false;
        if (wl_display_roundtrip(display) < 0)
            return "the connection failed";
    } while (window.configured || !window.buffer);
    return NULL;
}

int main(void) {
    struct wl_display* display = wl_display_connect(NULL);
    if (!display)
        return 1;
    struct wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &registry_listener, NULL);
    if (wl_display_roundtrip(display) < 0 || !seat)
        return 1;
    // Without virtual pointers (mutter) the window and its clicks still serve.
    struct zwlr_virtual_pointer_v1* pointer =
        pointer_manager
            ? zwlr_virtual_pointer_manager_v1_create_virtual_pointer(pointer_manager, seat)
            : NULL;
    if (wl_display_roundtrip(display) < 0 || open_window(display))
        return 1;
    setvbuf(stdout, NULL, _IOLBF, 0);
    printf("ready\n");

    char line[256];
    while (fgets(line, sizeof line, stdin)) {
        line[strcspn(line, "\r\n")] = '\0';
        const char* error = NULL;
        const unsigned* count = NULL; // reported with "ok"
        unsigned x, y, width, height;
        if (strcmp(line, "keys") == 0 || strcmp(line, "clicks") == 0)
            // The round trip below brings the presses already sent.
            count = line[0] == 'k' ? &window.keys : &window.presses;
        else if (!pointer)
            error = "the compositor offers no virtual pointer";
        else if (sscanf(line, "move %u %u %u %u", &x, &y, &width, &height) == 4) {
            zwlr_virtual_pointer_v1_motion_absolute(pointer, now_ms(), x, y, width, height);
            zwlr_virtual_pointer_v1_frame(pointer);
        } else if (strcmp(line, "down") == 0 || strcmp(line, "up") == 0) {
            zwlr_virtual_pointer_v1_button(pointer, now_ms(), BTN_LEFT,
                                           line[0] == 'd' ? WL_POINTER_BUTTON_STATE_PRESSED
                                                          : WL_POINTER_BUTTON_STATE_RELEASED);
            zwlr_virtual_pointer_v1_frame(pointer);
        } else
            error = "unknown command";
        if (wl_display_roundtrip(display) < 0)
            return 1;
        if (error)
            printf("error: %s\n", error);
        else if (count)
            printf("ok %u\n", *count);
        else
            printf("ok\n");
    }
    wl_display_disconnect(display);
    return 0;
}
