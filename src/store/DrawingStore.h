#pragma once

#include "Item.h"

#include <QPointF>
#include <QTimer>
#include <memory>
#include <optional>
#include <vector>

// The one in-memory drawing: committed items (oldest first), the item in
// progress, the selected tool, colour and width, and the fade timer.
// Every change posts drawingStoreChanged on the default notification centre.
class DrawingStore {
public:
    static constexpr double fadeDuration = 0.8;
    static constexpr int timerIntervalMs = 1000 / 30;

    static DrawingStore& shared();

    DrawingStore();
    ~DrawingStore();
    DrawingStore(const DrawingStore&) = delete;
    DrawingStore& operator=(const DrawingStore&) = delete;

    const std::vector<Item>& items() const { return items_; }
    const std::optional<Item>& current() const { return current_; }

    // Set directly by the keyboard commands, which post the notification themselves.
    Tool tool = Tool::pen;
    int colorIndex = 0;
    qreal width = 4.0;
    bool isDrawing = false;

    // Strokes and shapes.
    void begin(QPointF at);
    void update(QPointF to);
    void finishStroke(QPointF at);
    void undo();
    void clear();
    void endSession();

    // Text.
    void beginText(QPointF at);
    void appendText(const QString& string);
    void deleteLastCharacter();
    void commitText();

    // Fading. alpha() reads fadeSeconds afresh; the overload takes a delay
    // already read, so that one repaint reads the settings once.
    static double fadeSeconds();
    static double alpha(const Item& item, double now);
    static double alpha(const Item& item, double now, double delay);
    void ensureTimer();
    bool isTimerRunning() const { return timer != nullptr; }

private:
    // Benchmarks run the fade timer's tick directly instead of waiting for it.
    friend class FadeTicker;

    void tick();
    void commit(Item item);
    void post();

    std::vector<Item> items_;
    std::optional<Item> current_;
    std::unique_ptr<QTimer> timer;
};
