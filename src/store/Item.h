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

    bool operator==(const Item& other) const;
};
