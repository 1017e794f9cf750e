#include "OverlayScene.h"

#include "Clock.h"
#include "DrawingCommands.h"
#include "DrawingStore.h"
#include "FrameStats.h"
#include "OverlayKeyMap.h"
#include "Renderer.h"
#include "Settings.h"
#include "SystemMemory.h"
#include "TextLayout.h"

#include <QPainter>

namespace {

// A stale area in this many pieces is handled as one rect around them.
constexpr int mostStalePieces = 4096;

} // namespace

OverlayScene::OverlayScene(DrawingStore& store, QObject* parent) : QObject(parent), store(store) {
    connect(&store, &DrawingStore::drawingStoreChanged, this, &OverlayScene::storeChanged);
    // A setting edited while ink shows (in the Settings window, or in the file).
    connect(&Settings::shared(), &Settings::changed, this, [this](Settings::Key key) {
        if (key == Settings::Key::fadeSeconds || key == Settings::Key::hudVisible)
            storeChanged();
    });
}

void OverlayScene::setGeometry(const QRect& onDesktop) {
    if (onDesktop == geometry_)
        return;
    geometry_ = onDesktop;
    storeChanged();
}

Qt::CursorShape OverlayScene::cursor() const {
    return store.isDrawing() ? Qt::CrossCursor : Qt::ArrowCursor;
}

// ---- what to repaint

DamageTracker::Frame OverlayScene::frameNow() const {
    DamageTracker::Frame frame;
    frame.now = Clock::now();
    // Only when it can matter: a damaged value is reported where it is used.
    if (!store.items().empty())
        frame.fadeDelay = DrawingStore::fadeSeconds();
    frame.hudVisible = store.isDrawing() && Settings::shared().hudVisible();
    return frame;
}

void OverlayScene::storeChanged() {
    markStale(damage.update(store, geometry_, frameNow()));
    const bool wasInUse = inUse;
    inUse = store.isDrawing() || !store.items().empty() || store.current();
    if (!store.isDrawing()) {
        paintedWhileDrawing = false;
        strokeInk.clear(); // no stroke can be in progress: its memory goes back
    }
    // Thousands of strokes leave the allocator holding memory it would reuse;
    // once nothing is left to show, the system gets it back.
    if (wasInUse && !inUse) {
        layer.clear();
        fading.clear();
        SystemMemory::returnUnused();
    }
}

void OverlayScene::markStale(const QRegion& region) {
    if (region.isEmpty())
        return;
    stale += region;
    if (stale.rectCount() > mostStalePieces)
        stale = stale.boundingRect();
    emit repaintNeeded(region);
}

// ---- painting

void OverlayScene::paint(QPainter& painter, const QRegion& region) {
    const bool everything = (QRegion(QRect(QPoint(), geometry_.size())) - region).isEmpty();
    // A partial repaint must match the pixels around it, which show the drawing
    // as of the last announced change: same moment, same settings.
    const DamageTracker::Frame frame =
        everything || !damage.knowsAnything() ? frameNow() : damage.frame();
    const QRegion changed = damage.update(store, geometry_, frame);
    stale -= region;
    if (everything)
        stale = QRegion();
    else
        markStale(changed - region);

    const QPoint origin = geometry_.topLeft();
    const qreal dpr = painter.device()->devicePixelRatio();
    const std::span<const Item> items = store.items();
    const size_t steady = damage.firstSteady();
    const OverlayLayerCache::Prepainted finished = finishedStroke();
    layer.update(items.subspan(steady), damage.items().subspan(steady), origin, geometry_.size(),
                 dpr, finished);
    if (finished.pixels)
        strokeInk.startOver();
    fading.keepOnly(damage.items().first(steady));

    painter.save();
    painter.setClipRegion(region, Qt::IntersectClip);
    paintVeil(painter, region);
    painter.translate(-QPointF(origin));
    paintFading(painter, region, origin, dpr);
    painter.translate(QPointF(origin));
    layer.paint(painter, region.boundingRect());
    paintCurrent(painter, region, dpr);
    paintHintBar(painter, region);
    painter.restore();
    reportFirstPaint();
}

void OverlayScene::paintVeil(QPainter& painter, const QRegion& region) const {
    // Replaces what the window showed before; while drawing, the veil is too
    // faint to see but keeps the window from being entirely clear.
    // The painter is clipped to the region: one fill covers all its pieces.
    const QColor veil = QColor::fromRgbF(0, 0, 0, store.isDrawing() ? 0.01f : 0.0f);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(region.boundingRect(), veil);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
}

