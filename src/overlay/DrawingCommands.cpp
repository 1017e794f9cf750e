#include "DrawingCommands.h"

#include "Defaults.h"
#include "DrawingStore.h"
#include "NotificationCenter.h"
#include "PaletteColor.h"

#include <algorithm>

namespace {

constexpr qreal narrowest = 2;
constexpr qreal widest = 16;
const QString hudVisibleKey = QStringLiteral("hudVisible");

void announce() {
    NotificationCenter::defaultCenter().post(drawingStoreChanged);
}

} // namespace

namespace DrawingCommands {

void selectTool(DrawingStore& store, Tool tool) {
    store.tool = tool;
    announce();
}

bool selectColor(DrawingStore& store, qint64 number) {
    if (number < 1 || number > static_cast<qint64>(palette().size()))
        return false;
    store.colorIndex = static_cast<int>(number - 1);
    announce();
    return true;
}

void narrower(DrawingStore& store) {
    store.width = std::max(store.width - 1, narrowest);
    announce();
}

void wider(DrawingStore& store) {
    store.width = std::min(store.width + 1, widest);
    announce();
}

void toggleHintBar() {
    Defaults::setValue(hudVisibleKey, !Defaults::boolValue(hudVisibleKey));
    announce();
}

// The store announces these itself.
void undo(DrawingStore& store) {
    store.undo();
}

void clear(DrawingStore& store) {
    store.clear();
}

} // namespace DrawingCommands
