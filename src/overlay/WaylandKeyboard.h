#pragma once

#include "KeyPress.h"

#include <QObject>
#include <QTimer>

struct wl_keyboard;
struct wl_surface;
struct xkb_compose_state;
struct xkb_context;
struct xkb_keymap;
struct xkb_state;

// The seat's keyboard as the overlay hears it: keys through the compositor's
// keymap (which may change at any time, as layouts are switched), Compose and
// dead keys, and the compositor's key repeat for held keys.
class WaylandKeyboard : public QObject {
    Q_OBJECT
public:
    explicit WaylandKeyboard(wl_keyboard* keyboard);
    ~WaylandKeyboard() override;

    // The surface that has the keyboard focus (none: nullptr).
    wl_surface* focus() const { return focus_; }

    // Qt's key for a keysym, as QKeyEvent::key() gives it.
    static int qtKey(unsigned keysym);

signals:
    void pressed(const KeyPress& press);
    void focusChanged();

private:
    static void keymap(void* data, wl_keyboard*, uint32_t format, int32_t fd, uint32_t size);
    static void enter(void* data, wl_keyboard*, uint32_t serial, wl_surface* surface,
                      struct wl_array* keys);
    static void leave(void* data, wl_keyboard*, uint32_t serial, wl_surface* surface);
    static void key(void* data, wl_keyboard*, uint32_t serial, uint32_t time, uint32_t key,
                    uint32_t state);
    static void modifiers(void* data, wl_keyboard*, uint32_t serial, uint32_t depressed,
                          uint32_t latched, uint32_t locked, uint32_t group);
    static void repeatInfo(void* data, wl_keyboard*, int32_t rate, int32_t delay);

    void keyDown(uint32_t keycode);
    void press(uint32_t keycode);
    Qt::KeyboardModifiers heldModifiers() const;
    void resetKeymap();

    wl_keyboard* keyboard;
    wl_surface* focus_ = nullptr;
    xkb_context* context = nullptr;
    xkb_keymap* keymap_ = nullptr;
    xkb_state* state = nullptr;
    xkb_compose_state* compose = nullptr;
    QTimer repeat;
    uint32_t repeatingKey = 0;
    int repeatIntervalMs = 40;
    int repeatDelayMs = 400;
};
