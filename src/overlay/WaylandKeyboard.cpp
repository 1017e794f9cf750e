#include "WaylandKeyboard.h"

#include <QChar>
#include <clocale>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

namespace {

// The locale whose Compose table applies, as the C library looks it up.
const char* composeLocale() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(name);
        if (value && *value)
            return value;
    }
    return "C";
}

QString utf8Of(xkb_state* state, xkb_keycode_t keycode) {
    char text[64];
    xkb_state_key_get_utf8(state, keycode, text, sizeof text);
    return QString::fromUtf8(text);
}

} // namespace

WaylandKeyboard::WaylandKeyboard(wl_keyboard* keyboard)
    : keyboard(keyboard), context(xkb_context_new(XKB_CONTEXT_NO_FLAGS)) {
    static const wl_keyboard_listener listener = {
        &WaylandKeyboard::keymap, &WaylandKeyboard::enter,     &WaylandKeyboard::leave,
        &WaylandKeyboard::key,    &WaylandKeyboard::modifiers, &WaylandKeyboard::repeatInfo,
    };
    wl_keyboard_add_listener(keyboard, &listener, this);
    if (xkb_compose_table* table = xkb_compose_table_new_from_locale(
            context, composeLocale(), XKB_COMPOSE_COMPILE_NO_FLAGS)) {
        compose = xkb_compose_state_new(table, XKB_COMPOSE_STATE_NO_FLAGS);
        xkb_compose_table_unref(table);
    }
    connect(&repeat, &QTimer::timeout, this, [this] {
        repeat.setInterval(repeatIntervalMs);
        press(repeatingKey);
    });
}

WaylandKeyboard::~WaylandKeyboard() {
    resetKeymap();
    xkb_compose_state_unref(compose);
    xkb_context_unref(context);
    wl_keyboard_destroy(keyboard);
}

void WaylandKeyboard::resetKeymap() {
    xkb_state_unref(state);
    xkb_keymap_unref(keymap_);
    state = nullptr;
    keymap_ = nullptr;
}

void WaylandKeyboard::keymap(void* data, wl_keyboard*, uint32_t format, int32_t fd, uint32_t size) {
    auto* self = static_cast<WaylandKeyboard*>(data);
    if (format != WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1) {
        close(fd);
        return;
    }
    void* text = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    close(fd);
    if (text == MAP_FAILED)
        return;
    xkb_keymap* keymap =
        xkb_keymap_new_from_buffer(self->context, static_cast<const char*>(text), size - 1,
                                   XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS);
    munmap(text, size);
    if (!keymap)
        return;
    self->resetKeymap();
    self->keymap_ = keymap;
    self->state = xkb_state_new(keymap);
}

void WaylandKeyboard::enter(void* data, wl_keyboard*, uint32_t, wl_surface* surface, wl_array*) {
    auto* self = static_cast<WaylandKeyboard*>(data);
    self->focus_ = surface;
    emit self->focusChanged();
}

void WaylandKeyboard::leave(void* data, wl_keyboard*, uint32_t, wl_surface*) {
    auto* self = static_cast<WaylandKeyboard*>(data);
    self->focus_ = nullptr;
    self->repeat.stop();
    emit self->focusChanged();
}

void WaylandKeyboard::key(void* data, wl_keyboard*, uint32_t, uint32_t, uint32_t key,
                          uint32_t state) {
    auto* self = static_cast<WaylandKeyboard*>(data);
    // Evdev codes are the keymap's codes less 8.
    const uint32_t keycode = key + 8;
    if (state == WL_KEYBOARD_KEY_STATE_PRESSED)
        self->keyDown(keycode);
    else if (keycode == self->repeatingKey)
        self->repeat.stop();
}

void WaylandKeyboard::modifiers(void* data, wl_keyboard*, uint32_t, uint32_t depressed,
                                uint32_t latched, uint32_t locked, uint32_t group) {
    auto* self = static_cast<WaylandKeyboard*>(data);
    if (self->state)
        xkb_state_update_mask(self->state, depressed, latched, locked, 0, 0, group);
}

void WaylandKeyboard::repeatInfo(void* data, wl_keyboard*, int32_t rate, int32_t delay) {
    auto* self = static_cast<WaylandKeyboard*>(data);
    // A rate of 0 turns repeat off.
    self->repeatIntervalMs = rate > 0 ? qMax(1, 1000 / rate) : 0;
    self->repeatDelayMs = qMax(0, delay);
}

