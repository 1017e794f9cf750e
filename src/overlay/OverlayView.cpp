#include "OverlayView.h"

#include "Clock.h"
#include "DrawingCommands.h"
#include "DrawingStore.h"
#include "OverlayController.h"
#include "OverlayWindow.h"
#include "Renderer.h"
#include "Settings.h"
#include "SystemMemory.h"

#include <QKeyEvent>
#include <QPainter>
#include <QRegularExpression>
#include <chrono>
#include <cstdio>
#include <optional>

namespace {

// Typed text without control characters and without the private-use range
// some systems report special keys in; what is left may be empty.
QString printableText(const QString& text) {
    QList<char32_t> kept;
    for (char32_t scalar : text.toUcs4()) {
        const bool control = scalar < 0x20 || scalar == 0x7f;
        const bool specialKey = scalar >= 0xf700 && scalar <= 0xf8ff;
        if (!control && !specialKey)
            kept.append(scalar);
    }
    return QString::fromUcs4(kept.constData(), kept.size());
}

// The key's own character, lower-cased, as if Ctrl and Alt were not held
// (Shift still counts, so Shift+1 is "!"): Qt's key() already ignores those
// modifiers and gives letters in upper case.
QString commandCharacters(const QKeyEvent& event) {
    const int key = event.key();
    if (key == Qt::Key_Tab)
        return QStringLiteral("\t");
    if (key <= 0 || key >= Qt::Key_Escape)
        return {};
    const char32_t scalar = static_cast<char32_t>(key);
    return QString::fromUcs4(&scalar, 1).toLower();
}

// An optional sign and decimal digits that fit 64 bits, nothing else.
std::optional<qint64> decimalNumber(const QString& text) {
    static const QRegularExpression pattern(QStringLiteral("^[+-]?[0-9]+$"));
    if (!pattern.match(text).hasMatch())
        return std::nullopt;
    bool ok = false;
    const qint64 number = text.toLongLong(&ok, 10);
    return ok ? std::optional(number) : std::nullopt;
}

bool isCommandHeld(const QKeyEvent& event) {
    return event.modifiers().testFlag(Qt::ControlModifier);
}

// A stale area in this many pieces is handled as one rect around them.
constexpr int mostStalePieces = 4096;

} // namespace

OverlayView::OverlayView(DrawingStore& store, QWidget* parent) : QWidget(parent), store(store) {
    setFocusPolicy(Qt::StrongFocus);
    connect(&store, &DrawingStore::drawingStoreChanged, this, &OverlayView::storeChanged);
    // A setting edited while ink shows (in the Settings window, or in the file).
    connect(&Settings::shared(), &Settings::changed, this, [this](Settings::Key key) {
        if (key == Settings::Key::fadeSeconds || key == Settings::Key::hudVisible)
            storeChanged();
    });
    updateCursor();
}

void OverlayView::updateCursor() {
    if (store.isDrawing())
        setCursor(Qt::CrossCursor);
    else
        unsetCursor();
}

// ---- what to repaint

DamageTracker::Frame OverlayView::frameNow() const {
    DamageTracker::Frame frame;
    frame.now = Clock::now();
    // Only when it can matter: a damaged value is reported where it is used.
    if (!store.items().empty())
        frame.fadeDelay = DrawingStore::fadeSeconds();
    frame.hudVisible = store.isDrawing() && Settings::shared().hudVisible();
    return frame;
}

QRect OverlayView::geometryOnDesktop() const {
    return QRect(mapToGlobal(QPoint(0, 0)), size());
}

void OverlayView::storeChanged() {
    markStale(damage.update(store, geometryOnDesktop(), frameNow()));
    const bool wasInUse = inUse;
    inUse = store.isDrawing() || !store.items().empty() || store.current();
    // Thousands of strokes leave the allocator holding memory it would reuse;
    // once nothing is left to show, the system gets it back.
    if (wasInUse && !inUse)
        SystemMemory::returnUnused();
}

