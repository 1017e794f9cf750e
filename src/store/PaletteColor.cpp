#include "PaletteColor.h"

#include "Fatal.h"

const std::vector<PaletteColor>& palette() {
    // Names are data here; the hint bar translates them where it shows them.
    static const std::vector<PaletteColor> entries = {
        {QStringLiteral("Red"), QColor::fromRgbF(1.0f, 0.23f, 0.19f, 1.0f)},
        {QStringLiteral("Yellow"), QColor::fromRgbF(1.0f, 0.84f, 0.04f, 1.0f)},
        {QStringLiteral("Green"), QColor::fromRgbF(0.2f, 0.78f, 0.35f, 1.0f)},
        {QStringLiteral("Blue"), QColor::fromRgbF(0.04f, 0.52f, 1.0f, 1.0f)},
        {QStringLiteral("White"), QColor::fromRgbF(1.0f, 1.0f, 1.0f, 1.0f)},
        {QStringLiteral("Black"), QColor::fromRgbF(0.0f, 0.0f, 0.0f, 1.0f)},
    };
    return entries;
}

const PaletteColor& paletteColor(qsizetype index) {
    const auto& entries = palette();
    if (index < 0 || index >= qsizetype(entries.size()))
        fatalError(QStringLiteral("colour index %1 is outside the palette (0 to %2)")
                       .arg(index)
                       .arg(entries.size() - 1));
    return entries[size_t(index)];
}
