#pragma once

#include "HotKeyBackend.h"

#include <QAbstractNativeEventFilter>
#include <QObject>
#include <functional>
#include <optional>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

// The global shortcut as passive key grabs on the root windows of an X server.
// Every keycode that types the keysym is grabbed for the exact modifiers, once
// per combination of Caps Lock and Num Lock, so the locks don't matter and no
// other modifier set fires. Presses come through Qt's native event filter;
// each physical press is reported once (auto-repeat is ignored), and the grabs
// follow keyboard-mapping changes. The server drops the grabs when the
// connection closes, so nothing outlives the process.
class X11HotKeyBackend : public HotKeyBackend, public QAbstractNativeEventFilter {
public:
    // pressed runs on the main thread, inside the event filter: it must only queue work.
    X11HotKeyBackend(xcb_connection_t* connection, std::function<void()> pressed);
    ~X11HotKeyBackend() override;
    X11HotKeyBackend(const X11HotKeyBackend&) = delete;
    X11HotKeyBackend& operator=(const X11HotKeyBackend&) = delete;

    bool grab(quint32 keysym, quint32 modifiers) override;
    void release() override;
    bool isGrabbed() const override;
    QList<quint32> keysymsOfKey(quint32 nativeKeyCode) override;
    Kind kind() const override { return Kind::grab; }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

private:
    struct Shortcut {
        quint32 keysym;
        quint32 modifiers;
    };
    struct ModifierBits {
        uint16_t alt = XCB_MOD_MASK_1;
        uint16_t super = XCB_MOD_MASK_4;
        uint16_t numLock = 0;
    };
    struct Grabbed {
        QList<xcb_keycode_t> keycodes;
        uint16_t modifiers = 0;
        QList<uint16_t> lockCombinations;
        bool operator==(const Grabbed&) const = default;
    };

    xcb_key_symbols_t* keySymbols();
    void readModifierMap();
    QList<xcb_keycode_t> keycodesTyping(quint32 keysym);
    uint16_t xModifiers(quint32 modifiers) const;
    QList<uint16_t> lockCombinations() const;
    bool grabShortcut(const Shortcut& shortcut);
    void ungrab();
    void ungrabAllBut(const Grabbed& old, const std::optional<Grabbed>& kept);
    void sync();

    bool isRootWindow(xcb_window_t window) const;
    bool isKeyboardMappingChange(const xcb_generic_event_t* event) const;
    bool handleKeyPress(const xcb_key_press_event_t* event);
    bool handleKeyRelease(const xcb_key_release_event_t* event);
    void scheduleRegrab();
    void regrab();

    xcb_connection_t* connection;
    std::function<void()> pressed;
    QList<xcb_window_t> roots;
    xcb_key_symbols_t* symbols = nullptr;
    ModifierBits bits;
    uint8_t xkbFirstEvent = 0;

    std::optional<Shortcut> wanted;
    std::optional<Grabbed> grabbed;

    // Auto-repeat comes as more presses without a release, or (without
    // detectable auto-repeat) as a release and a press with the same timestamp.
    bool keyDown = false;
    xcb_keycode_t releasedKeycode = 0;
    xcb_timestamp_t releaseTime = 0;

    bool regrabQueued = false;
    QObject queueContext;
};
