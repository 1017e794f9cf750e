// wl-input: real pointer and key input on a wlroots compositor (headless sway has
// no input devices), through a virtual pointer and a virtual keyboard. Reads one
// command per line on stdin and prints "ok" once the compositor has processed it
// (after a roundtrip), or "error: ..." and goes on. Prints "ready" first, once both
// devices exist. Commands:
//   move X Y          pointer to X,Y in the output layout, in logical pixels
//   down | up | click left button
//   key [MOD+]...NAME a keysym by name (Escape, d, 1, bracketleft, F5); MOD is
//                     shift, ctrl, alt, super or altgr: `key ctrl+alt+d`
//   type TEXT         UTF-8 text, each character pressed and released in turn
// Option --extent WxH: the layout is WxH at 0,0, instead of the union of the
// outputs that xdg-output reports (kept up to date as outputs come and go).
//
// The keyboard uploads one keymap, once: xkb's "us" layout, variant "altgr-intl",
// which types ASCII and, with AltGr, the Latin-1 letters that layout holds (é á í
// ó ú ñ ü ç ä ö ß and their capitals, among others). A character on no key of it
// (è, à, ê: dead keys only) is an error.
#define _GNU_SOURCE
#include <linux/input-event-codes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include "virtual-keyboard-unstable-v1-client-protocol.h"
#include "wlr-virtual-pointer-unstable-v1-client-protocol.h"
#include "xdg-output-unstable-v1-client-protocol.h"

enum { max_outputs = 16 };
struct output {
    uint32_t name;
    struct wl_output* wl;
    struct zxdg_output_v1* xdg;
    int32_t x, y, w, h;
};

static struct wl_seat* seat;
static struct zwlr_virtual_pointer_manager_v1* pointer_manager;
static struct zwp_virtual_keyboard_manager_v1* keyboard_manager;
static struct zxdg_output_manager_v1* output_manager;
static struct output outputs[max_outputs];
static struct zwlr_virtual_pointer_v1* pointer;
static struct zwp_virtual_keyboard_v1* keyboard;
static struct xkb_keymap* keymap;
static struct wl_display* display;

static uint32_t now_ms(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (uint32_t)(t.tv_sec * 1000 + t.tv_nsec / 1000000);
}

static void xdg_position(void* data, struct zxdg_output_v1* xdg, int32_t x, int32_t y) {
    (void)xdg;
    struct output* o = data;
    o->x = x, o->y = y;
}
static void xdg_size(void* data, struct zxdg_output_v1* xdg, int32_t w, int32_t h) {
    (void)xdg;
    struct output* o = data;
    o->w = w, o->h = h;
}
static void xdg_ignore(void* data, struct zxdg_output_v1* xdg) {
    (void)data, (void)xdg;
}
static void xdg_ignore_text(void* data, struct zxdg_output_v1* xdg, const char* text) {
    (void)data, (void)xdg, (void)text;
}
static const struct zxdg_output_v1_listener xdg_listener = {xdg_position, xdg_size, xdg_ignore,
                                                            xdg_ignore_text, xdg_ignore_text};

static void watch_output(struct output* o) {
    if (output_manager && o->wl && !o->xdg) {
        o->xdg = zxdg_output_manager_v1_get_xdg_output(output_manager, o->wl);
        zxdg_output_v1_add_listener(o->xdg, &xdg_listener, o);
    }
}

static void global(void* data, struct wl_registry* registry, uint32_t name, const char* interface,
                   uint32_t version) {
    (void)data, (void)version;
    if (strcmp(interface, wl_seat_interface.name) == 0 && !seat)
        seat = wl_registry_bind(registry, name, &wl_seat_interface, 1);
    else if (strcmp(interface, zwlr_virtual_pointer_manager_v1_interface.name) == 0)
        pointer_manager =
            wl_registry_bind(registry, name, &zwlr_virtual_pointer_manager_v1_interface, 1);
    else if (strcmp(interface, zwp_virtual_keyboard_manager_v1_interface.name) == 0)
        keyboard_manager =
            wl_registry_bind(registry, name, &zwp_virtual_keyboard_manager_v1_interface, 1);
    else if (strcmp(interface, zxdg_output_manager_v1_interface.name) == 0)
        output_manager = wl_registry_bind(registry, name, &zxdg_output_manager_v1_interface, 2);
    else if (strcmp(interface, wl_output_interface.name) == 0)
        for (int i = 0; i < max_outputs; i++)
            if (!outputs[i].wl) {
                outputs[i] = (struct output){
                    .name = name, .wl = wl_registry_bind(registry, name, &wl_output_interface, 1)};
                watch_output(&outputs[i]);
                break;
            }
}
static void global_remove(void* data, struct wl_registry* registry, uint32_t name) {
    (void)data, (void)registry;
    for (int i = 0; i < max_outputs; i++)
        if (outputs[i].wl && outputs[i].name == name) {
            if (outputs[i].xdg)
                zxdg_output_v1_destroy(outputs[i].xdg);
            wl_output_destroy(outputs[i].wl);
            outputs[i] = (struct output){0};
        }
}
static const struct wl_registry_listener registry_listener = {global, global_remove};

