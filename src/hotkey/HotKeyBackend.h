#pragma once

#include <QList>
#include <QString>
#include <QtGlobal>

// The platform's global-shortcut facility. One exists per process, chosen when
// the hot key manager starts; it holds at most one shortcut.
class HotKeyBackend {
public:
    virtual ~HotKeyBackend() = default;

    // Takes the key that types keysym, with exactly the Ctrl (0x1000), Alt
    // (0x800), Shift (0x200) and Super (0x100) bits of modifiers, whatever the
    // lock keys. False when the key is not on the keyboard or something else
    // holds the combination; nothing is held then.
    virtual bool grab(quint32 keysym, quint32 modifiers) = 0;
    virtual void release() = 0;
    virtual bool isGrabbed() const = 0;

    // The keysyms a hardware key code types, in the keymap's order of groups and
    // shift levels (unshifted first); empty where the keymap can't be read.
    virtual QList<quint32> keysymsOfKey(quint32 nativeKeyCode) = 0;

    // Who decides the shortcut: this program, grabbing the keys itself (X11);
    // the desktop, asked through its portal (Wayland); or nobody, since the
    // desktop lets no program have one.
    enum class Kind { grab, desktop, none };
    virtual Kind kind() const = 0;
    // The combination the desktop bound, in its own words; empty until it
    // answers, and for a backend that grabs keys itself.
    virtual QString desktopTrigger() const { return {}; }
};
