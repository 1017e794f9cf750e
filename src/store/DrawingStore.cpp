#include "DrawingStore.h"

#include "Clock.h"
#include "PaletteColor.h"
#include "Settings.h"

#include <QTextBoundaryFinder>
#include <algorithm>
#include <cmath>
#include <utility>

DrawingStore& DrawingStore::shared() {
    static DrawingStore store;
    return store;
}

DrawingStore::DrawingStore() {
    // Fading switched on (or the delay changed) with items on screen.
    connect(&Settings::shared(), &Settings::changed, this, [this](Settings::Key key) {
        if (key == Settings::Key::fadeSeconds && !items_.empty())
            ensureTimer();
    });
}
DrawingStore::~DrawingStore() = default;

void DrawingStore::post() {
    emit drawingStoreChanged();
}

void DrawingStore::setTool(Tool tool) {
    tool_ = tool;
    post();
}

void DrawingStore::setColorIndex(int index) {
    colorIndex_ = index;
    post();
}

void DrawingStore::setWidth(qreal width) {
    width_ = width;
    post();
}

void DrawingStore::setDrawing(bool on) {
    isDrawing_ = on;
}

void DrawingStore::announceModeSwitch() {
    post();
    emit drawingStateChanged();
}

void DrawingStore::announceDisplayChange() {
    post();
}

void DrawingStore::begin(QPointF at) {
    Item item;
    item.kind = tool_;
    item.points = {at};
    item.color = paletteColor(colorIndex_).color;
    item.width = width_;
    current_ = std::move(item);
    post();
}

void DrawingStore::update(QPointF to) {
    if (!current_ || current_->kind == Tool::text)
        return;
    auto& points = current_->points;
    if (isShapeTool(current_->kind) && points.size() >= 2)
        points[1] = to;
    else
        points.push_back(to);
    post();
}

void DrawingStore::finishStroke(QPointF at) {
    if (!current_ || current_->kind == Tool::text)
        return;
    update(at);
    Item item = std::move(*current_);
    current_.reset();
    if (isShapeTool(item.kind)) {
        const bool longEnough =
            item.points.size() >= 2 && std::hypot(item.points[1].x() - item.points[0].x(),
                                                  item.points[1].y() - item.points[0].y()) >= 3.0;
        if (!longEnough) {
            post(); // the preview goes away
            return;
        }
    }
    commit(std::move(item));
}

void DrawingStore::commit(Item item) {
    item.finishedAt = Clock::now();
    item.id = ++lastId;
    items_.push_back(std::move(item));
    ensureTimer();
    emit itemCommitted(lastId);
    post();
}

void DrawingStore::undo() {
    if (items_.empty())
        return;
    const quint64 id = items_.back().id;
    items_.pop_back();
    emit itemRemoved(id);
    post();
}

quint64 DrawingStore::add(Item item) {
    commit(std::move(item));
    return lastId;
}

bool DrawingStore::remove(quint64 id) {
    const auto found = std::find_if(items_.begin(), items_.end(),
                                    [id](const Item& item) { return item.id == id; });
    if (found == items_.end())
        return false;
    items_.erase(found);
    emit itemRemoved(id);
    post();
    return true;
}

void DrawingStore::clear() {
    const std::vector<Item> gone = std::exchange(items_, {});
    current_.reset();
    for (const Item& item : gone)
        emit itemRemoved(item.id);
    post();
}

void DrawingStore::endSession() {
    if (current_) {
        if (current_->kind == Tool::text)
            commitText();
        else if (!current_->points.empty())
            finishStroke(current_->points.back());
    }
    current_.reset();
}

void DrawingStore::beginText(QPointF at) {
    Item item;
    item.kind = Tool::text;
    item.points = {at};
    item.color = paletteColor(colorIndex_).color;
    item.width = textSize(width_);
    current_ = std::move(item);
    post();
}

void DrawingStore::appendText(const QString& string) {
    if (!current_ || current_->kind != Tool::text)
        return;
    current_->text += string;
    post();
}

void DrawingStore::deleteLastCharacter() {
    if (!current_ || current_->kind != Tool::text || current_->text.isEmpty())
        return;
    QString& text = current_->text;
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, text);
    graphemes.toEnd();
    const qsizetype start = graphemes.toPreviousBoundary();
    text.truncate(start < 0 ? 0 : start);
    post();
}

void DrawingStore::commitText() {
    if (!current_ || current_->kind != Tool::text)
        return;
    Item item = std::move(*current_);
    current_.reset();
    if (item.text.isEmpty()) {
        post();
        return;
    }
    commit(std::move(item));
}

double DrawingStore::fadeSeconds() {
    return Settings::shared().fadeSeconds();
}

double DrawingStore::alpha(const Item& item, double now) {
    return alpha(item, now, fadeSeconds());
}

double DrawingStore::alpha(const Item& item, double now, double delay) {
    if (!(delay > 0) || !item.finishedAt)
        return 1.0;
    const double age = now - *item.finishedAt;
    if (age <= delay)
        return 1.0;
    const double remaining = 1.0 - (age - delay) / fadeDuration;
    // Clock values are not exact in binary: the tick at delay + 0.8 s must see 0,
    // not a rounding residue that keeps an invisible item for one more frame.
    return remaining <= 1e-9 ? 0.0 : remaining;
}

void DrawingStore::ensureTimer() {
    // With fading off nothing changes with time: nothing needs to wake.
    if (timer || !(fadeSeconds() > 0))
        return;
    timer = std::make_unique<QTimer>();
    timer->setTimerType(Qt::PreciseTimer);
    timer->setInterval(timerIntervalMs);
    QObject::connect(timer.get(), &QTimer::timeout, [this] { tick(); });
    timer->start();
}

void DrawingStore::tick() {
    const double now = Clock::now();
    const double delay = fadeSeconds();
    const size_t before = items_.size();
    std::vector<quint64> faded;
    std::erase_if(items_, [&](const Item& item) {
        const bool gone = alpha(item, now, delay) <= 0;
        if (gone)
            faded.push_back(item.id);
        return gone;
    });
    for (quint64 id : faded)
        emit itemFaded(id);

    bool fading = false;
    if (delay > 0) {
        // Items fade in commit order, so the oldest remaining one decides.
        for (const Item& item : items_) {
            if (item.finishedAt && now - *item.finishedAt > delay) {
                fading = true;
                break;
            }
        }
    }
    if (fading || items_.size() != before)
        post();

    if (timer && (items_.empty() || !(delay > 0))) {
        // We are inside the timer's own timeout signal: stop now, delete later.
        timer->stop();
        timer.release()->deleteLater();
    }
}
