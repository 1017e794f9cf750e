#pragma once

#include "Item.h"
#include "PaletteColor.h"

#include <QSize>
#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

// Hand-drawn-looking pen strokes for the benchmarks: a wandering walk of short
// steps, like a pen moved at a steady pace, spread over a 1920x1080 screen.
namespace SampleStrokes {

inline constexpr QSize screenSize{1920, 1080};
inline constexpr int pointsPerStroke = 200;

inline Item penStroke(std::mt19937& random, int colorIndex, int points = pointsPerStroke) {
    std::uniform_real_distribution<qreal> x(100, screenSize.width() - 100);
    std::uniform_real_distribution<qreal> y(100, screenSize.height() - 100);
    std::uniform_real_distribution<qreal> turn(-0.35, 0.35);
    Item item;
    item.kind = Tool::pen;
    item.color = paletteColor(colorIndex % 6).color;
    item.width = 4;
    QPointF point(x(random), y(random));
    qreal heading = turn(random) * 18;
    for (int i = 0; i < points; ++i) {
        item.points.push_back(point);
        heading += turn(random);
        point += QPointF(std::cos(heading), std::sin(heading)) * 3.0;
        point.setX(std::clamp(point.x(), 0.0, qreal(screenSize.width())));
        point.setY(std::clamp(point.y(), 0.0, qreal(screenSize.height())));
    }
    return item;
}

inline std::vector<Item> strokes(int count, unsigned seed = 20240601) {
    std::mt19937 random(seed);
    std::vector<Item> items;
    for (int i = 0; i < count; ++i)
        items.push_back(penStroke(random, i));
    return items;
}

} // namespace SampleStrokes
