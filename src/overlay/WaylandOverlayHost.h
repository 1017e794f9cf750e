#pragma once

#include "KeyPress.h"
#include "OverlayHost.h"

#include <QPointF>
#include <QSocketNotifier>
#include <QTimer>
#include <memory>
#include <vector>

class WaylandKeyboard;
class WaylandOutput;
class WaylandOverlaySurface;
struct wl_compositor;
struct wl_cursor_theme;
struct wl_display;
struct wl_pointer;
struct wl_registry;
struct wl_seat;
struct wl_shm;
struct wl_surface;
struct zwlr_layer_shell_v1;
struct zxdg_output_manager_v1;
struct wp_fractional_scale_manager_v1;
struct wp_viewporter;

// Overlay surfaces as layer-shell surfaces on the compositor's own outputs, on
// a Wayland connection of their own driven from Qt's event loop: Qt's windows
// (tray menu, Settings) may use another platform altogether.
class WaylandOverlayHost : public OverlayHost {
    Q_OBJECT
public:
    // A connection to the session's compositor if it offers layer-shell
    // surfaces, else none. Made before Qt starts, since the answer decides
    // Qt's platform; the host takes it over once Qt runs.
    static wl_display* connectIfOffered();
    // A host on that connection (which it owns from now on); none if the
    // compositor lacks what the overlay needs.
    static std::unique_ptr<WaylandOverlayHost> create(wl_display* display);
    ~WaylandOverlayHost() override;

    std::vector<OverlaySurface*> rebuild(DrawingStore& store) override;
    QPoint pointerPosition() const override { return pointer_.toPoint(); }
    QString name() const override { return QStringLiteral("wayland"); }

    wl_compositor* compositor() const { return compositor_; }
    wl_shm* shm() const { return shm_; }
    zwlr_layer_shell_v1* layerShell() const { return layerShell_; }
    // Both or neither: fractional scales need a viewport to show their buffers.
    wp_fractional_scale_manager_v1* fractionalScale() const {
        return viewporter_ ? fractionalScale_ : nullptr;
    }
    wp_viewporter* viewporter() const { return viewporter_; }
    wl_surface* keyboardFocus() const;
    // Only `surface` takes the keyboard while drawing.
    void giveKeyboardTo(WaylandOverlaySurface* surface);
    // Shows the scene's cursor if the pointer is over `surface`.
    void updateCursor(WaylandOverlaySurface& surface);

private:
    explicit WaylandOverlayHost(wl_display* display);

    static void global(void* data, wl_registry*, uint32_t name, const char* interface,
                       uint32_t version);
    static void globalRemoved(void* data, wl_registry*, uint32_t name);
    static void seatCapabilities(void* data, wl_seat*, uint32_t capabilities);
    static void pointerEnter(void* data, wl_pointer*, uint32_t serial, wl_surface* surface,
                             int32_t x, int32_t y);
    static void pointerLeave(void* data, wl_pointer*, uint32_t serial, wl_surface* surface);
    static void pointerMotion(void* data, wl_pointer*, uint32_t time, int32_t x, int32_t y);
    static void pointerButton(void* data, wl_pointer*, uint32_t serial, uint32_t time,
                              uint32_t button, uint32_t state);

    void addOutput(uint32_t name, uint32_t version);
    void dispatch();
    void flush();
    WaylandOverlaySurface* surfaceFor(wl_surface* surface) const;
    void keyPressed(const KeyPress& press);
    void setCursor(Qt::CursorShape shape);

    wl_display* display;
    wl_registry* registry = nullptr;
    wl_compositor* compositor_ = nullptr;
    wl_shm* shm_ = nullptr;
    wl_seat* seat = nullptr;
    wl_pointer* pointer = nullptr;
    zwlr_layer_shell_v1* layerShell_ = nullptr;
    zxdg_output_manager_v1* outputManager = nullptr;
    wp_fractional_scale_manager_v1* fractionalScale_ = nullptr;
    wp_viewporter* viewporter_ = nullptr;
    std::unique_ptr<WaylandKeyboard> keyboard;
    std::vector<std::unique_ptr<WaylandOutput>> outputs;
    std::vector<WaylandOverlaySurface*> surfaces;
    // Surfaces of outputs that went, until the controller has let go of them.
    std::vector<WaylandOverlaySurface*> retired;
    std::unique_ptr<QSocketNotifier> notifier;

    // Where the pointer was last seen, in desktop coordinates.
    QPointF pointer_;
    WaylandOverlaySurface* pointerSurface = nullptr;
    uint32_t pointerSerial = 0;
    Qt::MouseButtons buttons;
    wl_cursor_theme* cursorTheme = nullptr;
    wl_surface* cursorSurface = nullptr;
    int cursorScale = 0;

    // Outputs change in bursts: one signal for the whole burst.
    QTimer outputChange;
};
