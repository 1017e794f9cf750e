#pragma once

#include "RunningQuillery.h"

#include <QGuiApplication>
#include <QImage>
#include <QMap>
#include <QProcess>
#include <QRect>
#include <QRegularExpression>
#include <QStringList>
#include <QTest>
#include <QWidget>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <xcb/shape.h>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

// The test's X server driven from outside, as a user would: xdotool for real
// pointer and key events, ImageMagick for screenshots of the root window.
namespace XDesktop {

using RunningQuillery::output;

// Arguments separated by spaces, such as "key ctrl+alt+d".
inline bool xdotool(const QString& arguments) {
    return RunningQuillery::run(QStringLiteral("xdotool"),
                                arguments.split(u' ', Qt::SkipEmptyParts));
}

// Moves the pointer to p, and then presses the left button if asked to.
inline bool moveTo(QPoint p, const QString& then = {}) {
    return xdotool(QStringLiteral("mousemove %1 %2 ").arg(p.x()).arg(p.y()) + then);
}

// A press, a drag through the points and a release of the left button. With
// no pause, the pointer's moves reach the application as fast as X sends them.
inline bool drag(const QList<QPoint>& points, double pauseSeconds = 0.03) {
    QString script;
    for (const QPoint& point : points)
        script += QStringLiteral("mousemove %1 %2 %3 sleep %4 ")
                      .arg(point.x())
                      .arg(point.y())
                      .arg(script.isEmpty() ? "mousedown 1" : "")
                      .arg(pauseSeconds);
    return xdotool(script + QStringLiteral("mouseup 1"));
}

inline QImage screenshot() {
    return QImage::fromData(output("import", {"-window", "root", "png:-"}), "PNG");
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

// The window the window manager calls active.
inline WId activeWindow() {
    return output("xdotool", {"getactivewindow"}).trimmed().toULongLong();
}

// The ids of the visible windows whose title matches a regular expression.
inline QStringList windowsNamed(const QString& title) {
    return QString::fromLatin1(output("xdotool", {"search", "--onlyvisible", "--name", title}))
        .split(u'\n', Qt::SkipEmptyParts);
}

// The geometries of the visible windows of the quillery program.
inline QList<QRect> programWindows() {
    QList<QRect> windows;
    const QByteArray ids =
        output("xdotool", {"search", "--onlyvisible", "--classname", "quillery"});
    for (const QByteArray& id : ids.split('\n')) {
        QMap<QByteArray, int> values;
        const QByteArray shell =
            id.isEmpty() ? QByteArray() : output("xdotool", {"getwindowgeometry", "--shell", id});
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

// Facts read straight from the server, through the application's own connection.
namespace XServer {

inline xcb_connection_t* connection() {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}
inline xcb_window_t root() {
    return xcb_setup_roots_iterator(xcb_get_setup(connection())).data->root;
}

template <typename T> std::unique_ptr<T, decltype(&std::free)> reply(T* pointer) {
    return {pointer, &std::free};
}
// Null once the window is gone.
inline auto attributes(WId window) {
    auto* c = connection();
    return reply(xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr));
}
inline bool isViewable(WId window) {
    const auto a = attributes(window);
    return a && a->map_state == XCB_MAP_STATE_VIEWABLE;
}

// The window's rectangle on the root (ours have no frame: they bypass the WM).
inline QRect geometry(WId window) {
    auto* c = connection();
    auto size = reply(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    auto at = reply(xcb_translate_coordinates_reply(
        c, xcb_translate_coordinates(c, window, root(), 0, 0), nullptr));
    return size && at ? QRect(at->dst_x, at->dst_y, size->width, size->height) : QRect();
}

// How many rectangles make up the window's input shape: 0 means clicks pass through.
inline int inputShapeRectangles(WId window) {
    auto* c = connection();
    auto rectangles = reply(xcb_shape_get_rectangles_reply(
        c, xcb_shape_get_rectangles(c, window, XCB_SHAPE_SK_INPUT), nullptr));
    return rectangles ? int(rectangles->rectangles_len) : -1;
}
// Whether what shows of the window is cut to a shape.
inline bool isBoundingShaped(WId window) {
    auto* c = connection();
    auto extents =
        reply(xcb_shape_query_extents_reply(c, xcb_shape_query_extents(c, window), nullptr));
    return extents && extents->bounding_shaped;
}

inline WId inputFocus() {
    auto* c = connection();
    auto focus = reply(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    return focus ? focus->focus : 0;
}

// When a window of ours that had the keyboard leaves, the window manager
// moves the keyboard to a window of its choice a moment later (or leaves it
// with nobody). A person can't start the next session that fast; tests wait.
inline void waitForWindowManager() {
    [[maybe_unused]] const bool moved = QTest::qWaitFor(
        [] {
            const WId focus = inputFocus();
            return focus > XCB_INPUT_FOCUS_POINTER_ROOT && focus != root() && !QWidget::find(focus);
        },
        300);
}

} // namespace XServer

// Another application: xev's ordinary window, in its own process, which tells
// which clicks and keys reached it, as lines such as "press 350 325" or "key k".
class PeerApp {
public:
    explicit PeerApp(QRect geometry) {
        process.start(QStringLiteral("xev"),
                      {QStringLiteral("-geometry"),
                       QStringLiteral("%1x%2+%3+%4")
                           .arg(geometry.width())
                           .arg(geometry.height())
                           .arg(geometry.x())
                           .arg(geometry.y()),
                       "-name", name, "-event", "button", "-event", "keyboard"});
    }
    ~PeerApp() {
        process.kill();
        process.waitForFinished(5000);
    }
    PeerApp(const PeerApp&) = delete;
    PeerApp& operator=(const PeerApp&) = delete;

    // Waits until its window is mapped and active.
    bool waitUntilActive() {
        QStringList shown;
        if (!QTest::qWaitFor(
                [&] { return !(shown = XDesktop::windowsNamed("^" + name)).isEmpty(); }, 5000))
            return false;
        window = shown.front().toULongLong();
        // A window manager may refuse to activate a window that asks by itself
        // (focus stealing): ask again, as a user would, through the window manager.
        for (int attempt = 0; attempt < 20; ++attempt)
            if (XDesktop::xdotool("windowactivate " + shown.front()) &&
                QTest::qWaitFor([this] { return XDesktop::activeWindow() == window; }, 250))
                return true;
        qWarning() << "the other application's window" << window << "did not become active";
        return false;
    }

    bool waitForLine(const QString& line, int timeoutMs = 5000) {
        return QTest::qWaitFor(
            [&] {
                readEvents();
                return std::any_of(lines.begin(), lines.end(),
                                   [&](const QString& seen) { return seen.startsWith(line); });
            },
            timeoutMs);
    }
    // Whether a line starting so has come by now; forgets every line so far.
    bool tookLine(const QString& line) {
        const bool seen = waitForLine(line, 0);
        lines.clear();
        return seen;
    }

    WId window = 0;

private:
    const QString name = QStringLiteral("quillery-test-peer");
    // xev writes an event as a block of lines that ends with an empty one.
    void readEvents() {
        static const auto option = QRegularExpression::DotMatchesEverythingOption;
        static const QRegularExpression press(R"(^ButtonPress .*root:\((\d+),(\d+)\))", option);
        static const QRegularExpression key(R"(^KeyPress .*\(keysym 0x\w+, (\w+)\))", option);
        text += QString::fromLocal8Bit(process.readAllStandardOutput());
        for (qsizetype end; (end = text.indexOf(QStringLiteral("\n\n"))) >= 0;) {
            const QString block = text.left(end);
            text.remove(0, end + 2);
            if (const auto pressed = press.match(block); pressed.hasMatch())
                lines
                    << QStringLiteral("press %1 %2").arg(pressed.captured(1), pressed.captured(2));
            else if (const auto typed = key.match(block); typed.hasMatch())
                lines << QStringLiteral("key ") + typed.captured(1);
        }
    }

    QProcess process;
    QString text;
    QStringList lines;
};

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
        auto atom = XServer::reply(xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, 0, sizeof name - 1, name), nullptr));
        markerAtom = atom ? atom->atom : xcb_atom_t(XCB_ATOM_NONE);
    }
    ~OtherXClient() { xcb_disconnect(connection); }
    OtherXClient(const OtherXClient&) = delete;
    OtherXClient& operator=(const OtherXClient&) = delete;

    bool isConnected() const { return xcb_connection_has_error(connection) == 0; }

    // The first key that types keysym, in the keymap as it is now.
    xcb_keycode_t keycodeOf(xcb_keysym_t keysym) const {
        xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(connection);
        xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, keysym);
        const xcb_keycode_t found = codes ? codes[0] : 0;
        std::free(codes);
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
        auto pointer = XServer::reply(
            xcb_query_pointer_reply(connection, xcb_query_pointer(connection, root), nullptr));
        return pointer ? (pointer->mask & 0xff) : 0;
    }

    void sendMarker(xcb_window_t window, quint32 serial) {
        xcb_client_message_event_t event{};
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
