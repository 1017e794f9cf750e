#include "RemoteServer.h"

#include "ControlChannel.h"
#include "JsonSession.h"
#include "PeerCredentials.h"

#include <QLocalSocket>
#include <QTimer>
#include <unistd.h>

RemoteServer::RemoteServer(RemoteCommands commands, QObject* parent)
    : QObject(parent), commands(std::move(commands)) {
    connect(&server, &QLocalServer::newConnection, this, &RemoteServer::acceptConnections);
}

bool RemoteServer::listen(QString* error) {
    if (!ControlChannel::prepareDirectory(error))
        return false;
    QLocalServer::removeServer(ControlChannel::socketPath());
    server.setSocketOptions(QLocalServer::UserAccessOption);
    if (!server.listen(ControlChannel::socketPath())) {
        *error = server.errorString();
        return false;
    }
    return true;
}

void RemoteServer::acceptConnections() {
    while (QLocalSocket* socket = server.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        const auto user = PeerCredentials::peerUser(socket->socketDescriptor());
        if (!user || *user != getuid()) {
            socket->abort();
            socket->deleteLater();
            continue;
        }
        socket->setReadBufferSize(ControlChannel::maxRequestBytes + 1);
        // A client that doesn't finish its line in time is dropped.
        auto* deadline = new QTimer(socket);
        deadline->setSingleShot(true);
        connect(deadline, &QTimer::timeout, socket, [socket] { socket->abort(); });
        deadline->start(ControlChannel::timeoutMs);
        connect(socket, &QLocalSocket::readyRead, this,
                [this, socket, deadline] { readRequest(socket, deadline); });
    }
}

void RemoteServer::readRequest(QLocalSocket* socket, QTimer* deadline) {
    if (socket->peek(1) == "{") {
        disconnect(socket, &QLocalSocket::readyRead, this, nullptr);
        new JsonSession(socket, deadline);
        return;
    }
    if (!socket->canReadLine()) {
        if (socket->bytesAvailable() > ControlChannel::maxRequestBytes)
            answer(socket, {2, tr("The request is too long.\n")});
        return;
    }
    const QByteArray line = socket->readLine(ControlChannel::maxRequestBytes + 1);
    if (!line.endsWith('\n')) {
        answer(socket, {2, tr("The request is too long.\n")});
        return;
    }
    const QString request = QString::fromUtf8(line.chopped(1));
    if (request.contains(QChar::ReplacementCharacter)) {
        answer(socket, {2, tr("The request is not text.\n")});
        return;
    }
    answer(socket, commands.execute(request));
}

void RemoteServer::answer(QLocalSocket* socket, const RemoteReply& reply) {
    disconnect(socket, &QLocalSocket::readyRead, this, nullptr);
    socket->write(reply.encode());
    socket->disconnectFromServer(); // flushes first
}
