#pragma once

#include "DamageTracker.h"
#include "FadeSprites.h"
#include "KeyPress.h"
#include "OverlayLayerCache.h"
#include "StrokeInk.h"

#include <QObject>
#include <QRect>
#include <QRegion>

class DrawingStore;
class QPainter;

// Everything one output's overlay shows and does, with no window in it: it
// turns pointer and key presses into changes of the drawing, keeps track of
// what each change touches, and paints any part of itself into a QPainter.
// Items that show at full strength come from a layer painted once, so that a
// move of the pen costs the same however much is on screen.
//
// A host (a Qt window, a Wayland surface, a test) feeds it events in desktop
// coordinates, paints it when it asks, and acts on its requests.
class OverlayScene : public QObject {
    Q_OBJECT
public:
    explicit OverlayScene(DrawingStore& store, QObject* parent = nullptr);

    // Where the output lies on the virtual desktop, in device-independent pixels.
    void setGeometry(const QRect& onDesktop);
    QRect geometry() const { return geometry_; }

    // Left button only; points in virtual-desktop coordinates.
    void pointerPressed(QPointF at, Qt::MouseButton button);
    void pointerMoved(QPointF at, Qt::MouseButtons buttons);
    void pointerReleased(QPointF at, Qt::MouseButton button);
    void keyPressed(const KeyPress& press);

    // A text is being typed: keys type into it rather than pick tools, and
    // input methods (dead keys, Compose, IBus, Fcitx) may help.
    bool isTyping() const;
    // Where the typed text's caret is (scene coordinates); empty when nothing
    // is being typed. Input methods put their candidate windows beside it.
    QRect caretRect() const;
    // Text that an input method composed, typed as if from keys.
    void textComposed(const QString& text);

    // The crosshair while drawing, the ordinary cursor otherwise.
    Qt::CursorShape cursor() const;

    // Paints `region` (scene coordinates, the output's top left at 0,0) as the
    // drawing stands. Painting everything also picks up changes of the
    // drawing, the clock or the settings that nobody announced.
    void paint(QPainter& painter, const QRegion& region);
    // What announced changes have left to repaint since the last paint.
    QRegion staleRegion() const { return stale; }

signals:
    // This part of the scene looks different now: paint it soon.
    void repaintNeeded(const QRegion& region);
    // Esc: drawing mode should end.
    void stopRequested();
    // A press while drawing: keys should follow the pen to this output.
    void keyboardWanted();

private:
    void storeChanged();
    void markStale(const QRegion& region);
    DamageTracker::Frame frameNow() const;
    void paintVeil(QPainter& painter, const QRegion& region) const;
    void paintFading(QPainter& painter, const QRegion& region, QPoint origin, qreal dpr);
    OverlayLayerCache::Prepainted finishedStroke();
    void paintCurrent(QPainter& painter, const QRegion& region, qreal dpr);
    void paintHintBar(QPainter& painter, const QRegion& region) const;
    void reportFirstPaint();

    DrawingStore& store;
    QRect geometry_;
    DamageTracker damage;
    OverlayLayerCache layer;
    StrokeInk strokeInk;
    FadeSprites fading;
    QRegion stale;
    bool paintedWhileDrawing = false;
    // Drawing, or something to show.
    bool inUse = false;
};
