#pragma once

#include <QColor>
#include <QString>
#include <vector>

struct PaletteColor {
    QString name;
    QColor color;
};

// The six fixed sRGB colours, Red, Yellow, Green, Blue, White, Black (indices 0 to 5).
const std::vector<PaletteColor>& palette();

// The entry at index; an index outside the palette is a fatal programming error.
const PaletteColor& paletteColor(qsizetype index);
