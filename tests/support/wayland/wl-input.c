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
// Exits 0 at the end of its input.
#include <linux/input-event-codes.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <wayland-client.h>

#include "wlr-virtual-pointer-unstable-v1-client-protocol.h"
#include "xdg-output-unstable-v1-client-protocol.h"

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

static void global(void* data, struct wl_registry* registry, uint32_t name, const char* interface,
                   uint32_t version) {
    (void)data;
    (void)version;
    if (strcmp(interface, wl_seat_interface.name) == 0 && !seat) {
        seat = wl_registry_bind(registry, name, &wl_seat_interface, 1);
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
    if (!seat || !pointer_manager || !output_manager) {
        fprintf(stderr, "wl-input: the compositor lacks wl_seat, "
                        "zwlr_virtual_pointer_manager_v1 or zxdg_output_manager_v1\n");
        return 1;
    }
    struct zwlr_virtual_pointer_v1* pointer =
        zwlr_virtual_pointer_manager_v1_create_virtual_pointer(pointer_manager, seat);
    if (wl_display_roundtrip(display) < 0)
        return 1;
    printf("ready\n");
    fflush(stdout);

    char line[256];
    while (fgets(line, sizeof line, stdin)) {
        line[strcspn(line, "\r\n")] = '\0';
        const char* error = NULL;
        int x, y;
        char end;
        if (sscanf(line, "move %d %d %c", &x, &y, &end) == 2)
            error = move(display, pointer, x, y);
        else if (strcmp(line, "down") == 0)
            button(pointer, WL_POINTER_BUTTON_STATE_PRESSED);
        else if (strcmp(line, "up") == 0)
            button(pointer, WL_POINTER_BUTTON_STATE_RELEASED);
        else if (strcmp(line, "click") == 0) {
            button(pointer, WL_POINTER_BUTTON_STATE_PRESSED);
            button(pointer, WL_POINTER_BUTTON_STATE_RELEASED);
        } else
            error = "unknown command";
        if (wl_display_roundtrip(display) < 0) {
            printf("error: the connection failed\n");
            return 1;
        }
        if (error)
            printf("error: %s\n", error);
        else
            printf("ok\n");
        fflush(stdout);
    }
    zwlr_virtual_pointer_v1_destroy(pointer);
    wl_display_roundtrip(display);
    wl_display_disconnect(display);
    return 0;
}
