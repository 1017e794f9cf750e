// Drives the pointer of a wlroots compositor for the tests, through one virtual
// pointer that lives as long as this process: with XWayland running, sway 1.7
// crashes when virtual pointers come and go in quick succession. The seat has
// a pointer only while one exists, so start this before the client under test.
//
// Prints "ready", then reads one command a line and answers "ok" once the
// compositor has handled it, or "error: <why>":
//   move X Y    the pointer to X,Y in the compositor's layout coordinates
//   down, up    the left button pressed, released
//   click       both
//   window      opens one plain opaque window, which the compositor places
//   clicks      "ok N": the button presses that window received so far
//   keys        "ok N": the key presses that window received so far
// Exits 0 at the end of its input.
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
#include "xdg-output-unstable-v1-client-protocol.h"
#include "xdg-shell-client-protocol.h"

struct output {
    struct wl_output* wl;
    struct zxdg_output_v1* xdg;
    uint32_t name;
    int32_t x, y, width, height;
    struct output* next;
};

static struct wl_seat* seat;
static struct zwlr_virtual_pointer_manager_v1* pointer_manager;
static struct zxdg_output_manager_v1* output_manager;
static struct output* outputs;
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
    unsigned presses;
    unsigned keys;
} window;

static void logical_position(void* data, struct zxdg_output_v1* xdg, int32_t x, int32_t y) {
    (void)xdg;
    struct output* output = data;
    output->x = x;
    output->y = y;
}

static void logical_size(void* data, struct zxdg_output_v1* xdg, int32_t width, int32_t height) {
    (void)xdg;
    struct output* output = data;
    output->width = width;
    output->height = height;
}

static void ignore_done(void* data, struct zxdg_output_v1* xdg) {
    (void)data;
    (void)xdg;
}

static void ignore_text(void* data, struct zxdg_output_v1* xdg, const char* text) {
    (void)data;
    (void)xdg;
    (void)text;
}

static const struct zxdg_output_v1_listener xdg_output_listener = {
    logical_position, logical_size, ignore_done, ignore_text, ignore_text,
};

// The outputs and the manager are announced in any order.
static void watch_outputs(void) {
    if (!output_manager)
        return;
    for (struct output* output = outputs; output; output = output->next) {
        if (output->xdg)
            continue;
        output->xdg = zxdg_output_manager_v1_get_xdg_output(output_manager, output->wl);
        zxdg_output_v1_add_listener(output->xdg, &xdg_output_listener, output);
    }
}

// A dispatcher rather than a listener, which would need a handler for every
// event: presses are all that matter, and only this process's one surface can
// have the pointer.
static int pointer_event(const void* data, void* pointer, uint32_t opcode,
                         const struct wl_message* event, union wl_argument* args) {
    (void)data, (void)pointer, (void)opcode;
    if (strcmp(event->name, "button") == 0 && args[3].u == WL_POINTER_BUTTON_STATE_PRESSED)
        window.presses++;
    return 0;
}

// Asking the seat for a pointer it lacks is a protocol error, and it has one
// only once the compositor has handled our virtual pointer.
static int keyboard_event(const void* data, void* keyboard, uint32_t opcode,
                          const struct wl_message* event, union wl_argument* args) {
    (void)data, (void)keyboard, (void)opcode;
    if (strcmp(event->name, "keymap") == 0)
        close(args[1].h);
    else if (strcmp(event->name, "key") == 0 && args[3].u == WL_KEYBOARD_KEY_STATE_PRESSED)
        window.keys++;
    return 0;
}

