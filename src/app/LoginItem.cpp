#include "LoginItem.h"

#include "NullLoginItem.h"
#include "XdgAutostartLoginItem.h"

std::unique_ptr<LoginItem> LoginItem::forThisDesktop() {
#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
    return std::make_unique<XdgAutostartLoginItem>();
#else
    return std::make_unique<NullLoginItem>();
#endif
}
