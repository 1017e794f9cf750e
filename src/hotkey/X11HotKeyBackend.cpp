#include "X11HotKeyBackend.h"

#include "HotKeyConfig.h"
#include "KeyTable.h"

#include <QCoreApplication>
#include <X11/keysym.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};
template <typename T> using XcbReply = std::unique_ptr<T, FreeDeleter>;

// Only the eight core modifiers take part in grabs; the rest of an event's
// state is pointer buttons and the keyboard group.
constexpr uint16_t coreModifiers = 0xff;

// The XKB extension's own event codes, for keymap changes that XKB-aware
// clients such as Qt receive instead of the core MappingNotify.
constexpr uint8_t xkbNewKeyboardNotify = 0;
constexpr uint8_t xkbMapNotify = 1;

constexpr int columnsPerKey = 4; // two groups, unshifted and shifted

uint16_t lowestBit(uint16_t mask) {
    return mask & static_cast<uint16_t>(-mask);
}

} // namespace

X11HotKeyBackend::X11HotKeyBackend(xcb_connection_t* connection, std::function<void()> pressed)
    : connection(connection), pressed(std::move(pressed)) {
    for (auto it = xcb_setup_roots_iterator(xcb_get_setup(connection)); it.rem;
         xcb_screen_next(&it))
        roots.append(it.data->root);

    static const char xkbName[] = "XKEYBOARD";
    const XcbReply<xcb_query_extension_reply_t> xkb(xcb_query_extension_reply(
        connection, xcb_query_extension(connection, std::strlen(xkbName), xkbName), nullptr));
    if (xkb && xkb->present)
        xkbFirstEvent = xkb->first_event;

    readModifierMap();
    QCoreApplication::instance()->installNativeEventFilter(this);
}

X11HotKeyBackend::~X11HotKeyBackend() {
    // The connection lives as long as the application; without it the server
    // has already dropped every grab.
    if (QCoreApplication* app = QCoreApplication::instance()) {
        app->removeNativeEventFilter(this);
        ungrab();
    }
    if (symbols)
        xcb_key_symbols_free(symbols);
}

bool X11HotKeyBackend::grab(quint32 keysym, quint32 modifiers) {
    release();
    wanted = Shortcut{keysym, modifiers};
    if (grabShortcut(*wanted))
        return true;
    wanted.reset();
    return false;
}

void X11HotKeyBackend::release() {
    wanted.reset();
    ungrab();
}

bool X11HotKeyBackend::isGrabbed() const {
    return grabbed.has_value();
}

QList<quint32> X11HotKeyBackend::keysymsOfKey(quint32 nativeKeyCode) {
    const xcb_setup_t* setup = xcb_get_setup(connection);
    if (nativeKeyCode < setup->min_keycode || nativeKeyCode > setup->max_keycode)
        return {};
    QList<quint32> keysyms;
    for (int column = 0; column < columnsPerKey; ++column)
        keysyms.append(xcb_key_symbols_get_keysym(
            keySymbols(), static_cast<xcb_keycode_t>(nativeKeyCode), column));
    return keysyms;
}

xcb_key_symbols_t* X11HotKeyBackend::keySymbols() {
    if (!symbols)
        symbols = xcb_key_symbols_alloc(connection);
    return symbols;
}

// Which of Mod1..Mod5 mean Alt, Super and Num Lock differs between keymaps.
void X11HotKeyBackend::readModifierMap() {
    bits = ModifierBits{};
    const XcbReply<xcb_get_modifier_mapping_reply_t> map(
        xcb_get_modifier_mapping_reply(connection, xcb_get_modifier_mapping(connection), nullptr));
    if (!map)
        return;
    const xcb_keycode_t* keycodes = xcb_get_modifier_mapping_keycodes(map.get());
    const int perModifier = map->keycodes_per_modifier;
    uint16_t alt = 0, super = 0, numLock = 0;
    for (int modifier = XCB_MAP_INDEX_1; modifier <= XCB_MAP_INDEX_5; ++modifier) {
        const auto mask = static_cast<uint16_t>(1u << modifier);
        for (int i = 0; i < perModifier; ++i) {
            const xcb_keycode_t keycode = keycodes[modifier * perModifier + i];
            if (keycode == 0)
                continue;
            for (int column = 0; column < columnsPerKey; ++column) {
                const xcb_keysym_t keysym =
                    xcb_key_symbols_get_keysym(keySymbols(), keycode, column);
                if (keysym == XK_Alt_L || keysym == XK_Alt_R)
                    alt |= mask;
                else if (keysym == XK_Super_L || keysym == XK_Super_R)
                    super |= mask;
                else if (keysym == XK_Num_Lock)
                    numLock |= mask;
            }
        }
    }
    if (alt)
        bits.alt = lowestBit(alt);
    if (super)
        bits.super = lowestBit(super);
    bits.numLock = lowestBit(numLock);
}

