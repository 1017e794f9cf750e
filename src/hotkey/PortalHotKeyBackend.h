#pragma once

#include "HotKeyBackend.h"

#include <QDBusConnection>
#include <QObject>
#include <functional>

class QDBusMessage;
class QDBusObjectPath;
class QDBusPendingCall;

// The desktop portal's global shortcut (org.freedesktop.portal.GlobalShortcuts),
// for Wayland desktops, where no program may grab keys: the stored shortcut
// is only proposed, the desktop binds what it (or the user) chooses and says
// when it is pressed. Everything runs asynchronously: grab() sends the request
// and the answer comes later, so start-up never waits for the portal.
class PortalHotKeyBackend : public QObject, public HotKeyBackend {
    Q_OBJECT
public:
    // pressed runs for every press, changed when the desktop's answer arrives.
    PortalHotKeyBackend(const QDBusConnection& bus, std::function<void()> pressed,
                        std::function<void()> changed);
    ~PortalHotKeyBackend() override;

    bool grab(quint32 keysym, quint32 modifiers) override;
    void release() override;
    bool isGrabbed() const override;
    QList<quint32> keysymsOfKey(quint32 nativeKeyCode) override;
    Kind kind() const override { return failed ? Kind::none : Kind::desktop; }
    QString desktopTrigger() const override { return trigger; }

    // As the XDG shortcuts format writes a combination: "CTRL+ALT+d".
    static QString triggerFor(quint32 keysym, quint32 modifiers);

private Q_SLOTS:
    void requestAnswered(uint response, const QVariantMap& results, const QDBusMessage& message);
    void activated(const QDBusObjectPath& session, const QString& id, qulonglong timestamp,
                   const QVariantMap& options);

private:
    void createSession();
    void bindShortcut();
    // Calls a portal method whose answer comes as a Request's Response signal
    // at the path this returns.
    QString request(const QString& method, QVariantList arguments, const QString& token);
    void watchForFailure(const QDBusPendingCall& call);
    void gaveUp(const QString& why);

    QDBusConnection bus;
    std::function<void()> pressed;
    std::function<void()> changed;
    QString preferredTrigger;
    QString session;
    QString awaitedCreate;
    QString awaitedBind;
    QString trigger;
    bool wanted = false;
    bool failed = false;
    int requests = 0;
};
