#include "OverlayHost.h"

#include "BackendSlot.h"

OverlayHost& OverlayHost::current() {
    return BackendSlot<OverlayHost>::current("overlay host");
}

void OverlayHost::install(std::unique_ptr<OverlayHost> host) {
    BackendSlot<OverlayHost>::install(std::move(host));
}
