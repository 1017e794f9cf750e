#pragma once

#include "OverlayScene.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

// Fills an overlay window with its scene: hands Qt's mouse and key events to
// the scene in desktop coordinates and paints what the scene asks for, at
// most once per display frame: every pointer position reaches the drawing at
// once, and the next frame shows all of them.
class OverlayView : public QWidget {
    Q_OBJECT
public:
    // The scene outlives the view: a window made anew keeps what was painted.
    explicit OverlayView(OverlayScene& scene, QWidget* parent = nullptr);

    OverlayScene& scene() { return scene_; }
    // How long a frame of the view's screen lasts.
    int frameIntervalMs() const;
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
    void inputMethodEvent(QInputMethodEvent* event) override;
    QVariant inputMethodQuery(Qt::InputMethodQuery query) const override;

private:
    void sceneChanged(const QRegion& region);
    void showPending();
    void followTyping();

    OverlayScene& scene_;
    QRegion pending;
    QTimer nextFrame;
    QElapsedTimer lastFrame;
    bool wasTyping = false;
};
