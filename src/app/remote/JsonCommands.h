#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

struct Item;

// The JSON side of the control socket: one request line in, one reply object
// out, by the same code paths as the keys, the tray menu and the Settings
// window. A request is checked whole before anything changes, so that a bad
// one leaves the drawing and the settings as they were.
class JsonCommands {
public:
    static constexpr int version = 1;

    // The reply to one request line (without its newline). *watch is set when
    // the request asks to follow the drawing: the connection then carries events.
    static QJsonObject execute(const QByteArray& line, bool* watch);
    static QJsonObject failure(const QString& message);
    // A committed item as replies and events show it: id, kind and the
    // desktop area its ink covers.
    static QJsonObject describe(const Item& item);
};
