#pragma once

#include <QString>
#include <Qt>

// One key press as any overlay host reports it: the key (Qt::Key), the text it
// types in the layout in use (empty for keys that type nothing), and the
// modifiers held.
struct KeyPress {
    int key = 0;
    QString text;
    Qt::KeyboardModifiers modifiers;
};
