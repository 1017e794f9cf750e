#include "HotKeyManager.h"

#include "KeyTable.h"
#include "NullHotKeyBackend.h"
#include "X11HotKeyBackend.h"

#include <QGuiApplication>
#include <QMetaObject>

namespace {

// Runs later on the main thread, outside X event dispatch, with whatever
// callback is set by then.
void queuePress() {
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [] {
            // A copy, so that the callback may replace itself.
            const std::function<void()> callback = HotKeyManager::shared().onPress;
            if (callback)
                callback();
        },
        Qt::QueuedConnection);
}

xcb_connection_t* x11Connection() {
    auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    if (!app)
        return nullptr;
    auto* x11 = app->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !x11->connection() || xcb_connection_has_error(x11->connection()))
        return nullptr;
    return x11->connection();
}

std::unique_ptr<HotKeyBackend> makeBackend() {
    if (xcb_connection_t* connection = x11Connection())
        return std::make_unique<X11HotKeyBackend>(connection, queuePress);
    return std::make_unique<NullHotKeyBackend>();
}

constexpr quint32 knownModifiers = HotKeyConfig::controlKey | HotKeyConfig::optionKey |
                                   HotKeyConfig::shiftKey | HotKeyConfig::cmdKey;

} // namespace

// Never destroyed: the X connection it uses is gone by the time static objects
// are torn down, and the server drops its grabs when the process ends anyway.
HotKeyManager& HotKeyManager::shared() {
    static HotKeyManager* const instance = new HotKeyManager;
    return *instance;
}

HotKeyManager::HotKeyManager() : backend(makeBackend()) {}

HotKeyManager::~HotKeyManager() = default;

bool HotKeyManager::registerHotKey(const HotKeyConfig& config) {
    unregister();
    const std::optional<quint32> keysym = KeyTable::keysymForCode(config.keyCode);
    if (!keysym)
        return false;
    return backend->grab(*keysym, config.modifiers & knownModifiers);
}

void HotKeyManager::unregister() {
    backend->release();
}

bool HotKeyManager::isRegistered() const {
    return backend->isGrabbed();
}

QList<quint32> HotKeyManager::keysymsOfKey(quint32 nativeKeyCode) const {
    return backend->keysymsOfKey(nativeKeyCode);
}