// Keys that type the keysym unshifted in the first layout, which is how a
// recorded key is stored; only where none does, keys that type it unshifted in
// another layout, and then at any level (the keypad's digits sit behind Num Lock).
QList<xcb_keycode_t> X11HotKeyBackend::keycodesTyping(quint32 keysym) {
    const xcb_setup_t* setup = xcb_get_setup(connection);
    const quint32 target = KeyTable::canonical(keysym);
    QList<xcb_keycode_t> firstLayout, unshifted, anyLevel;
    for (int keycode = setup->min_keycode; keycode <= setup->max_keycode; ++keycode) {
        const auto code = static_cast<xcb_keycode_t>(keycode);
        for (int column = 0; column < columnsPerKey; ++column) {
            const xcb_keysym_t produced = xcb_key_symbols_get_keysym(keySymbols(), code, column);
            if (produced == XCB_NO_SYMBOL || KeyTable::canonical(produced) != target)
                continue;
            if (column == 0)
                firstLayout.append(code);
            if (column % 2 == 0 && !unshifted.contains(code))
                unshifted.append(code);
            if (!anyLevel.contains(code))
                anyLevel.append(code);
        }
    }
    if (!firstLayout.isEmpty())
        return firstLayout;
    return unshifted.isEmpty() ? anyLevel : unshifted;
}

uint16_t X11HotKeyBackend::xModifiers(quint32 modifiers) const {
    uint16_t mask = 0;
    if (modifiers & HotKeyConfig::controlKey)
        mask |= XCB_MOD_MASK_CONTROL;
    if (modifiers & HotKeyConfig::optionKey)
        mask |= bits.alt;
    if (modifiers & HotKeyConfig::shiftKey)
        mask |= XCB_MOD_MASK_SHIFT;
    if (modifiers & HotKeyConfig::cmdKey)
        mask |= bits.super;
    return mask;
}

QList<uint16_t> X11HotKeyBackend::lockCombinations() const {
    QList<uint16_t> combinations = {0, XCB_MOD_MASK_LOCK};
    if (bits.numLock != 0 && bits.numLock != XCB_MOD_MASK_LOCK)
        combinations += {bits.numLock, static_cast<uint16_t>(XCB_MOD_MASK_LOCK | bits.numLock)};
    return combinations;
}

bool X11HotKeyBackend::grabShortcut(const Shortcut& shortcut) {
    keyDown = false;
    const QList<xcb_keycode_t> keycodes = keycodesTyping(shortcut.keysym);
    if (keycodes.isEmpty())
        return false;
    grabbed = Grabbed{keycodes, xModifiers(shortcut.modifiers), lockCombinations()};

    // All requests go out at once; each is then checked, so a combination that
    // another client holds (BadAccess) is known before this returns.
    QList<xcb_void_cookie_t> cookies;
    for (xcb_window_t root : roots)
        for (xcb_keycode_t keycode : grabbed->keycodes)
            for (uint16_t locks : grabbed->lockCombinations)
                cookies.append(xcb_grab_key_checked(connection, 0, root, grabbed->modifiers | locks,
                                                    keycode, XCB_GRAB_MODE_ASYNC,
                                                    XCB_GRAB_MODE_ASYNC));
    bool refused = false;
    for (const xcb_void_cookie_t& cookie : cookies) {
        if (xcb_generic_error_t* error = xcb_request_check(connection, cookie)) {
            refused = true;
            std::free(error);
        }
    }
    if (refused) {
        // Ungrabbing a combination this client never got is harmless.
        ungrab();
        return false;
    }
    return true;
}

void X11HotKeyBackend::ungrab() {
    if (!grabbed)
        return;
    ungrabAllBut(*grabbed, std::nullopt);
    grabbed.reset();
    keyDown = false;
}

// Waits until the server has handled everything sent so far, so that a
// released combination is free for others when this returns.
void X11HotKeyBackend::sync() {
    std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
}