static void watch_pointer(void) {
    if (window.surface && !window.pointer && (seat_capabilities & WL_SEAT_CAPABILITY_POINTER)) {
        window.pointer = wl_seat_get_pointer(seat);
        wl_proxy_add_dispatcher((struct wl_proxy*)window.pointer, pointer_event, NULL, NULL);
    }
    if (window.surface && !window.keyboard && (seat_capabilities & WL_SEAT_CAPABILITY_KEYBOARD)) {
        window.keyboard = wl_seat_get_keyboard(seat);
        wl_proxy_add_dispatcher((struct wl_proxy*)window.keyboard, keyboard_event, NULL, NULL);
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
    (void)data;
    (void)version;
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
    } else if (strcmp(interface, zxdg_output_manager_v1_interface.name) == 0) {
        output_manager = wl_registry_bind(registry, name, &zxdg_output_manager_v1_interface, 2);
    } else if (strcmp(interface, wl_output_interface.name) == 0) {
        struct output* output = calloc(1, sizeof *output);
        if (!output)
            abort();
        output->wl = wl_registry_bind(registry, name, &wl_output_interface, 1);
        output->name = name;
        output->next = outputs;
        outputs = output;
    }
    watch_outputs();
}

static void global_remove(void* data, struct wl_registry* registry, uint32_t name) {
    (void)data;
    (void)registry;
    for (struct output** link = &outputs; *link; link = &(*link)->next) {
        struct output* output = *link;
        if (output->name != name)
            continue;
        *link = output->next;
        if (output->xdg)
            zxdg_output_v1_destroy(output->xdg);
        wl_output_destroy(output->wl);
        free(output);
        return;
    }
}

static const struct wl_registry_listener registry_listener = {global, global_remove};

static uint32_t now_ms(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (uint32_t)(ts.tv_sec * 1000 + ts.tv_nsec / 1000000);
}

// Absolute motion is a fraction of the box around all outputs.
static const char* move(struct wl_display* display, struct zwlr_virtual_pointer_v1* pointer, int x,
                        int y) {
    // The first round trip brings outputs added since the last command, the
    // second their geometry, which is only asked for once they are known.
    if (wl_display_roundtrip(display) < 0 || wl_display_roundtrip(display) < 0)
        return "the connection failed";
    int left = INT32_MAX, top = INT32_MAX, right = INT32_MIN, bottom = INT32_MIN;
    for (struct output* o = outputs; o; o = o->next) {
        if (o->width <= 0 || o->height <= 0)
            continue;
        left = o->x < left ? o->x : left;
        top = o->y < top ? o->y : top;
        right = o->x + o->width > right ? o->x + o->width : right;
        bottom = o->y + o->height > bottom ? o->y + o->height : bottom;
    }
    if (left > right)
        return "no output";
    if (x < left || x >= right || y < top || y >= bottom)
        return "outside the outputs";
    zwlr_virtual_pointer_v1_motion_absolute(pointer, now_ms(), (uint32_t)(x - left),
                                            (uint32_t)(y - top), (uint32_t)(right - left),
                                            (uint32_t)(bottom - top));
    zwlr_virtual_pointer_v1_frame(pointer);
    return NULL;
}

static void button(struct zwlr_virtual_pointer_v1* pointer, enum wl_pointer_button_state state) {
    zwlr_virtual_pointer_v1_button(pointer, now_ms(), BTN_LEFT, state);
    zwlr_virtual_pointer_v1_frame(pointer);
}

static struct wl_buffer* solid_buffer(int32_t width, int32_t height) {
    size_t size = (size_t)width * (size_t)height * 4;
    int fd = memfd_create("wl-input", MFD_CLOEXEC);
    uint32_t* pixels = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, (off_t)size) == 0)
        pixels = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (pixels == MAP_FAILED)
        abort();
    for (size_t i = 0; i < size / 4; i++)
        pixels[i] = 0xff336699;
    munmap(pixels, size);
    struct wl_shm_pool* pool = wl_shm_create_pool(shm, fd, (int32_t)size);
    struct wl_buffer* buffer =
        wl_shm_pool_create_buffer(pool, 0, width, height, width * 4, WL_SHM_FORMAT_XRGB8888);
    wl_shm_pool_destroy(pool);
    close(fd);
    return buffer;
}