void OverlayView::markStale(const QRegion& region) {
    if (region.isEmpty())
        return;
    stale += region;
    if (stale.rectCount() > mostStalePieces)
        stale = stale.boundingRect();
    update(region);
}

// ---- painting

void OverlayView::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    paint(painter, event->region());
    reportFirstPaint();
}

void OverlayView::paint(QPainter& painter, const QRegion& region) {
    const bool everything = (QRegion(rect()) - region).isEmpty();
    // A partial repaint must match the pixels around it, which show the drawing
    // as of the last announced change: same moment, same settings.
    const DamageTracker::Frame frame =
        everything || !damage.knowsAnything() ? frameNow() : damage.frame();
    const QRegion changed = damage.update(store, geometryOnDesktop(), frame);
    stale -= region;
    if (everything)
        stale = QRegion();
    else
        markStale(changed - region);

    const QPoint origin = geometryOnDesktop().topLeft();
    const qreal dpr = painter.device()->devicePixelRatio();
    const std::span<const Item> items = store.items();
    const size_t steady = damage.firstSteady();
    layer.update(items.subspan(steady), damage.items().subspan(steady), origin, size(), dpr);
    fading.keepOnly(damage.items().first(steady));

    painter.save();
    painter.setClipRegion(region, Qt::IntersectClip);
    paintVeil(painter, region);
    painter.translate(-QPointF(origin));
    paintFading(painter, region, origin, dpr);
    painter.translate(QPointF(origin));
    layer.paint(painter, region.boundingRect());
    painter.translate(-QPointF(origin));
    paintCurrent(painter, region, origin);
    painter.translate(QPointF(origin));
    paintHintBar(painter, region);
    painter.restore();
}

void OverlayView::paintVeil(QPainter& painter, const QRegion& region) const {
    // Replaces what the window showed before; while drawing, the veil is too
    // faint to see but keeps the window from being entirely clear.
    // The painter is clipped to the region: one fill covers all its pieces.
    const QColor veil = QColor::fromRgbF(0, 0, 0, store.isDrawing() ? 0.01f : 0.0f);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(region.boundingRect(), veil);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
}

// The fading items are the oldest, so they lie below everything else.
void OverlayView::paintFading(QPainter& painter, const QRegion& region, QPoint origin, qreal dpr) {
    const std::span<const DrawnItem> drawn = damage.items().first(damage.firstSteady());
    const QRectF area = QRectF(region.boundingRect()).translated(QPointF(origin));
    for (size_t i = 0; i < drawn.size(); ++i) {
        if (drawn[i].alpha <= 0 || !drawn[i].bounds.intersects(area) ||
            !region.intersects(drawn[i].bounds.translated(-QPointF(origin)).toAlignedRect()))
            continue;
        const Item& item = store.items()[i];
        if (!fading.draw(painter, item, drawn[i], origin, dpr, size()))
            Renderer::drawWithin(painter, item, drawn[i].alpha, false, area);
    }
}

void OverlayView::paintCurrent(QPainter& painter, const QRegion& region, QPoint origin) const {
    const auto& current = store.current();
    if (!current)
        return;
    const QRectF area = QRectF(region.boundingRect()).translated(QPointF(origin));
    Renderer::drawWithin(painter, *current, 1.0, current->kind == Tool::text, area);
}

void OverlayView::paintHintBar(QPainter& painter, const QRegion& region) const {
    if (store.isDrawing() && damage.frame().hudVisible && region.intersects(damage.hudRect()))
        Renderer::drawHUD(painter, QRectF(rect()), store.tool(), store.colorIndex());
}

