#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QHash>
#include <QObject>
#include <QStringList>

// A StatusNotifierItem host (as Plasma or waybar are) on a private session bus:
// the watcher tray items register with, reading and clicking their menus.
class StatusNotifierHost : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered MEMBER hostRegistered)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems MEMBER registered)

public:
    QStringList registered;
    bool hostRegistered = true;

    // Before any program with a tray starts: Qt looks for a watcher once.
    bool watch(const QDBusConnection& bus) {
        connection = bus;
        return connection.registerObject("/StatusNotifierWatcher", this,
                                         QDBusConnection::ExportAllSlots |
                                             QDBusConnection::ExportAllProperties) &&
               connection.registerService("org.kde.StatusNotifierWatcher");
    }
    QHash<QString, int> ids; // each label's item id, as of the last layout()

    // The first registered item's menu, as a host asks it. (A QDBusInterface
    // would introspect the item, and QtDBus keeps what it learns for good.)
    QDBusMessage menuCall(const QString& method) {
        const QDBusMessage menu = connection.call(
            QDBusMessage::createMethodCall(registered.value(0), "/StatusNotifierItem",
                                           "org.freedesktop.DBus.Properties", "Get")
            << QStringLiteral("org.kde.StatusNotifierItem") << QStringLiteral("Menu"));
        const QVariant path = qvariant_cast<QDBusVariant>(menu.arguments().value(0)).variant();
        return QDBusMessage::createMethodCall(registered.value(0),
                                              qvariant_cast<QDBusObjectPath>(path).path(),
                                              "com.canonical.dbusmenu", method);
    }

    // One line per item as a host shows it, submenus indented: "---" for a
    // separator, " [x]" or " [ ]" for a check mark, " >" for a submenu.
    void readItem(const QDBusArgument& argument, const QString& indent, QStringList* lines) {
        int id = 0;
        QVariantMap properties;
        argument.beginStructure();
        argument >> id >> properties;
        QString line = properties.value("type").toString() == "separator"
                           ? QStringLiteral("---")
                           : properties.value("label").toString();
        ids.insert(line, id);
        if (properties.value("toggle-type").toString() == "checkmark")
            line += properties.value("toggle-state").toInt() == 1 ? " [x]" : " [ ]";
        if (properties.value("children-display").toString() == "submenu")
            line += " >";
        if (id != 0 && properties.value("visible", true).toBool())
            *lines << indent + line;
        argument.beginArray();
        while (!argument.atEnd()) {
            QDBusVariant child;
            argument >> child;
            readItem(qvariant_cast<QDBusArgument>(child.variant()),
                     id == 0 ? indent : indent + "  ", lines);
        }
        argument.endArray();
        argument.endStructure();
    }
    QStringList layout() {
        const QDBusMessage reply =
            connection.call(menuCall("GetLayout") << 0 << -1 << QStringList());
        if (reply.arguments().size() != 2)
            return {"GetLayout failed: " + reply.errorMessage()};
        QStringList lines;
        readItem(qvariant_cast<QDBusArgument>(reply.arguments().at(1)), QString(), &lines);
        return lines;
    }
    // As a host does when the user picks it: an event sent without waiting for an answer.
    bool click(const QString& label) {
        layout();
        return ids.contains(label) &&
               connection.send(menuCall("Event")
                               << ids.value(label) << QStringLiteral("clicked")
                               << QVariant::fromValue(QDBusVariant(QString())) << 0u);
    }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service) { registered << service; }
    void RegisterStatusNotifierHost(const QString&) {}

private:
    QDBusConnection connection{QString()};
};