void WaylandKeyboard::keyDown(uint32_t keycode) {
    repeat.stop();
    press(keycode);
    if (keymap_ && repeatIntervalMs > 0 && xkb_keymap_key_repeats(keymap_, keycode)) {
        repeatingKey = keycode;
        repeat.start(repeatDelayMs);
    }
}

void WaylandKeyboard::press(uint32_t keycode) {
    if (!state)
        return;
    xkb_keysym_t keysym = xkb_state_key_get_one_sym(state, keycode);
    QString text = utf8Of(state, keycode);
    if (compose && xkb_compose_state_feed(compose, keysym) == XKB_COMPOSE_FEED_ACCEPTED) {
        switch (xkb_compose_state_get_status(compose)) {
        case XKB_COMPOSE_COMPOSING:
            return;
        case XKB_COMPOSE_CANCELLED:
            xkb_compose_state_reset(compose);
            return;
        case XKB_COMPOSE_COMPOSED: {
            char composed[64];
            xkb_compose_state_get_utf8(compose, composed, sizeof composed);
            text = QString::fromUtf8(composed);
            keysym = xkb_compose_state_get_one_sym(compose);
            xkb_compose_state_reset(compose);
            break;
        }
        case XKB_COMPOSE_NOTHING:
            break;
        }
    }
    emit pressed({qtKey(keysym), text, heldModifiers()});
}

Qt::KeyboardModifiers WaylandKeyboard::heldModifiers() const {
    static const std::pair<const char*, Qt::KeyboardModifier> names[] = {
        {XKB_MOD_NAME_SHIFT, Qt::ShiftModifier},
        {XKB_MOD_NAME_CTRL, Qt::ControlModifier},
        {XKB_MOD_NAME_ALT, Qt::AltModifier},
        {XKB_MOD_NAME_LOGO, Qt::MetaModifier},
    };
    Qt::KeyboardModifiers held;
    for (const auto& [name, modifier] : names)
        if (xkb_state_mod_name_is_active(state, name, XKB_STATE_MODS_EFFECTIVE) > 0)
            held |= modifier;
    return held;
}

int WaylandKeyboard::qtKey(unsigned keysym) {
    static const std::pair<xkb_keysym_t, Qt::Key> special[] = {
        {XKB_KEY_Escape, Qt::Key_Escape},     {XKB_KEY_Return, Qt::Key_Return},
        {XKB_KEY_KP_Enter, Qt::Key_Enter},    {XKB_KEY_BackSpace, Qt::Key_Backspace},
        {XKB_KEY_Tab, Qt::Key_Tab},           {XKB_KEY_ISO_Left_Tab, Qt::Key_Backtab},
        {XKB_KEY_Delete, Qt::Key_Delete},     {XKB_KEY_Left, Qt::Key_Left},
        {XKB_KEY_Right, Qt::Key_Right},       {XKB_KEY_Up, Qt::Key_Up},
        {XKB_KEY_Down, Qt::Key_Down},         {XKB_KEY_Home, Qt::Key_Home},
        {XKB_KEY_End, Qt::Key_End},           {XKB_KEY_Shift_L, Qt::Key_Shift},
        {XKB_KEY_Shift_R, Qt::Key_Shift},     {XKB_KEY_Control_L, Qt::Key_Control},
        {XKB_KEY_Control_R, Qt::Key_Control}, {XKB_KEY_Alt_L, Qt::Key_Alt},
        {XKB_KEY_Alt_R, Qt::Key_Alt},         {XKB_KEY_Super_L, Qt::Key_Meta},
        {XKB_KEY_Super_R, Qt::Key_Meta},      {XKB_KEY_KP_0, Qt::Key_0},
    };
    for (const auto& [sym, key] : special)
        if (sym == keysym)
            return key;
    // Keypad digits are the digits.
    if (keysym > XKB_KEY_KP_0 && keysym <= XKB_KEY_KP_9)
        return Qt::Key_0 + int(keysym - XKB_KEY_KP_0);
    // Printable keys are their character, letters in upper case, as Qt has them.
    const uint32_t character = xkb_keysym_to_utf32(keysym);
    if (character < 0x20 || character == 0x7f)
        return 0;
    return int(QChar::toUpper(character));
}