bool X11HotKeyBackend::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    switch (event->response_type & ~0x80) {
    case XCB_KEY_PRESS:
        return handleKeyPress(reinterpret_cast<const xcb_key_press_event_t*>(event));
    case XCB_KEY_RELEASE:
        return handleKeyRelease(reinterpret_cast<const xcb_key_release_event_t*>(event));
    default:
        if (isKeyboardMappingChange(event))
            scheduleRegrab();
        return false;
    }
}

bool X11HotKeyBackend::isRootWindow(xcb_window_t window) const {
    return roots.contains(window);
}

bool X11HotKeyBackend::isKeyboardMappingChange(const xcb_generic_event_t* event) const {
    const uint8_t type = event->response_type & ~0x80;
    if (type == XCB_MAPPING_NOTIFY) {
        const auto* mapping = reinterpret_cast<const xcb_mapping_notify_event_t*>(event);
        return mapping->request == XCB_MAPPING_KEYBOARD || mapping->request == XCB_MAPPING_MODIFIER;
    }
    // An XKB event carries its own kind in the second byte.
    return xkbFirstEvent != 0 && type == xkbFirstEvent &&
           (event->pad0 == xkbNewKeyboardNotify || event->pad0 == xkbMapNotify);
}

// Presses through the grab arrive on a root window (owner_events is off).
bool X11HotKeyBackend::handleKeyPress(const xcb_key_press_event_t* event) {
    if (!grabbed || !isRootWindow(event->event) || !grabbed->keycodes.contains(event->detail))
        return false;
    uint16_t locks = 0;
    for (uint16_t combination : grabbed->lockCombinations)
        locks |= combination;
    if ((event->state & coreModifiers & ~locks) != grabbed->modifiers)
        return false;
    const bool repeat = keyDown || (releasedKeycode == event->detail && releaseTime == event->time);
    keyDown = true;
    if (!repeat)
        pressed();
    return true;
}

bool X11HotKeyBackend::handleKeyRelease(const xcb_key_release_event_t* event) {
    if (!grabbed || !grabbed->keycodes.contains(event->detail))
        return false;
    keyDown = false;
    releasedKeycode = event->detail;
    releaseTime = event->time;
    return isRootWindow(event->event);
}

// Mapping changes come in bursts (core and XKB notifications for one change);
// one regrab after the burst is enough.
void X11HotKeyBackend::scheduleRegrab() {
    if (regrabQueued)
        return;
    regrabQueued = true;
    QMetaObject::invokeMethod(
        &queueContext, [this] { regrab(); }, Qt::QueuedConnection);
}

// Grabs are held per keycode and modifier bit, so a new keymap can move the
// shortcut's key or the Num Lock bit away from what is grabbed. A change that
// leaves them where they were (most do: a device switch, a layout that keeps
// the key) touches nothing; otherwise the new grabs are taken before the old
// ones go, so that no press falls in between.
void X11HotKeyBackend::regrab() {
    regrabQueued = false;
    if (symbols) {
        xcb_key_symbols_free(symbols);
        symbols = nullptr;
    }
    readModifierMap();
    if (!wanted)
        return;
    const Grabbed next{keycodesTyping(wanted->keysym), xModifiers(wanted->modifiers),
                       lockCombinations()};
    if (grabbed && *grabbed == next)
        return;
    std::optional<Grabbed> old = std::move(grabbed);
    grabbed.reset();
    const bool taken = !next.keycodes.isEmpty() && grabShortcut(*wanted);
    if (old)
        ungrabAllBut(*old, grabbed);
    // A layout without the key has nothing to grab until the key comes back.
    if (!taken && !next.keycodes.isEmpty())
        std::fprintf(stderr, "Quillery: the drawing shortcut could not be taken again after "
                             "the keyboard layout changed; another program may hold it\n");
}

// Releases the grabs of `old` that `kept` does not hold too: a grab taken
// again is the same grab, and releasing it would release the new one.
void X11HotKeyBackend::ungrabAllBut(const Grabbed& old, const std::optional<Grabbed>& kept) {
    for (xcb_window_t root : roots)
        for (xcb_keycode_t keycode : old.keycodes)
            for (uint16_t locks : old.lockCombinations) {
                const uint16_t modifiers = old.modifiers | locks;
                const bool stillHeld =
                    kept && kept->keycodes.contains(keycode) &&
                    std::any_of(kept->lockCombinations.begin(), kept->lockCombinations.end(),
                                [&](uint16_t keptLocks) {
                                    return (kept->modifiers | keptLocks) == modifiers;
                                });
                if (!stillHeld)
                    xcb_ungrab_key(connection, keycode, root, modifiers);
            }
    sync();
}
