#pragma once

#include <QtGlobal>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

// Another X client holding a key combination, as a different program would.
class ForeignKeyGrab {
public:
    ForeignKeyGrab(quint32 keysym, quint16 modifiers) : connection(xcb_connect(nullptr, nullptr)) {
        const xcb_setup_t* setup = xcb_get_setup(connection);
        root = xcb_setup_roots_iterator(setup).data->root;
        xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(connection);
        xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, keysym);
        keycode = codes ? codes[0] : 0;
        free(codes);
        xcb_key_symbols_free(symbols);
        this->modifiers = modifiers;
        xcb_generic_error_t* error = xcb_request_check(
            connection, xcb_grab_key_checked(connection, 1, root, modifiers, keycode,
                                             XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        held = keycode != 0 && !error;
        free(error);
    }
    ~ForeignKeyGrab() {
        xcb_ungrab_key(connection, keycode, root, modifiers);
        xcb_disconnect(connection);
    }
    ForeignKeyGrab(const ForeignKeyGrab&) = delete;
    ForeignKeyGrab& operator=(const ForeignKeyGrab&) = delete;

    bool isHeld() const { return held; }

private:
    xcb_connection_t* connection;
    xcb_window_t root = 0;
    xcb_keycode_t keycode = 0;
    quint16 modifiers = 0;
    bool held = false;
};
