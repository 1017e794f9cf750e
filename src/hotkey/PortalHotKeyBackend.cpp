#include "PortalHotKeyBackend.h"

#include "HotKeyConfig.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <cstdio>
#include <xkbcommon/xkbcommon.h>

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
const QString shortcutId = QStringLiteral("toggle-drawing");

// One entry of the portal's a(sa{sv}) lists of shortcuts.
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)

PortalHotKeyBackend::PortalHotKeyBackend(const QDBusConnection& bus, std::function<void()> pressed,
                                         std::function<void()> changed)
    : bus(bus), pressed(std::move(pressed)), changed(std::move(changed)) {
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
    // Every request's answer, whatever its path: ours are told apart by path.
    this->bus.connect(portalService, QString(), requestInterface, QStringLiteral("Response"), this,
                      SLOT(requestAnswered(uint, QVariantMap, QDBusMessage)));
    this->bus.connect(portalService, portalPath, shortcutsInterface, QStringLiteral("Activated"),
                      this, SLOT(activated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
}

PortalHotKeyBackend::~PortalHotKeyBackend() {
    release();
}

QString PortalHotKeyBackend::triggerFor(quint32 keysym, quint32 modifiers) {
    static const std::pair<quint32, const char*> names[] = {
        {HotKeyConfig::controlKey, "CTRL"},
        {HotKeyConfig::optionKey, "ALT"},
        {HotKeyConfig::shiftKey, "SHIFT"},
        {HotKeyConfig::cmdKey, "LOGO"},
    };
    QString trigger;
    for (const auto& [bit, name] : names)
        if (modifiers & bit)
            trigger += QLatin1String(name) + u'+';
    char keyName[64] = {};
    xkb_keysym_get_name(keysym, keyName, sizeof keyName);
    return trigger + QString::fromLatin1(keyName);
}

bool PortalHotKeyBackend::grab(quint32 keysym, quint32 modifiers) {
    preferredTrigger = triggerFor(keysym, modifiers);
    wanted = true;
    failed = false;
    if (session.isEmpty())
        createSession();
    else
        bindShortcut();
    // Sent; the desktop answers later, and decides what it binds.
    return true;
}

void PortalHotKeyBackend::release() {
    wanted = false;
    trigger.clear();
    awaitedCreate.clear();
    awaitedBind.clear();
    if (session.isEmpty())
        return;
    bus.asyncCall(QDBusMessage::createMethodCall(portalService, session,
                                                 QStringLiteral("org.freedesktop.portal.Session"),
                                                 QStringLiteral("Close")));
    session.clear();
}

bool PortalHotKeyBackend::isGrabbed() const {
    return wanted && !trigger.isEmpty();
}

QList<quint32> PortalHotKeyBackend::keysymsOfKey(quint32) {
    return {};
}

void PortalHotKeyBackend::createSession() {
    const QString token = QStringLiteral("quillery%1").arg(++requests);
    QVariantMap options{{QStringLiteral("session_handle_token"), token}};
    awaitedCreate = request(QStringLiteral("CreateSession"), {options}, token);
}

void PortalHotKeyBackend::bindShortcut() {
    const QString token = QStringLiteral("quillery%1").arg(++requests);
    const QList<PortalShortcut> shortcuts{
        {shortcutId,
         {{QStringLiteral("description"), tr("Start or stop drawing")},
          {QStringLiteral("preferred_trigger"), preferredTrigger}}}};
    awaitedBind = request(QStringLiteral("BindShortcuts"),
                          {QVariant::fromValue(QDBusObjectPath(session)),
                           QVariant::fromValue(shortcuts), QString(), QVariantMap()},
                          token);
}

QString PortalHotKeyBackend::request(const QString& method, QVariantList arguments,
                                     const QString& token) {
    QVariantMap options = arguments.last().toMap();
    options.insert(QStringLiteral("handle_token"), token);
    arguments.last() = options;
    QDBusMessage call =
        QDBusMessage::createMethodCall(portalService, portalPath, shortcutsInterface, method);
    call.setArguments(arguments);
    watchForFailure(bus.asyncCall(call));
    // The path the portal answers at, known before it answers (so that an
    // answer can't come before we know what to wait for).
    QString sender = bus.baseService().mid(1);
    sender.replace(u'.', u'_');
    return QStringLiteral("%1/request/%2/%3").arg(portalPath, sender, token);
}

void PortalHotKeyBackend::watchForFailure(const QDBusPendingCall& call) {
    auto* watcher = new QDBusPendingCallWatcher(call, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        if (watcher->isError())
            gaveUp(watcher->error().message());
    });
}

void PortalHotKeyBackend::requestAnswered(uint response, const QVariantMap& results,
                                          const QDBusMessage& message) {
    const QString path = message.path();
    if (path != awaitedCreate && path != awaitedBind)
        return;
    if (response != 0) {
        gaveUp(response == 1 ? tr("the request was cancelled") : tr("the desktop refused it"));
        return;
    }
    if (path == awaitedCreate) {
        awaitedCreate.clear();
        // A string in the portal's documentation, an object path in some portals.
        const QVariant handle = results.value(QStringLiteral("session_handle"));
        session = handle.canConvert<QDBusObjectPath>() && handle.userType() != QMetaType::QString
                      ? handle.value<QDBusObjectPath>().path()
                      : handle.toString();
        if (wanted)
            bindShortcut();
        return;
    }
    awaitedBind.clear();
    const auto shortcuts =
        qdbus_cast<QList<PortalShortcut>>(results.value(QStringLiteral("shortcuts")));
    for (const PortalShortcut& shortcut : shortcuts)
        if (shortcut.id == shortcutId)
            trigger = shortcut.properties.value(QStringLiteral("trigger_description")).toString();
    // Bound, but the desktop named no trigger: the user has yet to choose one.
    if (trigger.isEmpty())
        trigger = tr("not set yet");
    changed();
}

void PortalHotKeyBackend::activated(const QDBusObjectPath& at, const QString& id, qulonglong,
                                    const QVariantMap&) {
    if (wanted && at.path() == session && id == shortcutId)
        pressed();
}

void PortalHotKeyBackend::gaveUp(const QString& why) {
    std::fprintf(stderr,
                 "Quillery: this desktop gives no global shortcut (%s); bind \"quillery "
                 "--toggle\" to a key in its keyboard settings\n",
                 qPrintable(why));
    failed = true;
    awaitedCreate.clear();
    awaitedBind.clear();
    trigger.clear();
    changed();
}
