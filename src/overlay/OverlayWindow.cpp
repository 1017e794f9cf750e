#include "OverlayWindow.h"

#include "Clock.h"
#include "DrawingStore.h"
#include "InkMask.h"
#include "OverlayView.h"
#include "WindowSystem.h"

#include <QApplication>
#include <QScreen>
#include <QVBoxLayout>
#include <QWindow>
#include <iterator>

namespace {

constexpr Qt::WindowFlags managedFlags =
    Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint;

Qt::WindowFlags flagsFor(OverlayWindow::Kind kind) {
    return kind == OverlayWindow::Kind::managed ? managedFlags
                                                : managedFlags | Qt::X11BypassWindowManagerHint;
}

constexpr int pointerRetryMs = 100;
// After a window is made key, when to check that it did get the keyboard.
constexpr int keyboardRetryMs[] = {60, 250};

// Qt takes a while to believe that a window lost the keyboard (it waits for
// the focus to come back), so a window manager that hands the keyboard to a
// window of its own just after we took it goes unnoticed there: the window
// system says where keys go now. One that can't tell leaves it to Qt.
bool keyboardIsWithUs() {
    const WindowSystem::WindowId focused = WindowSystem::current().focusedWindow();
    if (focused == 0)
        return QApplication::activeWindow() != nullptr;
    return WindowSystem::isOwnWindow(focused);
}

} // namespace

OverlayWindow::OverlayWindow(QScreen* screen, DrawingStore& store, OverlayScene& scene, Kind kind)
    : QWidget(nullptr, flagsFor(kind)), store(store), view_(new OverlayView(scene, this)),
      screenGeometry(screen->geometry()), kind(kind) {
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
    // Above the desktop's panels too.
    if (kind == Kind::managed)
        setWindowState(Qt::WindowFullScreen);
    view_->setGeometry(rect());
    view_->placeScene();
    connect(&view_->scene(), &OverlayScene::keyboardWanted, this, [this] {
        if (!view_->hasFocus())
            makeKey();
    });
    // The native window exists from here on, so click-through can be switched
    // on the live window without hiding it.
    create();
    WindowSystem::current().takeInputOncePerMove(winId());

    reshapeTimer.setSingleShot(true);
    reshapeTimer.setInterval(view_->frameIntervalMs());
    connect(&reshapeTimer, &QTimer::timeout, this, [this] {
        if (shapeOutdated && mask)
            reshape([this] {
                QEvent paint(QEvent::UpdateRequest);
                QWidget::event(&paint);
            });
    });
    keyboardRetry.setSingleShot(true);
    connect(&keyboardRetry, &QTimer::timeout, this, &OverlayWindow::askForKeyboardAgain);
    pointerRetry.setSingleShot(true);
    pointerRetry.setInterval(pointerRetryMs);
    connect(&pointerRetry, &QTimer::timeout, this, [this] {
        if (pointerWanted)
            holdPointer();
    });
    connect(&store, &DrawingStore::drawingStoreChanged, this, &OverlayWindow::drawingChanged);
}

OverlayWindow::~OverlayWindow() {
    releasePointer();
}

OverlayScene& OverlayWindow::scene() {
    return view_->scene();
}

bool OverlayWindow::hasKeyboard() const {
    return view_->hasFocus();
}

void OverlayWindow::updateCursor() {
    view_->updateCursor();
}

void OverlayWindow::setClickThrough(bool on) {
    if (on) {
        // No longer to be typed into: nothing left to ask for.
        keyboardRetry.stop();
        releasePointer();
    }
    Qt::WindowFlags flags = windowFlags().setFlag(Qt::WindowTransparentForInput, on);
    // A managed window that only shows ink must never be given the keyboard.
    if (kind == Kind::managed)
        flags.setFlag(Qt::WindowDoesNotAcceptFocus, on);
    if (flags == windowFlags())
        return;
    // QWidget::setWindowFlags would re-create (and so hide) the window; the
    // QWindow changes the input shape of the mapped window in place.
    overrideWindowFlags(flags);
    windowHandle()->setFlags(flags);
    if (on && kind == Kind::managed && isVisible())
        handKeyboardBack();
}

void OverlayWindow::handKeyboardBack() {
    // Mutter moves the keyboard on when the window that has it goes away, not
    // when it lets go of it: shown again at once, now refusing the keyboard,
    // the window keeps its ink on screen and the window the user came from
    // types again.
    hide();
    show();
}

bool OverlayWindow::isClickThrough() const {
    return windowFlags().testFlag(Qt::WindowTransparentForInput);
}

void OverlayWindow::orderFront() {
    show();
    raise();
}

void OverlayWindow::orderOut() {
    keyboardRetry.stop();
    releasePointer();
    hide();
}

bool OverlayWindow::canBecomeKey() const {
    return store.isDrawing();
}

