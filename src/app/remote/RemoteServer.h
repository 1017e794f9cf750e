#pragma once

#include "RemoteCommands.h"

#include <QLocalServer>
#include <QObject>

class QLocalSocket;

// Listens on the control socket of the running instance. Each connection may send
// one short line; clients of another user, oversized or garbled requests and
// clients that stall are cut off without touching the rest of the program.
class RemoteServer : public QObject {
    Q_OBJECT
public:
    explicit RemoteServer(RemoteCommands commands, QObject* parent = nullptr);

    // Takes over the socket path (the caller holds the instance lock, so a socket
    // file found there is stale). Returns false with a reason on failure.
    bool listen(QString* error);

private:
    void acceptConnections();
    void readRequest(QLocalSocket* socket);
    void answer(QLocalSocket* socket, const RemoteReply& reply);

    RemoteCommands commands;
    QLocalServer server;
};
