#include "X11WindowSystem.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

// A direct user action (the shortcut, Escape): pagers use this source so
// window managers don't apply focus-stealing prevention to it.
constexpr uint32_t sourceIsUserAction = 2;

} // namespace

X11WindowSystem::X11WindowSystem(xcb_connection_t* connection)
    // Qt drives a single X screen (the default one of the display), the first root.
    : connection(connection), root(xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root),
      netActiveWindow(atom("_NET_ACTIVE_WINDOW")), netSupported(atom("_NET_SUPPORTED")),
      wmState(atom("WM_STATE")) {}

xcb_atom_t X11WindowSystem::atom(const char* name) const {
    const auto cookie =
        xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name);
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection, cookie, nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

WindowSystem::WindowId X11WindowSystem::activeWindow() {
    const auto cookie =
        xcb_get_property(connection, 0, root, netActiveWindow, XCB_ATOM_WINDOW, 0, 1);
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection, cookie, nullptr));
    if (!reply || reply->type != XCB_ATOM_WINDOW || reply->format != 32 ||
        xcb_get_property_value_length(reply.get()) < 4)
        return 0;
    return *static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
}

WindowSystem::WindowId X11WindowSystem::focusedWindow() {
    Reply<xcb_get_input_focus_reply_t> reply(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    if (!reply || reply->focus == XCB_NONE || reply->focus == XCB_INPUT_FOCUS_POINTER_ROOT)
        return 0;
    return reply->focus;
}

bool X11WindowSystem::windowManagerSupports(xcb_atom_t feature) const {
    const auto cookie = xcb_get_property(connection, 0, root, netSupported, XCB_ATOM_ATOM, 0, 4096);
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection, cookie, nullptr));
    if (!reply || reply->type != XCB_ATOM_ATOM || reply->format != 32)
        return false;
    const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(reply.get()));
    const int count = xcb_get_property_value_length(reply.get()) / 4;
    for (int i = 0; i < count; ++i) {
        if (atoms[i] == feature)
            return true;
    }
    return false;
}

bool X11WindowSystem::exists(xcb_window_t window, bool* viewable) const {
    Reply<xcb_get_window_attributes_reply_t> reply(xcb_get_window_attributes_reply(
        connection, xcb_get_window_attributes(connection, window), nullptr));
    if (viewable)
        *viewable = reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
    return reply != nullptr;
}

bool X11WindowSystem::activate(WindowId id) {
    const auto window = static_cast<xcb_window_t>(id);
    bool viewable = false;
    if (window == XCB_NONE || !exists(window, &viewable))
        return false;
    if (windowManagerSupports(netActiveWindow)) {
        xcb_client_message_event_t event{};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = window;
        event.type = netActiveWindow;
        event.data.data32[0] = sourceIsUserAction;
        event.data.data32[1] = XCB_CURRENT_TIME;
        event.data.data32[2] = XCB_NONE;
        xcb_send_event(connection, 0, root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&event));
    } else if (viewable) {
        // No EWMH window manager to ask: focus the window ourselves.
        xcb_set_input_focus(connection, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
    } else {
        releaseFocus();
    }
    xcb_flush(connection);
    return true;
}

void X11WindowSystem::giveFocus(WindowId id) {
    // Checked, so that a window unmapped in the meantime costs a dropped
    // request rather than an X error in the log.
    const auto cookie = xcb_set_input_focus_checked(
        connection, XCB_INPUT_FOCUS_PARENT, static_cast<xcb_window_t>(id), XCB_CURRENT_TIME);
    std::free(xcb_request_check(connection, cookie));
}

bool X11WindowSystem::isApplicationWindow(WindowId id) {
    if (id == 0 || id == root)
        return false;
    // Window managers put WM_STATE on exactly the client windows they manage.
    const auto cookie =
        xcb_get_property(connection, 0, static_cast<xcb_window_t>(id), wmState, XCB_ATOM_ANY, 0, 0);
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection, cookie, nullptr));
    return reply && reply->type != XCB_ATOM_NONE;
}

void X11WindowSystem::releaseFocus() {
    xcb_set_input_focus(connection, XCB_INPUT_FOCUS_POINTER_ROOT, XCB_INPUT_FOCUS_POINTER_ROOT,
                        XCB_CURRENT_TIME);
    xcb_flush(connection);
}