void OverlayWindow::makeKey() {
    if (!canBecomeKey())
        return;
    orderFront();
    // Shown again, the window may still be Qt's focus window from before it
    // was hidden; the server's focus then brings no activation, and the
    // widgets would never learn they have the keyboard.
    if (QGuiApplication::focusWindow() == windowHandle() && QApplication::activeWindow() != this)
        QApplication::setActiveWindow(this);
    view_->setFocus(Qt::ActiveWindowFocusReason);
    activateWindow();
    // A managed window is activated through the window manager (which the
    // compositor of a Wayland desktop follows); one that bypasses it takes the
    // keyboard itself.
    if (kind == Kind::managed)
        WindowSystem::current().activate(winId());
    else
        WindowSystem::current().giveFocus(winId());
    if (mask)
        holdPointer();
    // A window just shown may not be mapped yet when the server gets the focus
    // request, which it then drops: ask again shortly, unless one of our
    // windows has the keyboard by then.
    if (!askingAgain) {
        keyboardAsks = 0;
        keyboardRetry.start(keyboardRetryMs[0]);
    }
}

void OverlayWindow::askForKeyboardAgain() {
    ++keyboardAsks;
    if (canBecomeKey() && isVisible() && !keyboardIsWithUs()) {
        askingAgain = true;
        keyboardLost();
        askingAgain = false;
    }
    if (keyboardAsks < int(std::size(keyboardRetryMs)))
        keyboardRetry.start(keyboardRetryMs[keyboardAsks] - keyboardRetryMs[keyboardAsks - 1]);
}

void OverlayWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && !isActiveWindow())
        keyboardLost();
}

void OverlayWindow::keyboardLost() {
    if (!canBecomeKey() || !isVisible() || keyboardIsWithUs())
        return;
    // When a window of ours disappears, the keyboard falls back to nobody and
    // window managers hand it to a window of their own, possibly after we
    // gave it to a new overlay. Take it back then; but leave it with an
    // application the user switched to.
    WindowSystem& system = WindowSystem::current();
    if (!system.isApplicationWindow(system.focusedWindow()))
        makeKey();
}

// ---- shaped mode

void OverlayWindow::setShaped(bool shaped) {
    if (shaped == isShaped())
        return;
    if (!shaped) {
        mask.reset();
        shapeOutdated = false;
        reshapeTimer.stop();
        releasePointer();
        showRegion(std::nullopt);
        return;
    }
    mask = std::make_unique<InkMask>(screenGeometry, devicePixelRatioF());
    // Cut down at once: on screen, before anything shows black; not yet on
    // screen, so that it is mapped with its shape (its first paint follows).
    reshapeTimer.stop();
    reshape([] {});
}

bool OverlayWindow::holdsPointer() const {
    return QWidget::mouseGrabber() == view_;
}

void OverlayWindow::holdPointer() {
    pointerWanted = true;
    if (!mask || !store.isDrawing() || isClickThrough() || !isVisible())
        return;
    pointerRetry.stop();
    view_->grabMouse();
    // grabMouse() can't tell whether the window system agreed; asking again can.
    if (!windowHandle()->setMouseGrabEnabled(true))
        pointerRetry.start();
}

void OverlayWindow::releasePointer() {
    pointerWanted = false;
    pointerRetry.stop();
    if (holdsPointer())
        view_->releaseMouse();
}

void OverlayWindow::drawingChanged() {
    if (!mask)
        return;
    shapeOutdated = true;
    // A frame's paint reshapes first; this is for changes that paint nothing.
    if (!reshapeTimer.isActive())
        reshapeTimer.start();
}

void OverlayWindow::moveEvent(QMoveEvent* event) {
    QWidget::moveEvent(event);
    view_->placeScene();
}

bool OverlayWindow::event(QEvent* event) {
    // A repaint is due: fit the shape around it, so that new ink is painted
    // before it shows and ink taken away is hidden before it is cleared.
    if (event->type() == QEvent::UpdateRequest && shapeOutdated && mask) {
        bool handled = false;
        reshape([&] { handled = QWidget::event(event); });
        return handled;
    }
    return QWidget::event(event);
}

void OverlayWindow::reshape(const std::function<void()>& paint) {
    shapeOutdated = false;
    const QRegion wanted = mask->region(store, Clock::now());
    const QRegion kept = shown ? *shown & wanted : wanted;
    if (!shown || kept != *shown)
        showRegion(kept);
    paint();
    // What was not painted yet (a window not yet exposed) the server exposes
    // as it shows, and Qt paints it then.
    if (kept != wanted)
        showRegion(wanted);
}

void OverlayWindow::showRegion(const std::optional<QRegion>& region) {
    shown = region;
    WindowSystem::current().setVisibleRegion(winId(), region);
}
