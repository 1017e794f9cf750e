#pragma once

#include "OverlayScene.h"

#include <QWidget>

class DrawingStore;

// Fills an overlay window with its scene: hands Qt's mouse and key events to
// the scene in desktop coordinates and paints what the scene asks for.
class OverlayView : public QWidget {
    Q_OBJECT
public:
    explicit OverlayView(DrawingStore& store, QWidget* parent = nullptr);

    OverlayScene& scene() { return scene_; }
    // Tells the scene where the view is on the desktop; the window calls this
    // when it moves.
    void placeScene();
    void updateCursor();

protected:
    bool focusNextPrevChild(bool next) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    OverlayScene scene_;
};
