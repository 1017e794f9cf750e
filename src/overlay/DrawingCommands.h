#pragma once

#include "OverlayCommand.h"
#include "Tool.h"

class DrawingStore;

// The drawing-mode commands shared by the overlay's keys and the remote
// commands, so that both go the same way. Each announces the change it makes.
namespace DrawingCommands {
void selectTool(DrawingStore& store, Tool tool);
// number is 1-based, as on the keys; outside 1..palette size nothing happens.
bool selectColor(DrawingStore& store, qint64 number);
// The widths the keys reach, 2 to 16; any other width is moved into that range.
qreal allowedWidth(qreal width);
void narrower(DrawingStore& store); // "[": width - 1, not below 2
void wider(DrawingStore& store);    // "]": width + 1, not above 16
void toggleHintBar(DrawingStore& store);
// Settings that change what the overlay shows: saved, then shown at once.
void setHintBar(DrawingStore& store, bool visible);
void setFadeSeconds(DrawingStore& store, double seconds);
void undo(DrawingStore& store);
void clear(DrawingStore& store);
// Carries out a key's command. Stopping is left to whoever owns drawing mode.
void perform(DrawingStore& store, const OverlayCommand& command);
} // namespace DrawingCommands