// For measuring how soon the overlay shows after the shortcut: with
// QUILLERY_TRACE_PAINT set, the first paint while drawing says when it happened.
void OverlayView::reportFirstPaint() {
    static const bool tracing = qEnvironmentVariableIsSet("QUILLERY_TRACE_PAINT");
    if (!tracing || paintedWhileDrawing || !store.isDrawing())
        return;
    paintedWhileDrawing = true;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    std::fprintf(stderr, "quillery: overlay painted at %.3f\n",
                 std::chrono::duration<double>(now).count());
}

// ---- mouse

void OverlayView::mousePressEvent(QMouseEvent* event) {
    event->accept();
    if (!store.isDrawing() || event->button() != Qt::LeftButton)
        return;
    // Keys follow the pen: after a click the keyboard is here even if another
    // window took it meanwhile.
    if (!hasFocus()) {
        if (auto* overlay = qobject_cast<OverlayWindow*>(window()))
            overlay->makeKey();
    }
    const QPointF at = event->globalPosition();
    if (isTyping())
        store.commitText();
    else if (const auto& current = store.current(); current && !current->points.empty())
        // The release of that stroke went to a window that is gone (its monitor
        // was unplugged mid-stroke): keep the ink rather than replace it.
        store.finishStroke(current->points.back());
    if (store.tool() == Tool::text)
        store.beginText(at);
    else
        store.begin(at);
}

void OverlayView::mouseMoveEvent(QMouseEvent* event) {
    event->accept();
    if (store.isDrawing() && event->buttons().testFlag(Qt::LeftButton))
        store.update(event->globalPosition());
}

void OverlayView::mouseReleaseEvent(QMouseEvent* event) {
    event->accept();
    if (store.isDrawing() && event->button() == Qt::LeftButton)
        store.finishStroke(event->globalPosition());
}

// ---- keys

// Tab is a drawing command here, not a move to the next widget.
bool OverlayView::focusNextPrevChild(bool) {
    return false;
}

bool OverlayView::isTyping() const {
    return store.current() && store.current()->kind == Tool::text;
}

void OverlayView::keyPressEvent(QKeyEvent* event) {
    event->accept();
    if (!store.isDrawing())
        return;
    if (event->key() == Qt::Key_Escape)
        OverlayController::shared().stop();
    else if (isTyping())
        typeKey(*event);
    else
        runCommand(*event);
}

void OverlayView::typeKey(const QKeyEvent& event) {
    switch (event.key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        store.commitText();
        return;
    case Qt::Key_Backspace:
        store.deleteLastCharacter();
        return;
    default:
        break;
    }
    if (isCommandHeld(event))
        return;
    const QString text = printableText(event.text());
    if (!text.isEmpty())
        store.appendText(text);
}

void OverlayView::runCommand(const QKeyEvent& event) {
    const QString key = commandCharacters(event);
    if (key.isEmpty())
        return;
    if (isCommandHeld(event)) {
        if (key == QLatin1String("z"))
            DrawingCommands::undo(store);
        return;
    }
    static const std::pair<QLatin1String, Tool> toolKeys[] = {
        {QLatin1String("p"), Tool::pen},         {QLatin1String("a"), Tool::arrow},
        {QLatin1String("e"), Tool::ellipse},     {QLatin1String("r"), Tool::rect},
        {QLatin1String("h"), Tool::highlighter}, {QLatin1String("t"), Tool::text}};
    for (const auto& [character, tool] : toolKeys) {
        if (key == character) {
            DrawingCommands::selectTool(store, tool);
            return;
        }
    }
    if (key == QLatin1String("c"))
        DrawingCommands::clear(store);
    else if (key == QLatin1String("u"))
        DrawingCommands::undo(store);
    else if (key == QLatin1String("["))
        DrawingCommands::narrower(store);
    else if (key == QLatin1String("]"))
        DrawingCommands::wider(store);
    else if (key == QLatin1String("\t"))
        DrawingCommands::toggleHintBar(store);
    else if (const auto number = decimalNumber(key))
        DrawingCommands::selectColor(store, *number);
}
