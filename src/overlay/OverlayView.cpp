#include "OverlayView.h"

#include "FrameStats.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QInputMethod>
#include <QKeyEvent>
#include <QPainter>
#include <QScreen>

namespace {

// Where the display doesn't say (Xvfb), the common rate.
constexpr qreal fallbackRefreshRate = 60;

} // namespace

OverlayView::OverlayView(OverlayScene& scene, QWidget* parent) : QWidget(parent), scene_(scene) {
    setFocusPolicy(Qt::StrongFocus);
    // Input methods help with typed text only (see inputMethodQuery): while
    // drawing, letters pick tools and must reach the scene as they are.
    setAttribute(Qt::WA_InputMethodEnabled);
    connect(&scene_, &OverlayScene::repaintNeeded, this, &OverlayView::sceneChanged);
    nextFrame.setSingleShot(true);
    nextFrame.setTimerType(Qt::PreciseTimer);
    connect(&nextFrame, &QTimer::timeout, this, &OverlayView::showPending);
    updateCursor();
}

void OverlayView::placeScene() {
    scene_.setGeometry(QRect(mapToGlobal(QPoint(0, 0)), size()));
}

int OverlayView::frameIntervalMs() const {
    const qreal rate = screen() ? screen()->refreshRate() : 0;
    return qMax(1, qRound(1000 / (rate > 1 ? rate : fallbackRefreshRate)));
}

// A change shows at once when a frame's time has passed since the last one
// began, and otherwise with the next frame: one frame after the last began,
// or sooner, at the first change after that moment. Painting at once, not at
// the next turn of the event loop, keeps the ink following the pen while a
// stream of pointer events leaves the loop no turn to take.
void OverlayView::sceneChanged(const QRegion& region) {
    followTyping();
    pending += region;
    const int interval = frameIntervalMs();
    const qint64 since = lastFrame.isValid() ? lastFrame.elapsed() : interval;
    if (since >= interval)
        showPending();
    else if (!nextFrame.isActive())
        nextFrame.start(int(interval - since));
}

void OverlayView::showPending() {
    nextFrame.stop();
    update(pending);
    pending = QRegion();
    if (!isVisible())
        return;
    // Through the window, which fits its shape around the paint when it has one.
    QEvent request(QEvent::UpdateRequest);
    QCoreApplication::sendEvent(window(), &request);
}

// Tells the input method when typing starts or ends, and where the caret went.
void OverlayView::followTyping() {
    const bool typing = scene_.isTyping();
    if (!typing && !wasTyping)
        return;
    if (hasFocus())
        QGuiApplication::inputMethod()->update(
            typing != wasTyping ? Qt::ImEnabled | Qt::ImCursorRectangle : Qt::ImCursorRectangle);
    wasTyping = typing;
}

void OverlayView::updateCursor() {
    if (scene_.cursor() == Qt::ArrowCursor)
        unsetCursor();
    else
        setCursor(scene_.cursor());
}

void OverlayView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    placeScene();
}

void OverlayView::paintEvent(QPaintEvent* event) {
    lastFrame.start();
    {
        QPainter painter(this);
        scene_.paint(painter, event->region());
    }
    FrameStats::shared().framePainted();
}

void OverlayView::mousePressEvent(QMouseEvent* event) {
    event->accept();
    FrameStats::shared().pointerEventArrived();
    scene_.pointerPressed(event->globalPosition(), event->button());
}

void OverlayView::mouseMoveEvent(QMouseEvent* event) {
    event->accept();
    FrameStats::shared().pointerEventArrived();
    scene_.pointerMoved(event->globalPosition(), event->buttons());
}

void OverlayView::mouseReleaseEvent(QMouseEvent* event) {
    event->accept();
    FrameStats::shared().pointerEventArrived();
    scene_.pointerReleased(event->globalPosition(), event->button());
}

// Tab is a drawing command here, not a move to the next widget.
bool OverlayView::focusNextPrevChild(bool) {
    return false;
}

void OverlayView::keyPressEvent(QKeyEvent* event) {
    event->accept();
    scene_.keyPressed({event->key(), event->text(), event->modifiers()});
}

// What an input method composed (a dead key and a letter, a Compose sequence,
// a CJK word) arrives as one commit. Its preedit is not shown.
void OverlayView::inputMethodEvent(QInputMethodEvent* event) {
    event->accept();
    if (!event->commitString().isEmpty())
        scene_.textComposed(event->commitString());
}

QVariant OverlayView::inputMethodQuery(Qt::InputMethodQuery query) const {
    switch (query) {
    case Qt::ImEnabled:
        return scene_.isTyping();
    case Qt::ImCursorRectangle:
        return scene_.caretRect();
    default:
        return QWidget::inputMethodQuery(query);
    }
}
