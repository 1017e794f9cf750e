#pragma once

#include "DamageTracker.h"
#include "FadeSprites.h"
#include "OverlayLayerCache.h"

#include <QRegion>
#include <QWidget>

class DrawingStore;
class QPainter;

// Fills its overlay window: turns the mouse and the keys into changes of the
// drawing and shows the drawing, in global coordinates shifted to its own
// screen. When the drawing changes it repaints only what changed; the items
// that show at full strength come from a layer painted once, so that a move of
// the pen costs the same however much is on the screen.
class OverlayView : public QWidget {
    Q_OBJECT
public:
    explicit OverlayView(DrawingStore& store, QWidget* parent = nullptr);

    // The crosshair while drawing, the ordinary cursor otherwise.
    void updateCursor();

    // Paints `region` (view coordinates) as the drawing stands, the way the
    // view's paint events do. Painting everything also picks up changes of
    // the drawing, the clock or the settings that nobody announced.
    void paint(QPainter& painter, const QRegion& region);
    // What announced changes have left to repaint since the last paint.
    QRegion staleRegion() const { return stale; }

protected:
    bool focusNextPrevChild(bool next) override;
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void storeChanged();
    void markStale(const QRegion& region);
    DamageTracker::Frame frameNow() const;
    QRect geometryOnDesktop() const;
    void paintVeil(QPainter& painter, const QRegion& region) const;
    void paintFading(QPainter& painter, const QRegion& region, QPoint origin, qreal dpr);
    void paintCurrent(QPainter& painter, const QRegion& region, QPoint origin) const;
    void paintHintBar(QPainter& painter, const QRegion& region) const;
    void reportFirstPaint();

    bool isTyping() const;
    void typeKey(const QKeyEvent& event);
    void runCommand(const QKeyEvent& event);

    DrawingStore& store;
    DamageTracker damage;
    OverlayLayerCache layer;
    FadeSprites fading;
    QRegion stale;
    bool paintedWhileDrawing = false;
    // Drawing, or something to show.
    bool inUse = false;
};
