#include "OverlayView.h"

#include <QKeyEvent>
#include <QPainter>

OverlayView::OverlayView(DrawingStore& store, QWidget* parent) : QWidget(parent), scene_(store) {
    setFocusPolicy(Qt::StrongFocus);
    connect(&scene_, &OverlayScene::repaintNeeded, this,
            [this](const QRegion& region) { update(region); });
    updateCursor();
}

void OverlayView::placeScene() {
    scene_.setGeometry(QRect(mapToGlobal(QPoint(0, 0)), size()));
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
    QPainter painter(this);
    scene_.paint(painter, event->region());
}

void OverlayView::mousePressEvent(QMouseEvent* event) {
    event->accept();
    scene_.pointerPressed(event->globalPosition(), event->button());
}

void OverlayView::mouseMoveEvent(QMouseEvent* event) {
    event->accept();
    scene_.pointerMoved(event->globalPosition(), event->buttons());
}

void OverlayView::mouseReleaseEvent(QMouseEvent* event) {
    event->accept();
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
