#include "DrawnItem.h"

#include "Renderer.h"

DrawnItem::Key DrawnItem::Key::of(const Item& item) {
    return Key{item.id, item.finishedAt.value_or(0)};
}

namespace {

// Points per piece of a long stroke: enough pieces to follow its turns,
// few enough to keep the areas to repaint simple.
constexpr size_t pointsPerPiece = 12;

std::vector<QRectF> piecesOf(const Item& item, const QRectF& bounds) {
    const bool freehand = item.kind == Tool::pen || item.kind == Tool::highlighter;
    if (!freehand || item.points.size() <= pointsPerPiece)
        return {bounds};
    std::vector<QRectF> pieces;
    Item piece = item;
    for (size_t start = 0; start + 1 < item.points.size(); start += pointsPerPiece) {
        const size_t end = std::min(item.points.size(), start + pointsPerPiece + 1);
        piece.points.assign(item.points.begin() + qsizetype(start),
                            item.points.begin() + qsizetype(end));
        pieces.push_back(Renderer::itemBounds(piece, false));
    }
    return pieces;
}

} // namespace

DrawnItem DrawnItem::of(const Item& item) {
    DrawnItem drawn{Key::of(item), Renderer::itemBounds(item, false), {}, 1.0};
    drawn.pieces = piecesOf(item, drawn.bounds);
    return drawn;
}