// The key and modifiers that give `sym`, preferring the lowest shift level.
static int find_key(xkb_keysym_t sym, uint32_t* key, xkb_mod_mask_t* mods) {
    for (xkb_level_index_t level = 0; level < 8; level++)
        for (xkb_keycode_t k = xkb_keymap_min_keycode(keymap); k <= xkb_keymap_max_keycode(keymap);
             k++) {
            const xkb_keysym_t* syms;
            if (xkb_keymap_key_get_syms_by_level(keymap, k, 0, level, &syms) != 1 || syms[0] != sym)
                continue;
            if (level > 0 && xkb_keymap_key_get_mods_for_level(keymap, k, 0, level, mods, 1) != 1)
                continue;
            if (level == 0)
                *mods = 0;
            *key = k - 8; // evdev code
            return 1;
        }
    return 0;
}

static int press(xkb_keysym_t sym, xkb_mod_mask_t extra) {
    uint32_t key;
    xkb_mod_mask_t mods;
    if (!find_key(sym, &key, &mods))
        return 0;
    zwp_virtual_keyboard_v1_modifiers(keyboard, mods | extra, 0, 0, 0);
    zwp_virtual_keyboard_v1_key(keyboard, now_ms(), key, WL_KEYBOARD_KEY_STATE_PRESSED);
    zwp_virtual_keyboard_v1_key(keyboard, now_ms(), key, WL_KEYBOARD_KEY_STATE_RELEASED);
    zwp_virtual_keyboard_v1_modifiers(keyboard, 0, 0, 0, 0);
    return 1;
}

static void button(uint32_t state) {
    zwlr_virtual_pointer_v1_button(pointer, now_ms(), BTN_LEFT, state);
    zwlr_virtual_pointer_v1_frame(pointer);
}

static const char* move(const char* args, int fixed_w, int fixed_h) {
    int x, y;
    if (sscanf(args, "%d %d", &x, &y) != 2)
        return "move needs X Y";
    int32_t x0 = 0, y0 = 0, x1 = fixed_w, y1 = fixed_h;
    if (!fixed_w) {
        // Outputs added or moved since the last command: their globals, then their positions.
        wl_display_roundtrip(display);
        wl_display_roundtrip(display);
        x0 = y0 = INT32_MAX, x1 = y1 = INT32_MIN;
        for (int i = 0; i < max_outputs; i++)
            if (outputs[i].w > 0) {
                struct output* o = &outputs[i];
                x0 = o->x < x0 ? o->x : x0, y0 = o->y < y0 ? o->y : y0;
                x1 = o->x + o->w > x1 ? o->x + o->w : x1, y1 = o->y + o->h > y1 ? o->y + o->h : y1;
            }
        if (x1 <= x0)
            return "no output size known";
    }
    if (x < x0 || y < y0 || x >= x1 || y >= y1)
        return "position outside the layout";
    zwlr_virtual_pointer_v1_motion_absolute(pointer, now_ms(), x - x0, y - y0, x1 - x0, y1 - y0);
    zwlr_virtual_pointer_v1_frame(pointer);
    return NULL;
}

static const char* key(char* args) {
    static const struct {
        const char *word, *mod;
    } names[] = {{"shift", XKB_MOD_NAME_SHIFT},
                 {"ctrl", XKB_MOD_NAME_CTRL},
                 {"alt", XKB_MOD_NAME_ALT},
                 {"super", XKB_MOD_NAME_LOGO},
                 {"altgr", "Mod5"}};
    xkb_mod_mask_t extra = 0;
    char* plus;
    while ((plus = strchr(args, '+')) && plus[1]) {
        *plus = 0;
        size_t i = 0;
        while (i < sizeof names / sizeof *names && strcmp(args, names[i].word) != 0)
            i++;
        if (i == sizeof names / sizeof *names)
            return "unknown modifier";
        extra |= 1u << xkb_keymap_mod_get_index(keymap, names[i].mod);
        args = plus + 1;
    }
    xkb_keysym_t sym = xkb_keysym_from_name(args, XKB_KEYSYM_NO_FLAGS);
    if (sym == XKB_KEY_NoSymbol)
        sym = xkb_keysym_from_name(args, XKB_KEYSYM_CASE_INSENSITIVE);
    if (sym == XKB_KEY_NoSymbol)
        return "unknown keysym";
    return press(sym, extra) ? NULL : "keysym on no key of the keymap";
}

