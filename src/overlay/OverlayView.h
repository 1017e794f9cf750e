#pragma once

#include <QWidget>

class DrawingStore;
class QPainter;

// Fills its overlay window: turns the mouse and the keys into changes of the
// drawing and repaints the whole drawing, in global coordinates shifted to its
// own screen, whenever the drawing changes.
class OverlayView : public QWidget {
    Q_OBJECT
public:
    explicit OverlayView(DrawingStore& store, QWidget* parent = nullptr);

    // The crosshair while drawing, the ordinary cursor otherwise.
    void updateCursor();

protected:
    bool focusNextPrevChild(bool next) override;
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void paintVeil(QPainter& painter) const;
    void paintItems(QPainter& painter) const;
    void paintHintBar(QPainter& painter) const;

    bool isTyping() const;
    void typeKey(const QKeyEvent& event);
    void runCommand(const QKeyEvent& event);

    DrawingStore& store;
};
