#pragma once

// Real-X-server helpers for the overlay tests: facts read straight from the
// server, real pointer and key events through xdotool (XTEST), another
// application's window, and screenshots of the root window.

#include <QGuiApplication>
#include <QImage>
#include <QProcess>
#include <QRect>
#include <QStringList>
#include <QWidget>
#include <QtTest>
#include <cstdlib>
#include <memory>
#include <xcb/shape.h>
#include <xcb/xcb.h>

namespace XServer {

inline xcb_connection_t* connection() {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

inline xcb_window_t root() {
    return xcb_setup_roots_iterator(xcb_get_setup(connection())).data->root;
}

template <typename T> using Reply = std::unique_ptr<T, decltype(&std::free)>;
template <typename T> Reply<T> reply(T* pointer) {
    return Reply<T>(pointer, &std::free);
}

// The window's outer rectangle on the root (it has no frame: it bypasses the WM).
inline QRect geometry(WId window) {
    auto* c = connection();
    auto geometry = reply(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    if (!geometry)
        return {};
    auto translated = reply(xcb_translate_coordinates_reply(
        c, xcb_translate_coordinates(c, window, root(), 0, 0), nullptr));
    if (!translated)
        return {};
    return QRect(translated->dst_x, translated->dst_y, geometry->width, geometry->height);
}

inline bool isViewable(WId window) {
    auto* c = connection();
    auto attributes =
        reply(xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr));
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

inline bool exists(WId window) {
    auto* c = connection();
    return reply(xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window),
                                                 nullptr)) != nullptr;
}

inline bool bypassesWindowManager(WId window) {
    auto* c = connection();
    auto attributes =
        reply(xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr));
    return attributes && attributes->override_redirect;
}

// How many rectangles make up the window's input shape: 0 means clicks pass through.
inline int inputShapeRectangles(WId window) {
    auto* c = connection();
    auto rectangles = reply(xcb_shape_get_rectangles_reply(
        c, xcb_shape_get_rectangles(c, window, XCB_SHAPE_SK_INPUT), nullptr));
    return rectangles ? int(rectangles->rectangles_len) : -1;
}

inline WId inputFocus() {
    auto* c = connection();
    auto focus = reply(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    return focus ? focus->focus : 0;
}

// The window manager's own window, named on the root.
inline WId windowManagerWindow() {
    auto* c = connection();
    const char name[] = "_NET_SUPPORTING_WM_CHECK";
    auto atom =
        reply(xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, sizeof name - 1, name), nullptr));
    if (!atom)
        return 0;
    auto property = reply(xcb_get_property_reply(
        c, xcb_get_property(c, 0, root(), atom->atom, XCB_ATOM_WINDOW, 0, 1), nullptr));
    if (!property || xcb_get_property_value_length(property.get()) < 4)
        return 0;
    return *static_cast<xcb_window_t*>(xcb_get_property_value(property.get()));
}

inline void setInputFocus(WId window) {
    auto* c = connection();
    xcb_set_input_focus(c, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
    xcb_flush(c);
}

inline WId activeWindow() {
    auto* c = connection();
    const char name[] = "_NET_ACTIVE_WINDOW";
    auto atom =
        reply(xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, sizeof name - 1, name), nullptr));
    if (!atom)
        return 0;
    auto property = reply(xcb_get_property_reply(
        c, xcb_get_property(c, 0, root(), atom->atom, XCB_ATOM_WINDOW, 0, 1), nullptr));
    if (!property || xcb_get_property_value_length(property.get()) < 4)
        return 0;
    return *static_cast<xcb_window_t*>(xcb_get_property_value(property.get()));
}

// When a window of ours that had the keyboard leaves, the window manager
// moves the keyboard to a window of its choice a moment later (or leaves it
// with nobody). A person can't start the next session that fast; tests wait.
inline void waitForWindowManager() {
    // Some window managers leave it with nobody: then the wait just ends.
    [[maybe_unused]] const bool moved = QTest::qWaitFor(
        [] {
            const WId focus = inputFocus();
            return focus > XCB_INPUT_FOCUS_POINTER_ROOT && focus != root() && !QWidget::find(focus);
        },
        300);
}

// Runs a command to its end; true when it exited with 0.
inline bool run(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, arguments);
    if (!process.waitForFinished(10000)) {
        qWarning() << program << arguments << "did not finish";
        return false;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        qWarning() << program << arguments << "failed with" << process.exitCode();
        return false;
    }
    return true;
}

