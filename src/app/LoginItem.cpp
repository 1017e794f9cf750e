#include "LoginItem.h"

#include "XdgAutostartLoginItem.h"

// Every desktop Quillery runs on reads XDG autostart entries.
std::unique_ptr<LoginItem> LoginItem::forThisDesktop() {
    return std::make_unique<XdgAutostartLoginItem>();
}
