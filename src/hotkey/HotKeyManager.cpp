#include "HotKeyManager.h"

#include "KeyTable.h"
#include "NullHotKeyBackend.h"

#include <QGuiApplication>
#include <QMetaObject>

namespace {

constexpr quint32 knownModifiers = HotKeyConfig::controlKey | HotKeyConfig::optionKey |
                                   HotKeyConfig::shiftKey | HotKeyConfig::cmdKey;

} // namespace

// Never destroyed: the X connection it uses is gone by the time static objects
// are torn down, and the server drops its grabs when the process ends anyway.
HotKeyManager& HotKeyManager::shared() {
    static HotKeyManager* const instance = new HotKeyManager;
    return *instance;
}

HotKeyManager::HotKeyManager() : backend(std::make_unique<NullHotKeyBackend>()) {}

void HotKeyManager::setBackend(std::unique_ptr<HotKeyBackend> platform) {
    unregister();
    backend = std::move(platform);
}

namespace {

// Runs the callback later on the main thread, outside the platform's event
// dispatch, as it is set by then.
void runQueued(std::function<void()> HotKeyManager::*callback) {
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [callback] {
            // A copy, so that the callback may replace itself.
            const std::function<void()> call = HotKeyManager::shared().*callback;
            if (call)
                call();
        },
        Qt::QueuedConnection);
}

} // namespace

void HotKeyManager::pressed() {
    runQueued(&HotKeyManager::onPress);
}

void HotKeyManager::changed() {
    runQueued(&HotKeyManager::onChange);
}

QString HotKeyManager::desktopTrigger() const {
    return backend->desktopTrigger();
}

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

bool HotKeyManager::isDecidedByDesktop() const {
    return backend->kind() == HotKeyBackend::Kind::desktop;
}

bool HotKeyManager::isUnavailable() const {
    return backend->kind() == HotKeyBackend::Kind::none;
}

QString HotKeyManager::describe(const HotKeyConfig& wanted) const {
    switch (backend->kind()) {
    case HotKeyBackend::Kind::grab:
        return isRegistered() ? wanted.display()
                              : QCoreApplication::translate("HotKeyManager", "none (%1 is taken)")
                                    .arg(wanted.display());
    case HotKeyBackend::Kind::desktop:
        return backend->desktopTrigger().isEmpty()
                   ? QCoreApplication::translate("HotKeyManager", "asked of the desktop")
                   : QCoreApplication::translate("HotKeyManager", "%1 (bound by the desktop)")
                         .arg(backend->desktopTrigger());
    case HotKeyBackend::Kind::none:
        break;
    }
    return QCoreApplication::translate("HotKeyManager", "none (this desktop lets no program "
                                                        "have one: bind quillery --toggle in "
                                                        "its keyboard settings)");
}

QList<quint32> HotKeyManager::keysymsOfKey(quint32 nativeKeyCode) const {
    return backend->keysymsOfKey(nativeKeyCode);
}
