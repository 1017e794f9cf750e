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
    // The shortcut as it stands, for the user: the keys in force, the ones the
    // desktop bound, or why there is none.
    QString describe(const HotKeyConfig& wanted) const;

    // The platform's facility, chosen once at start-up; any hot key goes.
    void setBackend(std::unique_ptr<HotKeyBackend> platform);
    // What a backend calls for a press: queues onPress to the main thread.
    static void pressed();

private:
    HotKeyManager();
    ~HotKeyManager();
    std::unique_ptr<HotKeyBackend> backend;
};
