#include "NullHotKeyBackend.h"

bool NullHotKeyBackend::grab(quint32, quint32) {
    return false;
}

void NullHotKeyBackend::release() {}

bool NullHotKeyBackend::isGrabbed() const {
    return false;
}

QList<quint32> NullHotKeyBackend::keysymsOfKey(quint32) {
    return {};
}