static void toplevel_configure(void* data, struct xdg_toplevel* toplevel, int32_t width,
                               int32_t height, struct wl_array* states) {
    (void)data, (void)toplevel, (void)states;
    window.next_width = width > 0 ? width : 640;
    window.next_height = height > 0 ? height : 480;
}

static void toplevel_close(void* data, struct xdg_toplevel* toplevel) {
    (void)data, (void)toplevel;
}

static const struct xdg_toplevel_listener toplevel_listener = {
    .configure = toplevel_configure,
    .close = toplevel_close,
};

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
    if (window.surface)
        return "there is already a window";
    if (!compositor || !shm || !wm_base)
        return "the compositor lacks wl_compositor, wl_shm or xdg_wm_base";
    window.surface = wl_compositor_create_surface(compositor);
    struct xdg_surface* xdg = xdg_wm_base_get_xdg_surface(wm_base, window.surface);
    xdg_surface_add_listener(xdg, &surface_listener, NULL);
    struct xdg_toplevel* toplevel = xdg_surface_get_toplevel(xdg);
    xdg_toplevel_add_listener(toplevel, &toplevel_listener, NULL);
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
    if (!display) {
        fprintf(stderr, "wl-input: cannot connect to the Wayland display\n");
        return 1;
    }
    struct wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &registry_listener, NULL);
    if (wl_display_roundtrip(display) < 0 || wl_display_roundtrip(display) < 0)
        return 1;
    if (!seat || !output_manager) {
        fprintf(stderr, "wl-input: the compositor lacks wl_seat or zxdg_output_manager_v1\n");
        return 1;
    }
    // Without virtual pointers (mutter) the window and its clicks still serve.
    struct zwlr_virtual_pointer_v1* pointer =
        pointer_manager
            ? zwlr_virtual_pointer_manager_v1_create_virtual_pointer(pointer_manager, seat)
            : NULL;
    if (wl_display_roundtrip(display) < 0)
        return 1;
    printf("ready\n");
    fflush(stdout);

    char line[256];
    while (fgets(line, sizeof line, stdin)) {
        line[strcspn(line, "\r\n")] = '\0';
        const char* error = NULL;
        bool report_clicks = false;
        int x, y;
        char end;
        bool report_keys = false;
        if (strcmp(line, "keys") == 0) {
            report_keys = true;
            if (!window.surface)
                error = "no window";
        } else if (!pointer && strcmp(line, "window") != 0 && strcmp(line, "clicks") != 0)
            error = "the compositor offers no virtual pointer";
        else if (sscanf(line, "move %d %d %c", &x, &y, &end) == 2)
            error = move(display, pointer, x, y);
        else if (strcmp(line, "down") == 0)
            button(pointer, WL_POINTER_BUTTON_STATE_PRESSED);
        else if (strcmp(line, "up") == 0)
            button(pointer, WL_POINTER_BUTTON_STATE_RELEASED);
        else if (strcmp(line, "click") == 0) {
            button(pointer, WL_POINTER_BUTTON_STATE_PRESSED);
            button(pointer, WL_POINTER_BUTTON_STATE_RELEASED);
        } else if (strcmp(line, "window") == 0)
            error = open_window(display);
        else if (strcmp(line, "clicks") == 0) {
            // The round trip below brings the presses already sent.
            report_clicks = true;
            if (!window.surface)
                error = "no window";
        } else
            error = "unknown command";
        if (wl_display_roundtrip(display) < 0) {
            printf("error: the connection failed\n");
            return 1;
        }
        if (error)
            printf("error: %s\n", error);
        else if (report_keys)
            printf("ok %u\n", window.keys);
        else if (report_clicks)
            printf("ok %u\n", window.presses);
        else
            printf("ok\n");
        fflush(stdout);
    }
    if (pointer)
        zwlr_virtual_pointer_v1_destroy(pointer);
    wl_display_roundtrip(display);
    wl_display_disconnect(display);
    return 0;
}
