#include "NullLoginItem.h"

#include <QCoreApplication>

LoginItem::Failure NullLoginItem::registerItem() {
    return QCoreApplication::translate("LoginItem",
                                       "This system offers no way to start programs at login.");
}

LoginItem::Failure NullLoginItem::unregisterItem() {
    return registerItem();
}
