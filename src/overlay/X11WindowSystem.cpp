#include "X11WindowSystem.h"

#include <QCoreApplication>
#include <QTimer>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>
#include <xcb/shape.h>
#include <xcb/xfixes.h>
#include <xcb/xinput.h>

namespace {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

// A direct user action (the shortcut, Escape): pagers use this source so
// window managers don't apply focus-stealing prevention to it.
constexpr uint32_t sourceIsUserAction = 2;

// Qt drives a single X screen: the default one of the display it opened.
int defaultScreenNumber() {
    int screen = 0;
    char* host = nullptr;
    int display = 0;
    if (xcb_parse_display(nullptr, &host, &display, &screen) == 0)
        screen = 0;
    std::free(host);
    return screen;
}

xcb_window_t rootOfScreen(xcb_connection_t* connection, int number) {
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    const xcb_window_t first = screens.data->root;
    for (int i = 0; screens.rem > 0; xcb_screen_next(&screens), ++i) {
        if (i == number)
            return screens.data->root;
    }
    return first;
}

} // namespace

X11WindowSystem::X11WindowSystem(xcb_connection_t* connection)
    : connection(connection), screenNumber(defaultScreenNumber()),
      root(rootOfScreen(connection, screenNumber)), netActiveWindow(atom("_NET_ACTIVE_WINDOW")),
      netSupported(atom("_NET_SUPPORTED")), wmState(atom("WM_STATE")),
      compositorSelection(atom(("_NET_WM_CM_S" + std::to_string(screenNumber)).c_str())),
      traySelection(atom(("_NET_SYSTEM_TRAY_S" + std::to_string(screenNumber)).c_str())) {}

X11WindowSystem::~X11WindowSystem() = default;

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

bool X11WindowSystem::hasExtension(xcb_extension_t* extension) const {
    const xcb_query_extension_reply_t* data = xcb_get_extension_data(connection, extension);
    return data && data->present;
}

bool X11WindowSystem::isCompositing() {
    Reply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection, xcb_get_selection_owner(connection, compositorSelection), nullptr));
    // A server that doesn't answer can't be composited for us either.
    return reply && reply->owner != XCB_NONE;
}

void X11WindowSystem::watchCompositing(std::function<void()> changed) {
    compositingChanged = std::move(changed);
    watchSelection(compositorSelection);
}

// An XEmbed tray owns _NET_SYSTEM_TRAY_S<screen>.
void X11WindowSystem::watchSystemTray(std::function<void()> changed) {
    trayChanged = std::move(changed);
    watchSelection(traySelection);
}

void X11WindowSystem::watchSelection(xcb_atom_t selection) {
    if (!QCoreApplication::instance() || !hasExtension(&xcb_xfixes_id))
        return;
    if (!filterInstalled) {
        QCoreApplication::instance()->installNativeEventFilter(this);
        filterInstalled = true;
        // Every client states the XFixes version it speaks before its first request.
        std::free(xcb_xfixes_query_version_reply(
            connection, xcb_xfixes_query_version(connection, XCB_XFIXES_MAJOR_VERSION, 0),
            nullptr));
        xfixesFirstEvent = xcb_get_extension_data(connection, &xcb_xfixes_id)->first_event;
    }
    xcb_xfixes_select_selection_input(connection, root, selection,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    xcb_flush(connection);
}

bool X11WindowSystem::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
    if (xfixesFirstEvent == 0 || eventType != "xcb_generic_event_t")
        return false;
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    if ((event->response_type & 0x7f) != xfixesFirstEvent + XCB_XFIXES_SELECTION_NOTIFY)
        return false;
    const auto* notify = reinterpret_cast<const xcb_xfixes_selection_notify_event_t*>(event);
    // Not from inside Qt's event dispatch: the observers repaint and reshape windows.
    if (notify->selection == compositorSelection && compositingChanged)
        QTimer::singleShot(0, QCoreApplication::instance(), compositingChanged);
    if (notify->selection == traySelection && trayChanged)
        QTimer::singleShot(0, QCoreApplication::instance(), trayChanged);
    // Qt watches selections too (the clipboard): never take the event from it.
    return false;
}

void X11WindowSystem::setVisibleRegion(WindowId id, const std::optional<QRegion>& region) {
    if (!hasExtension(&xcb_shape_id))
        return;
    const auto window = static_cast<xcb_window_t>(id);
    if (!region) {
        xcb_shape_mask(connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, window, 0, 0, XCB_NONE);
    } else {
        std::vector<xcb_rectangle_t> rectangles;
        rectangles.reserve(size_t(region->rectCount()));
        for (const QRect& rect : *region)
            rectangles.push_back({static_cast<int16_t>(rect.x()), static_cast<int16_t>(rect.y()),
                                  static_cast<uint16_t>(rect.width()),
                                  static_cast<uint16_t>(rect.height())});
        xcb_shape_rectangles(connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING,
                             XCB_CLIP_ORDERING_UNSORTED, window, 0, 0,
                             static_cast<uint32_t>(rectangles.size()), rectangles.data());
    }
    xcb_flush(connection);
}

// Qt selects input events on its windows for every device, masters and the
// physical devices behind them alike, and drops what comes from the latter
// but while a window is being moved by hand, which an overlay never is. Each
// pointer move then costs the server, the event thread and the event loop two
// events. The same selection for the master devices alone brings each once.
void X11WindowSystem::takeInputOncePerMove(WindowId id) {
    if (!hasExtension(&xcb_input_id))
        return;
    const auto window = static_cast<xcb_window_t>(id);
    const Reply<xcb_input_xi_get_selected_events_reply_t> selected(
        xcb_input_xi_get_selected_events_reply(
            connection, xcb_input_xi_get_selected_events(connection, window), nullptr));
    if (!selected)
        return;
    for (auto masks = xcb_input_xi_get_selected_events_masks_iterator(selected.get()); masks.rem;
         xcb_input_event_mask_next(&masks)) {
        if (masks.data->deviceid != XCB_INPUT_DEVICE_ALL)
            continue;
        // Two masks in a row: none for every device, Qt's own for the masters.
        const uint16_t words = masks.data->mask_len;
        std::vector<uint32_t> request(2 + words);
        const xcb_input_event_mask_t none{XCB_INPUT_DEVICE_ALL, 0};
        const xcb_input_event_mask_t masters{XCB_INPUT_DEVICE_ALL_MASTER, words};
        std::memcpy(&request[0], &none, sizeof none);
        std::memcpy(&request[1], &masters, sizeof masters);
        std::memcpy(&request[2], xcb_input_event_mask_mask(masks.data), words * sizeof(uint32_t));
        xcb_input_xi_select_events(connection, window, 2,
                                   reinterpret_cast<const xcb_input_event_mask_t*>(request.data()));
        xcb_flush(connection);
        return;
    }
}
