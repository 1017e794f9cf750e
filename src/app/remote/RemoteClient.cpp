#include "RemoteClient.h"

#include "ControlChannel.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLocalSocket>

std::optional<RemoteReply> RemoteClient::send(const QString& request) {
    // A client never creates the directory: without it, nothing runs.
    if (!QFileInfo::exists(ControlChannel::directory()))
        return std::nullopt;
    QString error;
    if (!ControlChannel::checkDirectory(&error))
        return RemoteReply{1, error + QLatin1Char('\n')};
    QLocalSocket socket;
    socket.connectToServer(ControlChannel::socketPath());
    if (!socket.waitForConnected(ControlChannel::timeoutMs))
        return std::nullopt;
    socket.write(request.toUtf8() + '\n');
    socket.waitForBytesWritten(ControlChannel::timeoutMs);
    QByteArray answer;
    while (socket.state() == QLocalSocket::ConnectedState || socket.bytesAvailable() > 0) {
        if (socket.bytesAvailable() == 0 && !socket.waitForReadyRead(ControlChannel::timeoutMs))
            break;
        answer += socket.read(ControlChannel::maxReplyBytes - answer.size());
        if (answer.size() >= ControlChannel::maxReplyBytes)
            break;
    }
    if (answer.isEmpty())
        return RemoteReply{
            1, QCoreApplication::translate("RemoteClient", "Quillery did not answer.\n")};
    return RemoteReply::decode(answer);
}
