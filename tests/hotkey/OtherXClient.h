#pragma once

#include <QtGlobal>
#include <cstdlib>
#include <cstring>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

// A second client of the test's X server, standing in for the other programs
// on a desktop: it can hold key combinations, read the keyboard's modifier and
// lock state, and send a marker event that arrives at the application after
// everything the server did before it.
class OtherXClient {
public:
    OtherXClient() : connection(xcb_connect(nullptr, nullptr)) {
        if (xcb_connection_has_error(connection))
            return;
        root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        markerType = internAtom("QUILLERY_TEST_MARKER");
    }
    ~OtherXClient() { xcb_disconnect(connection); }
    OtherXClient(const OtherXClient&) = delete;
    OtherXClient& operator=(const OtherXClient&) = delete;

    bool isConnected() const { return xcb_connection_has_error(connection) == 0; }
    xcb_atom_t markerAtom() const { return markerType; }

    // The first key that types keysym unshifted, in the keymap as it is now.
    xcb_keycode_t keycodeOf(xcb_keysym_t keysym) const {
        xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(connection);
        xcb_keycode_t found = 0;
        const xcb_setup_t* setup = xcb_get_setup(connection);
        for (int keycode = setup->min_keycode; keycode <= setup->max_keycode && !found; ++keycode)
            if (xcb_key_symbols_get_keysym(symbols, static_cast<xcb_keycode_t>(keycode), 0) ==
                keysym)
                found = static_cast<xcb_keycode_t>(keycode);
        xcb_key_symbols_free(symbols);
        return found;
    }

    // False when another client (the application) already holds it.
    bool grabKey(xcb_keysym_t keysym, uint16_t modifiers) {
        const xcb_keycode_t keycode = keycodeOf(keysym);
        if (keycode == 0)
            return false;
        xcb_generic_error_t* error = xcb_request_check(
            connection, xcb_grab_key_checked(connection, 0, root, modifiers, keycode,
                                             XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        std::free(error);
        return error == nullptr;
    }

    void ungrabAll() {
        xcb_ungrab_key(connection, XCB_GRAB_ANY, root, XCB_MOD_MASK_ANY);
        sync();
    }

    // The eight core modifier bits as the server sees them, locks included.
    uint16_t modifierState() const {
        xcb_query_pointer_reply_t* reply =
            xcb_query_pointer_reply(connection, xcb_query_pointer(connection, root), nullptr);
        const uint16_t mask = reply ? (reply->mask & 0xff) : 0;
        std::free(reply);
        return mask;
    }

    void sendMarker(xcb_window_t window, quint32 serial) {
        xcb_client_message_event_t event;
        std::memset(&event, 0, sizeof event);
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = window;
        event.type = markerType;
        event.data.data32[0] = serial;
        xcb_send_event(connection, 0, window, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char*>(&event));
        xcb_flush(connection);
    }

    void sync() const {
        std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    }

private:
    xcb_atom_t internAtom(const char* name) {
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, 0, std::strlen(name), name), nullptr);
        const xcb_atom_t atom = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        std::free(reply);
        return atom;
    }

    xcb_connection_t* connection;
    xcb_window_t root = 0;
    xcb_atom_t markerType = XCB_ATOM_NONE;
};
