#pragma once

#include "HotKeyConfig.h"

#include <functional>
#include <memory>

class HotKeyBackend;

// The one system-wide hot key. Presses are delivered once each, queued to the
// main thread, to onPress (read when the press is handled, not when it arrived).
class HotKeyManager {
public:
    static HotKeyManager& shared();

    std::function<void()> onPress;

    // Removes the active hot key first, then tries config: a refused shortcut
    // leaves no hot key at all. ("register" is a reserved word in C++.)
    bool registerHotKey(const HotKeyConfig& config);
    void unregister();
    bool isRegistered() const;

private:
    HotKeyManager();
    ~HotKeyManager();
    std::unique_ptr<HotKeyBackend> backend;
};