static const char* type(const unsigned char* s) {
    while (*s) {
        // Decodes one UTF-8 sequence; malformed input is refused.
        int n = *s < 0x80             ? 1
                : (*s & 0xe0) == 0xc0 ? 2
                : (*s & 0xf0) == 0xe0 ? 3
                : (*s & 0xf8) == 0xf0 ? 4
                                      : 0;
        if (!n)
            return "text is not UTF-8";
        uint32_t c = n == 1 ? *s : *s & (0x7f >> n);
        for (int i = 1; i < n; i++) {
            if ((s[i] & 0xc0) != 0x80)
                return "text is not UTF-8";
            c = c << 6 | (s[i] & 0x3f);
        }
        s += n;
        if (!press(xkb_utf32_to_keysym(c), 0))
            return "character on no key of the keymap";
    }
    return NULL;
}

static int upload_keymap(void) {
    struct xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    struct xkb_rule_names rules = {.layout = "us", .variant = "altgr-intl"};
    keymap =
        context ? xkb_keymap_new_from_names(context, &rules, XKB_KEYMAP_COMPILE_NO_FLAGS) : NULL;
    char* text = keymap ? xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1) : NULL;
    if (!text)
        return 0;
    size_t size = strlen(text) + 1;
    int fd = memfd_create("wl-input-keymap", MFD_CLOEXEC);
    int written = fd >= 0 && write(fd, text, size) == (ssize_t)size;
    if (written)
        zwp_virtual_keyboard_v1_keymap(keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd, size);
    if (fd >= 0)
        close(fd);
    free(text);
    xkb_context_unref(context);
    return written;
}

int main(int argc, char** argv) {
    int fixed_w = 0, fixed_h = 0;
    if (argc == 3 && strcmp(argv[1], "--extent") == 0) {
        if (sscanf(argv[2], "%dx%d", &fixed_w, &fixed_h) != 2 || fixed_w <= 0 || fixed_h <= 0)
            argc = 0;
    }
    if (argc != 1 && argc != 3) {
        fprintf(stderr, "usage: wl-input [--extent WxH] < commands\n");
        return 2;
    }
    display = wl_display_connect(NULL);
    if (!display) {
        fprintf(stderr, "wl-input: cannot connect to the Wayland display\n");
        return 1;
    }
    struct wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &registry_listener, NULL);
    wl_display_roundtrip(display);
    if (!seat || !pointer_manager || !keyboard_manager || (!output_manager && !fixed_w)) {
        fprintf(stderr, "wl-input: the compositor lacks a seat, virtual pointer, virtual keyboard "
                        "or xdg-output\n");
        return 1;
    }
    for (int i = 0; i < max_outputs; i++)
        watch_output(&outputs[i]);
    pointer = zwlr_virtual_pointer_manager_v1_create_virtual_pointer(pointer_manager, seat);
    keyboard = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(keyboard_manager, seat);
    if (!upload_keymap()) {
        fprintf(stderr, "wl-input: cannot make or send the keymap\n");
        return 1;
    }
    if (wl_display_roundtrip(display) < 0)
        return 1;
    printf("ready\n");
    fflush(stdout);

    char* line = NULL;
    size_t capacity = 0;
    ssize_t length;
    while ((length = getline(&line, &capacity, stdin)) >= 0) {
        if (length > 0 && line[length - 1] == '\n')
            line[--length] = 0;
        char* args = strchr(line, ' ');
        args = args ? (*args = 0, args + 1) : line + length;
        const char* error = NULL;
        if (strcmp(line, "move") == 0)
            error = move(args, fixed_w, fixed_h);
        else if (strcmp(line, "down") == 0)
            button(WL_POINTER_BUTTON_STATE_PRESSED);
        else if (strcmp(line, "up") == 0)
            button(WL_POINTER_BUTTON_STATE_RELEASED);
        else if (strcmp(line, "click") == 0)
            button(WL_POINTER_BUTTON_STATE_PRESSED), button(WL_POINTER_BUTTON_STATE_RELEASED);
        else if (strcmp(line, "key") == 0)
            error = key(args);
        else if (strcmp(line, "type") == 0)
            error = type((const unsigned char*)args);
        else
            error = "unknown command";
        if (wl_display_roundtrip(display) < 0) {
            fprintf(stderr, "wl-input: the compositor closed the connection\n");
            return 1;
        }
        if (error)
            printf("error: %s\n", error);
        else
            printf("ok\n");
        fflush(stdout);
    }
    free(line);
    zwlr_virtual_pointer_v1_destroy(pointer);
    zwp_virtual_keyboard_v1_destroy(keyboard);
    wl_display_roundtrip(display);
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
    return 0;
}
