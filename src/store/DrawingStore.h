#pragma once

#include "Item.h"

#include <QObject>
#include <QPointF>
#include <QTimer>
#include <memory>
#include <optional>
#include <vector>

// The one in-memory drawing: committed items (oldest first), the item in
// progress, the selected tool, colour and width, drawing mode and the fade
// timer. Every change is made through its methods, which emit
// drawingStoreChanged once the fields are updated (synchronously, with no data:
// observers read the store again).
class DrawingStore : public QObject {
    Q_OBJECT
public:
    static constexpr double fadeDuration = 0.8;
    static constexpr int timerIntervalMs = 1000 / 30;

    static DrawingStore& shared();

    DrawingStore();
    ~DrawingStore() override;
    DrawingStore(const DrawingStore&) = delete;
    DrawingStore& operator=(const DrawingStore&) = delete;

    const std::vector<Item>& items() const { return items_; }
    const std::optional<Item>& current() const { return current_; }

    Tool tool() const { return tool_; }
    int colorIndex() const { return colorIndex_; }
    qreal width() const { return width_; }
    bool isDrawing() const { return isDrawing_; }

    // What the next item is drawn with. Drawing with a colour index outside
    // the palette is a fatal programming error.
    void setTool(Tool tool);
    void setColorIndex(int index);
    void setWidth(qreal width);

    // Drawing mode. Whoever switches it shows or hides the overlay to match
    // and then announces the switch: drawingStoreChanged, then drawingStateChanged.
    void setDrawing(bool on);
    void announceModeSwitch();
    // Something the overlay shows changed outside the drawing (the hint bar
    // or the fade delay was switched): emits drawingStoreChanged.
    void announceDisplayChange();

    // Strokes and shapes.
    void begin(QPointF at);
    void update(QPointF to);
    void finishStroke(QPointF at);
    void undo();
    void clear();
    void endSession();
    // A finished item made elsewhere (a script): committed as a drawn one is,
    // so it gets an id and fades like the rest. Returns its id.
    quint64 add(Item item);
    // Takes the committed item away; false when there is none with that id.
    bool remove(quint64 id);

    // Text. Its font size follows the stroke width, so that the width keys
    // size text too.
    static qreal textSize(qreal width) { return width * 3 + 18; }
    void beginText(QPointF at);
    void appendText(const QString& string);
    void deleteLastCharacter();
    void commitText();

    // Fading, after the fade delay of the settings (in memory: cheap to read).
    static double fadeSeconds();
    static double alpha(const Item& item, double now);
    static double alpha(const Item& item, double now, double delay);
    // Runs the fade timer while items may fade: some are kept and fading is on.
    void ensureTimer();
    bool isTimerRunning() const { return timer != nullptr; }

signals:
    // The drawing, or what the overlay shows, changed: repaint.
    void drawingStoreChanged();
    // Drawing mode was switched on or off.
    void drawingStateChanged();
    // Finer notices, each before the drawingStoreChanged of the same change:
    // an item was committed, taken away (undo, clear) or has faded away.
    void itemCommitted(quint64 id);
    void itemRemoved(quint64 id);
    void itemFaded(quint64 id);

private:
    // Benchmarks run the fade timer's tick directly instead of waiting for it.
    friend class FadeTicker;

    void tick();
    void commit(Item item);
    void post();

    Tool tool_ = Tool::pen;
    int colorIndex_ = 0;
    qreal width_ = 4.0;
    bool isDrawing_ = false;
    quint64 lastId = 0;
    std::vector<Item> items_;
    std::optional<Item> current_;
    std::unique_ptr<QTimer> timer;
};
