#include "OverlayWindow.h"

#include "DrawingStore.h"
#include "OverlayView.h"
#include "WindowSystem.h"

#include <QApplication>
#include <QScreen>
#include <QVBoxLayout>
#include <QWindow>

namespace {

constexpr Qt::WindowFlags overlayFlags = Qt::Tool | Qt::FramelessWindowHint |
                                         Qt::WindowStaysOnTopHint | Qt::X11BypassWindowManagerHint |
                                         Qt::NoDropShadowWindowHint;

} // namespace

OverlayWindow::OverlayWindow(QScreen* screen, DrawingStore& store)
    : QWidget(nullptr, overlayFlags), store(store), view_(new OverlayView(store, this)) {
    setAttribute(Qt::WA_TranslucentBackground);
    // Only the window under the pointer takes the keyboard, and only when asked.
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_QuitOnClose, false);
    setWindowTitle(QStringLiteral("Quillery"));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(view_);
    setFocusProxy(view_);

    setScreen(screen);
    setGeometry(screen->geometry());
    // The native window exists from here on, so click-through can be switched
    // on the live window without hiding it.
    create();
}

void OverlayWindow::setClickThrough(bool on) {
    const Qt::WindowFlags flags = windowFlags().setFlag(Qt::WindowTransparentForInput, on);
    if (flags == windowFlags())
        return;
    // QWidget::setWindowFlags would re-create (and so hide) the window; the
    // QWindow changes the input shape of the mapped window in place.
    overrideWindowFlags(flags);
    windowHandle()->setFlags(flags);
}

bool OverlayWindow::isClickThrough() const {
    return windowFlags().testFlag(Qt::WindowTransparentForInput);
}

void OverlayWindow::orderFront() {
    show();
    raise();
}

void OverlayWindow::orderOut() {
    hide();
}

bool OverlayWindow::canBecomeKey() const {
    return store.isDrawing;
}

void OverlayWindow::makeKey() {
    if (!canBecomeKey())
        return;
    orderFront();
    view_->setFocus(Qt::ActiveWindowFocusReason);
    activateWindow();
    WindowSystem::current().giveFocus(winId());
}

void OverlayWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && !isActiveWindow())
        keyboardLost();
}

void OverlayWindow::keyboardLost() {
    if (!canBecomeKey() || !isVisible() || QApplication::activeWindow())
        return;
    // When a window of ours disappears, the keyboard falls back to nobody and
    // window managers hand it to a window of their own, possibly after we
    // gave it to a new overlay. Take it back then; but leave it with an
    // application the user switched to.
    WindowSystem& system = WindowSystem::current();
    if (!system.isApplicationWindow(system.focusedWindow()))
        makeKey();
}
