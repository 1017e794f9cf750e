#pragma once

#include "Tool.h"

#include <QColor>
#include <QPointF>
#include <QString>
#include <optional>
#include <vector>

// One annotation, a plain value. Points are in virtual-desktop coordinates
// (y down, device-independent pixels). For text items width is the font size.
struct Item {
    Tool kind = Tool::pen;
    std::vector<QPointF> points;
    QColor color;
    qreal width = 0;
    QString text;
    std::optional<double> finishedAt;
    // Given by the store when the item is committed, unique for the store's
    // lifetime; 0 for an item in progress. Not part of the item's value.
    quint64 id = 0;

    bool operator==(const Item& other) const;
};
