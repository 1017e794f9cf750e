#pragma once

#include "HotKeyBackend.h"

// Where there is no global-shortcut facility (a Wayland session without X11,
// no display at all): nothing can be grabbed, nothing ever fires.
class NullHotKeyBackend : public HotKeyBackend {
public:
    bool grab(quint32 keysym, quint32 modifiers) override;
    void release() override;
    bool isGrabbed() const override;
    QList<quint32> keysymsOfKey(quint32 nativeKeyCode) override;
    Kind kind() const override { return Kind::none; }
};
