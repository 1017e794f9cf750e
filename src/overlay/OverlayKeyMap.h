#pragma once

#include "KeyPress.h"
#include "OverlayCommand.h"

// The keys of drawing mode, as data: which command a key press asks for.
// While a text is being typed, keys type into it (Return commits, Backspace
// deletes); otherwise letters, digits and brackets are commands. Esc stops in
// both cases, whatever the modifiers; Ctrl (the primary shortcut modifier)
// with Z undoes, with anything else does nothing.
namespace OverlayKeyMap {
OverlayCommand commandFor(const KeyPress& press, bool typing);
} // namespace OverlayKeyMap