// The fading items are the oldest, so they lie below everything else.
void OverlayScene::paintFading(QPainter& painter, const QRegion& region, QPoint origin, qreal dpr) {
    const std::span<const DrawnItem> drawn = damage.items().first(damage.firstSteady());
    const QRectF area = QRectF(region.boundingRect()).translated(QPointF(origin));
    for (size_t i = 0; i < drawn.size(); ++i) {
        if (drawn[i].alpha <= 0 || !drawn[i].bounds.intersects(area) ||
            !region.intersects(drawn[i].bounds.translated(-QPointF(origin)).toAlignedRect()))
            continue;
        const Item& item = store.items()[i];
        if (!fading.draw(painter, item, drawn[i], origin, dpr, geometry_.size()))
            Renderer::drawWithin(painter, item, drawn[i].alpha, false, area);
    }
}

// The newest item, if it is the stroke whose pixels are in hand already.
OverlayLayerCache::Prepainted OverlayScene::finishedStroke() {
    const std::span<const Item> items = store.items();
    if (items.empty() || !strokeInk.completes(items.back()))
        return {};
    return {items.back().id, &strokeInk.image()};
}

// A freehand stroke is kept in its own image, which takes it to the committed
// layer once it is finished; shapes and text are cheap to paint again.
void OverlayScene::paintCurrent(QPainter& painter, const QRegion& region, qreal dpr) {
    const auto& current = store.current();
    if (!current)
        return;
    const QRect area = region.boundingRect();
    if (isFreehandTool(current->kind) &&
        strokeInk.refresh(*current, area, geometry_.topLeft(), geometry_.size(), dpr)) {
        strokeInk.paint(painter, area);
        return;
    }
    const QPointF origin(geometry_.topLeft());
    painter.translate(-origin);
    Renderer::drawWithin(painter, *current, 1.0, current->kind == Tool::text,
                         QRectF(area).translated(origin));
    painter.translate(origin);
}

void OverlayScene::paintHintBar(QPainter& painter, const QRegion& region) const {
    if (store.isDrawing() && damage.frame().hudVisible && region.intersects(damage.hudRect()))
        Renderer::drawHUD(painter, QRectF(QPointF(), QSizeF(geometry_.size())), store.tool(),
                          store.colorIndex());
}

// For measuring how soon the overlay shows after the shortcut.
void OverlayScene::reportFirstPaint() {
    if (paintedWhileDrawing || !store.isDrawing())
        return;
    paintedWhileDrawing = true;
    FrameStats::shared().firstPaintWhileDrawing();
}

// ---- pointer

void OverlayScene::pointerPressed(QPointF at, Qt::MouseButton button) {
    if (!store.isDrawing() || button != Qt::LeftButton)
        return;
    // Keys follow the pen: after a click the keyboard is here even if another
    // window took it meanwhile.
    emit keyboardWanted();
    if (isTyping())
        store.commitText();
    else if (const auto& current = store.current(); current && !current->points.empty())
        // The release of that stroke went to an output that is gone (its
        // monitor was unplugged mid-stroke): keep the ink rather than replace it.
        store.finishStroke(current->points.back());
    if (store.tool() == Tool::text)
        store.beginText(at);
    else
        store.begin(at);
}

void OverlayScene::pointerMoved(QPointF at, Qt::MouseButtons buttons) {
    if (store.isDrawing() && buttons.testFlag(Qt::LeftButton))
        store.update(at);
}

void OverlayScene::pointerReleased(QPointF at, Qt::MouseButton button) {
    if (store.isDrawing() && button == Qt::LeftButton)
        store.finishStroke(at);
}

// ---- keys

bool OverlayScene::isTyping() const {
    return store.current() && store.current()->kind == Tool::text;
}

QRect OverlayScene::caretRect() const {
    if (!isTyping())
        return {};
    const QRectF line = TextLayout(*store.current(), true).inkBox();
    return QRectF(line.right() - 1, line.top(), 1, line.height())
        .translated(-QPointF(geometry_.topLeft()))
        .toAlignedRect();
}

void OverlayScene::textComposed(const QString& text) {
    keyPressed({0, text, Qt::NoModifier});
}

void OverlayScene::keyPressed(const KeyPress& press) {
    if (!store.isDrawing())
        return;
    const OverlayCommand command = OverlayKeyMap::commandFor(press, isTyping());
    if (command.action == OverlayCommand::Action::stop)
        emit stopRequested();
    else
        DrawingCommands::perform(store, command);
}
