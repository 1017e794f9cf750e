#pragma once

#include "DrawingStore.h"
#include "PaletteColor.h"

#include <QString>
#include <algorithm>

// Runs the store's fade tick at once instead of waiting for its timer.
class FadeTicker {
public:
    static void tick(DrawingStore& store) { store.tick(); }
};

// What must hold of the drawing after any sequence of operations; an empty
// string when it does, else the first thing that doesn't.
namespace ModelInvariants {

inline QString itemProblem(const Item& item) {
    if (item.points.empty())
        return QStringLiteral("an item without points");
    if (isShapeTool(item.kind) && item.points.size() > 2)
        return QStringLiteral("a shape with %1 points").arg(item.points.size());
    if (item.kind == Tool::text && item.points.size() != 1)
        return QStringLiteral("a text with %1 points").arg(item.points.size());
    if (item.kind != Tool::text && !item.text.isEmpty())
        return QStringLiteral("text on a %1 item").arg(rawValue(item.kind));
    return {};
}

inline QString check(const DrawingStore& store) {
    if (store.colorIndex() < 0 || store.colorIndex() >= qsizetype(palette().size()))
        return QStringLiteral("colour index %1").arg(store.colorIndex());
    const std::vector<Item>& items = store.items();
    for (size_t i = 0; i < items.size(); ++i) {
        const Item& item = items[i];
        if (const QString problem = itemProblem(item); !problem.isEmpty())
            return QStringLiteral("item %1: %2").arg(i).arg(problem);
        if (!item.finishedAt)
            return QStringLiteral("item %1 was committed without finishedAt").arg(i);
        if (i > 0 && *item.finishedAt < *items[i - 1].finishedAt)
            return QStringLiteral("item %1 is out of commit order").arg(i);
        if (isShapeTool(item.kind) && item.points.size() != 2)
            return QStringLiteral("committed shape %1 with %2 points")
                .arg(i)
                .arg(item.points.size());
        if (item.kind == Tool::text && item.text.isEmpty())
            return QStringLiteral("committed empty text %1").arg(i);
    }
    if (const auto& current = store.current()) {
        if (const QString problem = itemProblem(*current); !problem.isEmpty())
            return QStringLiteral("current: %1").arg(problem);
        if (current->finishedAt)
            return QStringLiteral("the item in progress has finishedAt");
        if (std::find(items.begin(), items.end(), *current) != items.end())
            return QStringLiteral("the item in progress is also committed");
    }
    // Whatever is committed and may fade needs the timer that fades it.
    if (!items.empty() && DrawingStore::fadeSeconds() > 0 && !store.isTimerRunning())
        return QStringLiteral("%1 items but no fade timer").arg(items.size());
    return {};
}

// After the keys have had their say, the width is within its bounds.
inline QString checkWidth(const DrawingStore& store) {
    if (!(store.width() >= 2 && store.width() <= 16))
        return QStringLiteral("width %1").arg(store.width());
    return {};
}

} // namespace ModelInvariants
