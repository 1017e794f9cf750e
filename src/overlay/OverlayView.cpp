#include "OverlayView.h"

#include "FrameStats.h"

#include <QKeyEvent>
#include <QPainter>
#include <QScreen>

namespace {

// Where the display doesn't say (Xvfb), the common rate.
constexpr qreal fallbackRefreshRate = 60;

} // namespace

OverlayView::OverlayView(DrawingStore& store, QWidget* parent) : QWidget(parent), scene_(store) {
    setFocusPolicy(Qt::StrongFocus);
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

// The first change after a quiet spell shows at once; later ones wait for the
// next frame, one frame after the last began.
void OverlayView::sceneChanged(const QRegion& region) {
    pending += region;
    if (nextFrame.isActive())
        return;
    const qint64 since = lastFrame.isValid() ? lastFrame.elapsed() : frameIntervalMs();
    if (since >= frameIntervalMs())
        showPending();
    else
        nextFrame.start(int(frameIntervalMs() - since));
}

void OverlayView::showPending() {
    update(pending);
    pending = QRegion();
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
