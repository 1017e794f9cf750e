#pragma once

#include "RemoteReply.h"

#include <QByteArray>
#include <functional>
#include <optional>

// Sends one command to the running instance and waits for its answer. Both
// give std::nullopt when no instance answers on the control socket.
class RemoteClient {
public:
    // A plain command, or one JSON request (answered with the new item's id, if any).
    static std::optional<RemoteReply> send(const QString& request);
    // Follows the drawing: hands the answer that the watch is in place, then
    // each event line, to printEvent until Quillery
    // closes the connection (or the process is interrupted).
    static std::optional<RemoteReply>
    watch(const std::function<void(const QByteArray&)>& printEvent);
};
