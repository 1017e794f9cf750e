#pragma once

#include "HotKeyConfig.h"

#include <QList>
#include <functional>
#include <memory>

class HotKeyBackend;

// The one system-wide hot key. Presses are delivered once each, queued to the
// main thread, to onPress (read when the press is handled, not when it arrived).
// The platform's facility is installed at start-up; until then, and where
// there is none, every shortcut is refused.
class HotKeyManager {
public:
    static HotKeyManager& shared();

    std::function<void()> onPress;
    // Called, like onPress, when what the shortcut is changed without being
    // asked here: a desktop that bound it, or gave none.
    std::function<void()> onChange;

    // Removes the active hot key first, then tries config: a refused shortcut
    // leaves no hot key at all. ("register" is a reserved word in C++.)
    bool registerHotKey(const HotKeyConfig& config);
    void unregister();
    bool isRegistered() const;

    // For reading key presses: what a hardware key code types in the current
    // keymap, unshifted first; empty without a keymap (no X11).
    QList<quint32> keysymsOfKey(quint32 nativeKeyCode) const;

    // Whether the desktop, rather than this program, decides the shortcut
    // (a Wayland portal), or whether there is none to be had.
    bool isDecidedByDesktop() const;
    bool isUnavailable() const;
    // The combination the desktop bound, in its words; empty where this
    // program grabs its keys or the desktop has not answered.
    QString desktopTrigger() const;
    // The shortcut as it stands, for the user: the keys in force, the ones the
    // desktop bound, or why there is none.
    QString describe(const HotKeyConfig& wanted) const;

    // The platform's facility, chosen once at start-up; any hot key goes.
    void setBackend(std::unique_ptr<HotKeyBackend> platform);
    // What a backend calls for a press: queues onPress to the main thread.
    static void pressed();
    // What a backend calls when its answer arrives: queues onChange.
    static void changed();

private:
    HotKeyManager();
    ~HotKeyManager();
    std::unique_ptr<HotKeyBackend> backend;
};
