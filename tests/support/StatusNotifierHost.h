#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QHash>
#include <QObject>
#include <QStringList>

// A StatusNotifierItem host for tests (as Plasma, waybar or GNOME's
// AppIndicator extension are one), on a private session bus: it plays the
// watcher that programs register their tray item with, and reads and clicks
// the item's menu over D-Bus as such a host does.
class StatusNotifierHost : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)

public:
    QStringList registered;
    bool hostRegistered() const { return true; }
    int protocolVersion() const { return 0; }
    QStringList items() const { return registered; }

    // Takes the watcher's name on bus: before any program with a tray starts
    // (Qt looks for a watcher once).
    bool watch(const QDBusConnection& bus) {
        connection = bus;
        return connection.registerObject("/StatusNotifierWatcher", this,
                                         QDBusConnection::ExportAllSlots |
                                             QDBusConnection::ExportAllProperties) &&
               connection.registerService("org.kde.StatusNotifierWatcher");
    }
    // The first registered item's menu path, empty until there is one.
    QString menuPath() {
        if (registered.isEmpty())
            return {};
        const QDBusMessage menu = connection.call(
            QDBusMessage::createMethodCall(registered.first(), "/StatusNotifierItem",
                                           "org.freedesktop.DBus.Properties", "Get")
            << QStringLiteral("org.kde.StatusNotifierItem") << QStringLiteral("Menu"));
        return qvariant_cast<QDBusObjectPath>(
                   qvariant_cast<QDBusVariant>(menu.arguments().value(0)).variant())
            .path();
    }

    // One line per item as a host shows it, submenus indented: "---" for a
    // separator, " [x]" or " [ ]" for a check mark, " >" for a submenu; and
    // each label's item id.
    static void readItem(const QDBusArgument& argument, const QString& indent, QStringList* lines,
                         QHash<QString, int>* ids) {
        int id = 0;
        QVariantMap properties;
        argument.beginStructure();
        argument >> id >> properties;
        QString line = properties.value("type").toString() == "separator"
                           ? QStringLiteral("---")
                           : properties.value("label").toString();
        ids->insert(line, id);
        if (properties.value("toggle-type").toString() == "checkmark")
            line += properties.value("toggle-state").toInt() == 1 ? " [x]" : " [ ]";
        if (properties.value("toggle-type").toString() == "radio")
            line += " (radio)";
        if (properties.value("children-display").toString() == "submenu")
            line += " >";
        if (id != 0 && properties.value("visible", true).toBool())
            *lines << indent + line;
        argument.beginArray();
        while (!argument.atEnd()) {
            QDBusVariant child;
            argument >> child;
            readItem(qvariant_cast<QDBusArgument>(child.variant()),
                     id == 0 ? indent : indent + "  ", lines, ids);
        }
        argument.endArray();
        argument.endStructure();
    }
    QDBusMessage callMenu(const QString& method, const QVariantList& arguments) {
        QDBusMessage call = QDBusMessage::createMethodCall(registered.value(0), menuPath(),
                                                           "com.canonical.dbusmenu", method);
        call.setArguments(arguments);
        return connection.call(call);
    }
    QStringList layout(QHash<QString, int>* ids = nullptr) {
        const QDBusMessage reply = callMenu("GetLayout", {0, -1, QStringList()});
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2)
            return {"GetLayout failed: " + reply.errorMessage()};
        QStringList lines;
        QHash<QString, int> labels;
        readItem(qvariant_cast<QDBusArgument>(reply.arguments().at(1)), QString(), &lines,
                 ids ? ids : &labels);
        return lines;
    }
    // Clicks the item with this label, as a host does when the user picks it:
    // an event that hosts send without waiting for an answer.
    bool click(const QString& label) {
        QHash<QString, int> ids;
        layout(&ids);
        if (!ids.contains(label))
            return false;
        QDBusMessage event = QDBusMessage::createMethodCall(
            registered.value(0), menuPath(), "com.canonical.dbusmenu", QStringLiteral("Event"));
        event << ids.value(label) << QStringLiteral("clicked")
              << QVariant::fromValue(QDBusVariant(QString())) << 0u;
        return connection.send(event);
    }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service) { registered << service; }
    void RegisterStatusNotifierHost(const QString&) {}

private:
    QDBusConnection connection{QString()};
};
