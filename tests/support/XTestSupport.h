#pragma once

#include <QImage>
#include <QMap>
#include <QProcess>
#include <QRect>
#include <QStringList>
#include <QTest>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

// The test's X server driven from outside, as a user would: xdotool for real
// pointer and key events, ImageMagick for screenshots of the root window.
namespace XDesktop {

// Runs a command to its end: its standard output, or a null array if it failed.
inline QByteArray run(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(15000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        return {};
    const QByteArray output = process.readAllStandardOutput();
    return output.isNull() ? QByteArray("") : output;
}

// Arguments separated by spaces, such as "key ctrl+alt+d".
inline bool xdotool(const QString& arguments) {
    return !run(QStringLiteral("xdotool"), arguments.split(u' ', Qt::SkipEmptyParts)).isNull();
}

// A press, a drag through the points and a release of the left button.
inline bool drag(const QList<QPoint>& points) {
    QString script;
    for (const QPoint& point : points)
        script += QStringLiteral("mousemove %1 %2 %3 sleep 0.03 ")
                      .arg(point.x())
                      .arg(point.y())
                      .arg(script.isEmpty() ? "mousedown 1" : "");
    return xdotool(script + QStringLiteral("mouseup 1"));
}

inline QImage screenshot() {
    return QImage::fromData(run("import", {"-window", "root", "png:-"}), "PNG");
}

inline int countPixels(const std::function<bool(QColor)>& matches, QRect area = {}) {
    const QImage image = screenshot();
    area = area.isNull() ? image.rect() : area & image.rect();
    int count = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            count += matches(image.pixelColor(x, y));
    return count;
}
// Whether a screenshot shows over 200 pixels of the colour within ten seconds.
// Each look takes a screenshot, which can take a second: QTRY would look a few
// more times after the first sight, and by then fading ink may be gone.
inline bool inkShows(bool (*colour)(QColor), QRect area = {}) {
    return QTest::qWaitFor([&] { return countPixels(colour, area) > 200; }, 10000);
}
// The palette's red and yellow on screen, with slack for antialiasing and the compositor.
inline bool isRed(QColor c) {
    return c.red() > 200 && c.green() < 90 && c.blue() < 90;
}
inline bool isYellow(QColor c) {
    return c.red() > 200 && c.green() > 180 && c.blue() < 90;
}

// The ids of the visible windows whose title matches a regular expression.
inline QStringList windowsNamed(const QString& title) {
    QProcess search; // which fails when nothing matches
    search.start(QStringLiteral("xdotool"), {"search", "--onlyvisible", "--name", title});
    search.waitForFinished(5000);
    return QString::fromLatin1(search.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
}

// The geometries of the visible windows of the quillery program.
inline QList<QRect> programWindows() {
    QList<QRect> windows;
    QProcess search;
    search.start(QStringLiteral("xdotool"), {"search", "--onlyvisible", "--classname", "quillery"});
    search.waitForFinished(5000);
    for (const QByteArray& id : search.readAllStandardOutput().split('\n')) {
        QMap<QByteArray, int> values;
        const QByteArray shell =
            id.isEmpty() ? QByteArray() : run("xdotool", {"getwindowgeometry", "--shell", id});
        for (const QByteArray& line : shell.split('\n'))
            if (const qsizetype equals = line.indexOf('='); equals > 0)
                values[line.left(equals)] = line.mid(equals + 1).toInt();
        if (!values.isEmpty())
            windows.append(QRect(values["X"], values["Y"], values["WIDTH"], values["HEIGHT"]));
    }
    return windows;
}
inline bool overlayIsUp() {
    return programWindows().contains(QRect(0, 0, 1920, 1080));
}
// The icon docked in the panel's tray at the bottom of the screen; null if none.
inline QRect trayIcon() {
    for (const QRect& window : programWindows())
        if (window.height() <= 64 && window.top() >= 1000)
            return window;
    return {};
}

} // namespace XDesktop

// A second client of the test's X server, standing in for another program on
// the desktop: it holds key combinations (until it is destroyed), reads the
// modifier and lock state, and sends a marker event that reaches the
// application after everything the server did before it.
class OtherXClient {
public:
    OtherXClient() : connection(xcb_connect(nullptr, nullptr)) {
        if (!isConnected())
            return;
        root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        static const char name[] = "QUILLERY_TEST_MARKER";
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, 0, sizeof name - 1, name), nullptr);
        markerAtom = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        std::free(reply);
    }
    ~OtherXClient() { xcb_disconnect(connection); }
    OtherXClient(const OtherXClient&) = delete;
    OtherXClient& operator=(const OtherXClient&) = delete;

    bool isConnected() const { return xcb_connection_has_error(connection) == 0; }

    // The first key that types keysym unshifted, in the keymap as it is now.
    xcb_keycode_t keycodeOf(xcb_keysym_t keysym) const {
        xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(connection);
        xcb_keycode_t found = 0;
        const xcb_setup_t* setup = xcb_get_setup(connection);
        for (int code = setup->min_keycode; code <= setup->max_keycode && !found; ++code)
            if (xcb_key_symbols_get_keysym(symbols, xcb_keycode_t(code), 0) == keysym)
                found = xcb_keycode_t(code);
        xcb_key_symbols_free(symbols);
        return found;
    }

    // False when another client (the application) already holds it.
    bool grabKey(xcb_keysym_t keysym, uint16_t modifiers) {
        const xcb_keycode_t keycode = keycodeOf(keysym);
        xcb_generic_error_t* error =
            keycode == 0
                ? nullptr
                : xcb_request_check(connection,
                                    xcb_grab_key_checked(connection, 0, root, modifiers, keycode,
                                                         XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        std::free(error);
        return keycode != 0 && error == nullptr;
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
        event.type = markerAtom;
        event.data.data32[0] = serial;
        xcb_send_event(connection, 0, window, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char*>(&event));
        xcb_flush(connection);
    }

    void sync() const {
        std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    }

    xcb_atom_t markerAtom = XCB_ATOM_NONE;

private:
    xcb_connection_t* connection;
    xcb_window_t root = 0;
};
