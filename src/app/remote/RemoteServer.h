#pragma once

#include "RemoteCommands.h"

#include <QLocalServer>
#include <QObject>

class QLocalSocket;
class QTimer;

// Listens on the control socket of the running instance. A connection sends one
// short plain command, or, when its first line starts with "{", any number of
// JSON requests (see JsonSession). Clients of another user, oversized or
// garbled requests and clients that stall are cut off without touching the
// rest of the program.
class RemoteServer : public QObject {
    Q_OBJECT
public:
    explicit RemoteServer(RemoteCommands commands, QObject* parent = nullptr);

    // Takes over the socket path (the caller holds the instance lock, so a socket
    // file found there is stale). Returns false with a reason on failure.
    bool listen(QString* error);

private:
    void acceptConnections();
    void readRequest(QLocalSocket* socket, QTimer* deadline);
    void answer(QLocalSocket* socket, const RemoteReply& reply);

    RemoteCommands commands;
    QLocalServer server;
};
