#pragma once

#include "Tool.h"

#include <QString>

// What a key asks of the drawing while drawing mode is on.
struct OverlayCommand {
    enum class Action {
        none,
        stop,
        commitText,
        deleteCharacter,
        typeText,
        selectTool,
        selectColor,
        narrower,
        wider,
        undo,
        clear,
        toggleHintBar,
    };

    Action action = Action::none;
    Tool tool = Tool::pen; // selectTool
    qint64 number = 0;     // selectColor, 1-based as on the keys
    QString text;          // typeText

    bool operator==(const OverlayCommand& other) const = default;
};
