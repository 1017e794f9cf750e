#include "Item.h"

bool Item::operator==(const Item& other) const {
    return kind == other.kind && points == other.points && color == other.color &&
           width == other.width && text == other.text && finishedAt == other.finishedAt;
}
