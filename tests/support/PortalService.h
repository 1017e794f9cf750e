#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>

// A small desktop portal for tests, on a private session bus: it speaks the
// documented org.freedesktop.portal.GlobalShortcuts interface (requests
// answered through Request objects, the desktop's own choice of trigger,
// Activated signals) and records what it was asked.
using Shortcut = QPair<QString, QVariantMap>; // an id and its properties

class PortalService : public QDBusVirtualObject {
public:
    static constexpr const char* path = "/org/freedesktop/portal/desktop";
    QStringList calls;
    QString session;

    // Once, before the first call.
    static void registerTypes() {
        qDBusRegisterMetaType<Shortcut>();
        qDBusRegisterMetaType<QList<Shortcut>>();
    }
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& bus) override {
        if (call.member() == "Close") {
            calls << "Close " + call.path().section(u'/', -1);
            bus.send(call.createReply());
            return true;
        }
        const QVariantMap options = qdbus_cast<QVariantMap>(call.arguments().last());
        const QString sender = call.service().mid(1).replace(u'.', u'_');
        const QString request = QStringLiteral("%1/request/%2/%3")
                                    .arg(path, sender, options.value("handle_token").toString());
        bus.send(call.createReply(QVariant::fromValue(QDBusObjectPath(request))));
        QVariantMap results; // the desktop chooses the trigger, not the program
        if (call.member() == "CreateSession") {
            session = QStringLiteral("%1/session/%2/%3")
                          .arg(path, sender, options.value("session_handle_token").toString());
            calls << "CreateSession";
            results.insert("session_handle", session);
        } else if (call.member() == "BindShortcuts") {
            const auto asked = qdbus_cast<QList<Shortcut>>(call.arguments().at(1));
            QList<Shortcut> bound;
            for (const Shortcut& shortcut : asked) {
                calls << QStringLiteral("BindShortcuts %1 %2 \"%3\"")
                             .arg(shortcut.first,
                                  shortcut.second.value("preferred_trigger").toString(),
                                  shortcut.second.value("description").toString());
                bound << Shortcut{shortcut.first, {{"trigger_description", "Super+D"}}};
            }
            results.insert("shortcuts", QVariant::fromValue(bound));
        }
        QDBusMessage response =
            QDBusMessage::createSignal(request, "org.freedesktop.portal.Request", "Response");
        response << 0u /* granted */ << results;
        bus.send(response);
        return true;
    }
    void press(const QDBusConnection& bus, const QString& id, const QString& at) const {
        QDBusMessage activated =
            QDBusMessage::createSignal(path, "org.freedesktop.portal.GlobalShortcuts", "Activated");
        activated << QVariant::fromValue(QDBusObjectPath(at)) << id << qulonglong(1)
                  << QVariantMap();
        bus.send(activated);
    }
};
