#include "DrawingCommands.h"

#include "DrawingStore.h"
#include "PaletteColor.h"
#include "Settings.h"

#include <algorithm>

namespace {

constexpr qreal narrowest = 2;
constexpr qreal widest = 16;
} // namespace

namespace DrawingCommands {

void selectTool(DrawingStore& store, Tool tool) {
    store.setTool(tool);
}

bool selectColor(DrawingStore& store, qint64 number) {
    if (number < 1 || number > static_cast<qint64>(palette().size()))
        return false;
    store.setColorIndex(static_cast<int>(number - 1));
    return true;
}

qreal allowedWidth(qreal width) {
    return std::clamp(width, narrowest, widest);
}

void narrower(DrawingStore& store) {
    store.setWidth(allowedWidth(store.width() - 1));
}

void wider(DrawingStore& store) {
    store.setWidth(allowedWidth(store.width() + 1));
}

void toggleHintBar(DrawingStore& store) {
    setHintBar(store, !Settings::shared().hudVisible());
}

void setHintBar(DrawingStore& store, bool visible) {
    Settings::shared().setHudVisible(visible);
    store.announceDisplayChange();
}

void setFadeSeconds(DrawingStore& store, double seconds) {
    Settings::shared().setFadeSeconds(seconds);
    store.announceDisplayChange();
}

// The store announces these itself.
void undo(DrawingStore& store) {
    store.undo();
}

void clear(DrawingStore& store) {
    store.clear();
}

void perform(DrawingStore& store, const OverlayCommand& command) {
    using Action = OverlayCommand::Action;
    switch (command.action) {
    case Action::none:
    case Action::stop:
        return;
    case Action::commitText:
        return store.commitText();
    case Action::deleteCharacter:
        return store.deleteLastCharacter();
    case Action::typeText:
        return store.appendText(command.text);
    case Action::selectTool:
        return selectTool(store, command.tool);
    case Action::selectColor:
        selectColor(store, command.number);
        return;
    case Action::narrower:
        return narrower(store);
    case Action::wider:
        return wider(store);
    case Action::undo:
        return undo(store);
    case Action::clear:
        return clear(store);
    case Action::toggleHintBar:
        return toggleHintBar(store);
    }
}

} // namespace DrawingCommands