// A root-window screenshot, as another program on the desktop would take it.
inline QImage screenshot() {
    QProcess import;
    import.start(QStringLiteral("import"),
                 {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("png:-")});
    if (!import.waitForFinished(10000))
        return {};
    return QImage::fromData(import.readAllStandardOutput(), "PNG");
}

} // namespace XServer

// Real input through XTEST.
namespace XInput {

inline QStringList point(QPoint p) {
    return {QString::number(p.x()), QString::number(p.y())};
}

inline bool moveTo(QPoint p) {
    return XServer::run(QStringLiteral("xdotool"),
                        QStringList{QStringLiteral("mousemove")} + point(p));
}

// Press at the first point, move through the others, release at the last.
inline bool drag(const QList<QPoint>& path) {
    QStringList args = QStringList{QStringLiteral("mousemove")} + point(path.front());
    args << QStringLiteral("mousedown") << QStringLiteral("1");
    for (qsizetype i = 1; i < path.size(); ++i)
        args += QStringList{QStringLiteral("mousemove")} + point(path[i]);
    args << QStringLiteral("mouseup") << QStringLiteral("1");
    return XServer::run(QStringLiteral("xdotool"), args);
}

inline bool press(QPoint p) {
    return XServer::run(QStringLiteral("xdotool"),
                        QStringList{QStringLiteral("mousemove")} + point(p) +
                            QStringList{QStringLiteral("mousedown"), QStringLiteral("1")});
}

inline bool release() {
    return XServer::run(QStringLiteral("xdotool"),
                        {QStringLiteral("mouseup"), QStringLiteral("1")});
}

inline bool click(QPoint p) {
    return press(p) && release();
}

inline bool key(const QString& keysym) {
    return XServer::run(QStringLiteral("xdotool"), {QStringLiteral("key"), keysym});
}

} // namespace XInput

// Another application: an ordinary window of a known colour, in its own
// process, that tells which clicks, keys and focus changes reached it.
class PeerApp {
public:
    PeerApp(QRect geometry, const QColor& color) {
        process.setProgram(QCoreApplication::applicationDirPath() +
                           QStringLiteral("/overlay_peer"));
        process.setArguments({QString::number(geometry.x()), QString::number(geometry.y()),
                              QString::number(geometry.width()), QString::number(geometry.height()),
                              color.name()});
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start();
    }
    ~PeerApp() {
        process.kill();
        process.waitForFinished(5000);
    }
    PeerApp(const PeerApp&) = delete;
    PeerApp& operator=(const PeerApp&) = delete;

    // Waits until its window is mapped and active.
    bool waitUntilActive() {
        if (!waitForLine(QStringLiteral("ready "))) {
            qWarning() << "the other application did not start:" << process.errorString();
            return false;
        }
        window = lines.filter(QStringLiteral("ready ")).front().mid(6).toULongLong();
        // A window manager that has only just started may drop the request
        // to map it: ask again.
        bool mapped = false;
        for (int attempt = 0; attempt < 10 && !mapped; ++attempt) {
            mapped = QTest::qWaitFor([this] { return XServer::isViewable(window); }, 500);
            if (!mapped)
                QProcess::execute(QStringLiteral("xdotool"),
                                  {QStringLiteral("windowmap"), QString::number(window)});
        }
        if (!mapped) {
            qWarning() << "the other application's window did not appear";
            return false;
        }
        // As a user would, by asking the window manager; a new window's own
        // request may be refused as focus stealing.
        // (A window manager that has only just started may not accept it yet.)
        for (int attempt = 0; attempt < 20; ++attempt) {
            QProcess::execute(QStringLiteral("xdotool"),
                              {QStringLiteral("windowactivate"), QString::number(window)});
            if (QTest::qWaitFor([this] { return XServer::activeWindow() == window; }, 250))
                return true;
        }
        qWarning() << "the window manager did not activate" << window << "but"
                   << XServer::activeWindow();
        return false;
    }

    bool waitForLine(const QString& line, int timeoutMs = 5000) {
        return QTest::qWaitFor(
            [&] {
                readLines();
                return std::any_of(lines.begin(), lines.end(),
                                   [&](const QString& seen) { return seen.startsWith(line); });
            },
            timeoutMs);
    }

    QStringList takeLines() {
        readLines();
        return std::exchange(lines, {});
    }

    WId window = 0;

private:
    void readLines() {
        while (process.canReadLine())
            lines << QString::fromUtf8(process.readLine()).trimmed();
    }

    QProcess process;
    QStringList lines;
};
